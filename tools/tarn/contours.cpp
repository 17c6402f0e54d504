// contour-find: outlines of regions, drawn over the picture (SVG) or as nested polygons (JSON).
#include <png.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "batch.h"
#include "commands.h"
#include "error.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {
struct ContourFind {
    Files files;
    std::string threshold, values = "ones", diagonal = "none";
    bool otsu = false;
};

// The samples as numbers from 0: luminance of colours; alpha is left out.
std::vector<uint16_t> luminance(const Image& image, const std::string& name) {
    const Shape& shape = image.shape;
    if (shape.sample != Sample::u8 && shape.sample != Sample::u16)
        fail(name,
             std::string("has ") + sample_name(shape.sample) + " samples; outlines are found in 8- and 16-bit pictures",
             "convert it first with tarn convert-scale --depth u8");
    const int channels = shape.channels;
    std::vector<uint16_t> grey(static_cast<size_t>(shape.width * shape.height));
    uint16_t* to = grey.data();
    for (int64_t y = 0; y < shape.height; ++y) {
        const auto value = [&](int64_t i) -> double {
            return shape.sample == Sample::u8 ? image.row(y)[i]
                                              : reinterpret_cast<const int16_t*>(image.row(y))[i] + kOffset16;
        };
        for (int64_t i = 0; i < shape.width * channels; i += channels)
            *to++ = static_cast<uint16_t>(
                channels < 3 ? value(i) : 0.299 * value(i) + 0.587 * value(i + 1) + 0.114 * value(i + 2) + 0.5);
    }
    return grey;
}

// Otsu's threshold of the values, of 256 or 65536 possible ones.
int otsu_threshold(const Module& module, const std::vector<uint16_t>& grey, const Image& image) {
    Shape shape = image.shape;
    shape.channels = 1;
    shape.sample = Sample::f32;
    shape.alpha = Alpha::none;
    Image values = Image::make(shape, "the luminance");
    for (int64_t y = 0; y < shape.height; ++y)
        std::copy_n(grey.begin() + y * shape.width, shape.width, reinterpret_cast<float*>(values.row(y)));
    const float bounds[2] = {0, image.shape.sample == Sample::u8 ? 255.0f : 65535.0f};
    Timing untimed;
    const LumoMAT view = values.view();
    // The last float of an interval that holds one whole number.
    return int(Operation(module, "tarn::calcthresh-otsu", untimed)
                   .call<TarnCalcthreshOtsu>(describe(shape), &view, bounds, int32_t(bounds[1]) + 1));
}

// ---- What the module delivers -------------------------------------------------------------------------------------

struct Outline {
    std::vector<std::pair<int32_t, int32_t>> points;
    bool hole;
    int value;
    int64_t parent = -1;
    std::vector<int64_t> children;
};

struct Outlines : TarnCONTOURS {
    Outlines() : TarnCONTOURS{release, deliver, notice_top} {}
    std::vector<Outline> all;  // inner before outer
    bool complete = false;     // a call has ended; when measured, there are several

    static void release(TarnCONTOURS*, void*) {}
    static int64_t notice_top(TarnCONTOURS* self, int32_t, void*, QuelERR*) {
        static_cast<Outlines*>(self)->complete = true;
        return 0;
    }
    static int64_t deliver(TarnCONTOURS* self, TarnCONTOUR* contour, void** handle, QuelERR*) try {
        Outlines& out = *static_cast<Outlines*>(self);
        if (std::exchange(out.complete, false)) out.all.clear();
        const auto index = static_cast<int64_t>(out.all.size());
        Outline& outline = out.all.emplace_back();
        outline.hole = contour->flags & TARN_CONTOUR_HOLE;
        outline.value = contour->flags & TARN_CONTOUR_VALUE ? 1 : 0;
        outline.points.reserve(contour->points.count);
        for (const TarnPOINT* p = contour->points.head; p; p = p->next) outline.points.push_back({p->x, p->y});
        for (const TarnCONTOURLIST& list : contour->children)
            for (const TarnCONTOUR* child = list.head; child; child = child->next) {
                const auto inside = reinterpret_cast<intptr_t>(child->handle);
                outline.children.push_back(inside);
                out.all[static_cast<size_t>(inside)].parent = index;
            }
        *handle = reinterpret_cast<void*>(static_cast<intptr_t>(index));
        return 0;
    } catch (const std::bad_alloc&) {
        return -1;
    }
};

// ---- Output -------------------------------------------------------------------------------------------------------

std::string base64(const std::vector<uint8_t>& bytes) {
    constexpr char kDigits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t have = std::min<size_t>(3, bytes.size() - i);
        uint32_t word = 0;
        for (size_t j = 0; j < 3; ++j) word = word << 8 | (j < have ? bytes[i + j] : 0);
        for (size_t j = 0; j < 4; ++j) text += j <= have ? kDigits[word >> (18 - 6 * j) & 63] : '=';
    }
    return text;
}

// The picture as an 8-bit PNG file in memory.
std::vector<uint8_t> png_bytes(const Image& image, const std::string& name) {
    const Shape& shape = image.shape;
    constexpr png_uint_32 kFormats[] = {PNG_FORMAT_GRAY, PNG_FORMAT_GA, PNG_FORMAT_RGB, PNG_FORMAT_RGBA};
    std::vector<uint8_t> rows;
    const size_t samples = static_cast<size_t>(shape.width) * shape.channels;
    rows.reserve(samples * static_cast<size_t>(shape.height));
    for (int64_t y = 0; y < shape.height; ++y) {
        const uint8_t* row = image.row(y);
        for (size_t i = 0; i < samples; ++i)
            rows.push_back(shape.sample == Sample::u8
                               ? row[i]
                               : static_cast<uint8_t>((reinterpret_cast<const int16_t*>(row)[i] + kOffset16) >> 8));
    }
    png_image png = {};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(shape.width);
    png.height = static_cast<png_uint_32>(shape.height);
    png.format = kFormats[shape.channels - 1];
    // Asking for the size would compress it all once more.
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
    std::vector<uint8_t> file(size);
    if (png_image_write_to_memory(&png, file.data(), &size, 0, rows.data(), 0, nullptr)) {
        file.resize(size);
        return file;
    }
    fail(name, std::string("can't be put into an SVG: ") + png.message, "write .json");
}

std::string svg(const Image& image, const std::string& name, const Outlines& outlines, bool both) {
    const std::string width = std::to_string(image.width()), height = std::to_string(image.height());
    std::string text = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + width + "\" height=\"" + height +
                       "\" viewBox=\"0 0 " + width + " " + height + "\">\n<image width=\"" + width + "\" height=\"" +
                       height + "\" image-rendering=\"pixelated\" href=\"data:image/png;base64," +
                       base64(png_bytes(image, name)) + "\"/>\n";
    // Two groups: outer outlines and holes; of both values, the outlines of ones and of zeros.
    const struct {
        const char *title, *colour;
    } groups[] = {{both ? "ones" : "outer", "#ff2a6d"}, {both ? "zeros" : "holes", "#05d9e8"}};
    for (const int group : {0, 1}) {
        text += std::string("<g id=\"") + groups[group].title + "\" fill=\"none\" stroke=\"" + groups[group].colour +
                "\" stroke-width=\"1.5\" stroke-linejoin=\"round\">\n";
        for (const Outline& outline : outlines.all) {
            if ((both ? 1 - outline.value : int(outline.hole)) != group) continue;
            auto [x, y] = outline.points[0];
            text += "<path vector-effect=\"non-scaling-stroke\" d=\"M" + std::to_string(x) + " " + std::to_string(y);
            for (const auto& [next_x, next_y] : outline.points) {
                if (next_x != x) text += "H" + std::to_string(next_x);
                if (next_y != y) text += "V" + std::to_string(next_y);
                x = next_x, y = next_y;
            }
            text += "Z\"/>\n";
        }
        text += "</g>\n";
    }
    return text + "</svg>\n";
}

std::string json(const Image& image, int threshold, const Outlines& outlines) {
    // Outer before inner: the reverse of the order of delivery.
    const auto last = static_cast<int64_t>(outlines.all.size()) - 1;
    std::vector<int> depth(outlines.all.size());
    std::string text = "{\"type\":\"FeatureCollection\",\"width\":" + std::to_string(image.width()) +
                       ",\"height\":" + std::to_string(image.height()) + ",\"threshold\":" + std::to_string(threshold) +
                       ",\"features\":[";
    for (int64_t i = last; i >= 0; --i) {
        const Outline& outline = outlines.all[static_cast<size_t>(i)];
        if (outline.parent >= 0) depth[static_cast<size_t>(i)] = depth[static_cast<size_t>(outline.parent)] + 1;
        int64_t twice_area = 0;
        auto [left, top] = outline.points[0];
        auto right = left, bottom = top;
        auto before = outline.points.back();
        nlohmann::ordered_json ring = nlohmann::json::array(), children = nlohmann::json::array();
        for (const auto& point : outline.points) {
            twice_area += int64_t(before.first) * point.second - int64_t(point.first) * before.second;
            left = std::min(left, point.first), right = std::max(right, point.first);
            top = std::min(top, point.second), bottom = std::max(bottom, point.second);
            ring.push_back({point.first, point.second});
            before = point;
        }
        ring.push_back(ring[0]);
        for (const int64_t child : outline.children) children.push_back(last - child);
        nlohmann::ordered_json feature;
        feature["type"] = "Feature";
        feature["id"] = last - i;
        feature["bbox"] = {left, top, right, bottom};
        feature["geometry"] = {{"type", "Polygon"}, {"coordinates", nlohmann::ordered_json::array({ring})}};
        auto& properties = feature["properties"];
        properties["parent"] =
            outline.parent < 0 ? nlohmann::ordered_json() : nlohmann::ordered_json(last - outline.parent);
        properties["children"] = children;
        properties["depth"] = depth[static_cast<size_t>(i)];
        properties["hole"] = outline.hole;
        properties["value"] = outline.value;
        properties["area"] = std::abs(twice_area) / 2;
        text += (i == last ? "\n" : ",\n") + feature.dump();
    }
    return text + "\n]}\n";
}

void run_contour_find(const ContourFind& options) {
    const Files& files = options.files;
    const std::string& name = files.inputs[0];
    if (options.otsu && !options.threshold.empty()) usage("--otsu", "can't go with --threshold", "give one of them");
    int threshold =
        options.threshold.empty() ? 0 : static_cast<int>(parse_integer(options.threshold, "--threshold", 0, 65535));
    const size_t values = parse_word(options.values, "--values", {"ones", "zeros", "both"});
    const size_t diagonal = parse_word(options.diagonal, "--diagonal", {"none", "zeros", "ones", "both"});
    const size_t dot = files.output.rfind('.');
    const std::string extension = dot == std::string::npos ? "" : files.output.substr(dot);
    const bool named = files.format.empty() && !files.output.empty() && files.output != "-";
    const bool as_svg =
        files.format.empty() ? extension == ".svg" : parse_word(files.format, "--format", {"json", "svg"});
    if (named && !as_svg && extension != ".json" && extension != ".geojson")
        usage(files.output, "is neither a drawing nor a list of polygons", "write .svg or .json");

    const Image source = read_input(files);
    const std::vector<uint16_t> grey = luminance(source, name);
    const Module module;
    if (options.otsu) threshold = otsu_threshold(module, grey, source);
    Shape shape;
    shape.width = source.shape.width;
    shape.height = source.shape.height;
    Image mask = Image::make(shape, name);
    for (int64_t y = 0; y < shape.height; ++y)
        for (int64_t x = 0; x < shape.width; ++x)
            mask.row(y)[x] = grey[size_t(y * shape.width + x)] > threshold ? 255 : 0;

    constexpr uint32_t kValues[] = {TARN_CONTOURS_OF_ONES, TARN_CONTOURS_OF_ZEROS, 0};
    constexpr uint32_t kDiagonal[] = {0, TARN_CONTOURS_DIAGONAL_ZEROS, TARN_CONTOURS_DIAGONAL_ONES,
                                      TARN_CONTOURS_DIAGONAL_ZEROS | TARN_CONTOURS_DIAGONAL_ONES};
    Timing timing{files.time};
    Operation find(module, "tarn::contour::find", timing);
    Outlines outlines;
    const LumoMAT view = mask.view();
    {
        const Progress progress("finding outlines in " + name);
        find.call<TarnContourFind>(describe(shape), static_cast<TarnCONTOURS*>(&outlines), &view,
                                   kValues[values] | kDiagonal[diagonal]);
    }
    write_text(files, as_svg ? svg(source, name, outlines, values == 2) : json(source, threshold, outlines));
    print_time(files, timing);
}
}  // namespace

Run setup_contour_find(CLI::App& app) {
    const auto options = std::make_shared<ContourFind>();
    add_inputs(app, options->files, 1, 0);
    add_option(app, "-o,--output", options->files.output,
               ".svg: the outlines over the picture; .json: nested polygons (default: the latter to standard output)")
        .type_name("OUT");
    add_option(app, "--format", options->files.format, "svg or json, where the name does not tell").type_name("FORMAT");
    add_batch(app, options->files);
    add_option(app, "--threshold", options->threshold, "pixels above this luminance are ones (default 0)")
        .type_name("V");
    add_flag(app, "--otsu", options->otsu, "choose the threshold from the picture's histogram");
    add_option(app, "--values", options->values, "outlines of the regions of ones (default), zeros or both")
        .type_name("WHICH");
    add_option(app, "--diagonal", options->diagonal,
               "values whose pixels connect at corners: none (default), zeros, ones or both")
        .type_name("WHICH");
    return each_picture(options->files, [options] { run_contour_find(*options); });
}

}  // namespace tarn::tool
