// The command of morphology. Alpha is worked on by itself, as one more channel.
#include <algorithm>
#include <filesystem>

#include "commands.h"
#include "error.h"
#include "kinds.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {

struct Morph {
    Files files;
    std::string operation, element, size, anchor;
};

const std::vector<std::string> kOperations = {"erode", "dilate", "open", "close", "tophat", "blackhat", "gradient"};
const std::vector<std::string> kShapes = {"rect", "ellipse", "cross"};

// ---- The element --------------------------------------------------------------------------------------------------

TarnANCHOR parse_anchor(const std::string& text, const Image& element) {
    const int64_t right = element.shape.width - 1, bottom = element.shape.height - 1;
    if (text.empty()) return {uint32_t(element.shape.width / 2), uint32_t(element.shape.height / 2)};
    const auto anchor = parse_integers(text, "--anchor", 2, INT32_MIN, INT32_MAX);
    if (anchor[0] < 0 || anchor[0] > right || anchor[1] < 0 || anchor[1] > bottom)
        usage("--anchor",
              "'" + text + "' lies outside of the " + std::to_string(right + 1) + "x" + std::to_string(bottom + 1) +
                  " element",
              "give a cell from 0,0 to " + std::to_string(right) + "," + std::to_string(bottom));
    return {uint32_t(anchor[0]), uint32_t(anchor[1])};
}

// Whether a cell's middle lies in the ellipse that touches the sides.
bool in_ellipse(int64_t x, int64_t y, const Shape& shape) {
    const double u = double(2 * x + 1 - shape.width) / double(shape.width),
                 v = double(2 * y + 1 - shape.height) / double(shape.height);
    return u * u + v * v <= 1;
}

// The element as a picture: of a file, or drawn. A cross goes through the anchor.
Image make_element(const Morph& options, TarnANCHOR* anchor) {
    const auto shape = std::find(kShapes.begin(), kShapes.end(), options.element);
    if (shape == kShapes.end()) {
        if (!options.size.empty())
            usage("--size", "can't go with an element from a file, which has its own",
                  "leave it out, or give --element rect");
        Image image = read_image(options.element);
        if (image.shape.sample != Sample::u8 || image.shape.channels != 1)
            fail(options.element, "is " + describe(image.shape) + " and no element", "give a grey picture of 8 bits");
        *anchor = parse_anchor(options.anchor, image);
        return image;
    }
    if (options.size.empty()) usage("--size", "is missing", "give the element's width and height, as 5x5");
    const PixelSize size = parse_size(options.size, "--size");
    Image image = Image::make({size.width, size.height}, "--size");
    *anchor = parse_anchor(options.anchor, image);
    for (int64_t y = 0; y < size.height; ++y)
        for (int64_t x = 0; x < size.width; ++x)
            image.row(y)[x] = *shape == "ellipse" ? in_ellipse(x, y, image.shape)
                              : *shape == "cross" ? x == anchor->x || y == anchor->y
                                                  : 1;
    return image;
}

// ---- Pictures -----------------------------------------------------------------------------------------------------

// The files to write, one for each input: OUT, or files of the inputs' names in the folder OUT.
std::vector<Files> outputs_of(const Files& files) {
    namespace fs = std::filesystem;
    std::vector<Files> outputs(files.inputs.size(), files);
    if (!fs::is_directory(files.output)) {
        if (outputs.size() > 1)
            usage("--output", "'" + files.output + "' is no folder, and several pictures go into one",
                  "name a folder that there is");
        return outputs;
    }
    std::vector<std::string> names;
    for (size_t i = 0; i < outputs.size(); ++i) {
        const fs::path name = fs::path(files.inputs[i]).filename();
        outputs[i].output = (fs::path(files.output) / name).string();
        names.push_back(name.string());
        if (std::count(names.begin(), names.end(), names.back()) > 1)
            usage(files.inputs[i], "has the name of another input", "give pictures of different names");
    }
    return outputs;
}

// The operation on channels first .. first + count - 1 of all pictures.
void run_part(const Module& module, Timing& timing, const Morph& options, const Image& element, TarnANCHOR anchor,
              std::vector<Image>& results, const std::vector<Image>& sources, int first, int count) {
    std::vector<Image> parts, from;
    std::vector<LumoMAT> dst_views, src_views;
    for (const Image& source : sources) {
        from.push_back(take_channels(source, first, count));
        parts.push_back(Image::make(from.back().shape, options.files.inputs[0]));
        src_views.push_back(from.back().view());
        dst_views.push_back(parts.back().view());
    }
    std::vector<LumoMAT*> dsts;
    std::vector<const LumoMAT*> srcs;
    for (size_t i = 0; i < sources.size(); ++i) dsts.push_back(&dst_views[i]), srcs.push_back(&src_views[i]);

    const uint32_t operation = TARN_MORPH_ERODE + uint32_t(parse_word(options.operation, "--operation", kOperations));
    const uint32_t category = operation <= TARN_MORPH_DILATE ? TARN_MORPH_BASIC : TARN_MORPH_ADVANCED;
    const std::string given = describe(from[0].shape) + ", an element of " + std::to_string(element.shape.width) + "x" +
                              std::to_string(element.shape.height);
    LumoARRAY region;
    const int32_t sizes[] = {src_views[0].height, src_views[0].width};
    const LumoARRLO rows = {"HW"};
    LumoARRPARMS(&region, 2, sizes, _G_Lumo_strides_corder, &rows, src_views[0].elemtype, 0);
    const LumoMAT cells = element.view();
    Timing untimed;
    Operation initmorphstate(module, "tarn::initmorphstate", untimed);
    const auto init = [&](LumoMAT* state) {
        return initmorphstate.call<TarnInitmorphstate>(given, state, category, &region, &cells, &anchor);
    };
    const Image memory = Image::make({init(nullptr), 1}, "--element");
    LumoMAT state = memory.view();
    state.cls = &memory;  // not empty
    init(&state);
    Operation morphop_n(module, "tarn::morphop-n", timing);
    morphop_n.call<TarnMorphopN>(given, &state, operation, int64_t(sources.size()), dsts.data(), srcs.data(), nullptr);
    for (size_t i = 0; i < sources.size(); ++i) put_channels(results[i], parts[i], first);
}

void run_morph(const Morph& options) {
    const Files& files = options.files;
    parse_word(options.operation, "--operation", kOperations);
    TarnANCHOR anchor;
    const Image element = make_element(options, &anchor);
    const std::vector<Files> outputs = outputs_of(files);
    std::vector<Image> sources = read_equal_inputs(files);
    require_samples(sources[0], files.inputs[0], "morph", samples_of("tarn::morphop-n"));
    const Shape shape = sources[0].shape;
    for (const Files& output : outputs) ImageOutput(output).check(shape);
    if (shape.sample == Sample::u16)  // exact: the operation takes floats, and chooses among the values
        for (Image& source : sources) source = as_floats(source);

    const Module module;
    Timing timing{files.time};
    std::vector<Image> results;
    for (const Image& source : sources) results.push_back(Image::make(source.shape, files.inputs[0]));
    {
        const Progress progress("morphology of " + files.inputs[0] + (sources.size() > 1 ? " and others" : ""));
        const int channels = sources[0].shape.channels, colours = channels - sources[0].has_alpha();
        const auto part = [&](int first, int count) {
            run_part(module, timing, options, element, anchor, results, sources, first, count);
        };
        part(0, colours);
        if (colours < channels) part(colours, 1);
    }
    for (size_t i = 0; i < outputs.size(); ++i) {
        ImageOutput out(outputs[i]);
        out.write(from_floats(std::move(results[i]), shape));
    }
    print_time(files, timing);
}

}  // namespace

Run setup_morph(CLI::App& app) {
    const auto options = std::make_shared<Morph>();
    add_inputs(app, options->files, 1, 0);
    add_image_output(
        app, options->files,
        "picture to write, .png, .jpg or .tiff; of several inputs a folder that gets files of their names");
    add_option(
        app, "--operation", options->operation,
        "erode (the minimum under the element), dilate (the maximum under the reflected one), open (eroded, then "
        "dilated), close (dilated, then eroded), tophat (the picture less its opening), blackhat (the closing less "
        "the picture) or gradient (dilated less eroded); the picture's edge pixels repeat around it")
        .required()
        .type_name("OP");
    add_option(app, "--element", options->element,
               "the structuring element: rect, ellipse or cross, of --size; or a grey picture of 8 bits, whose "
               "pixels above 0 "
               "are its members")
        .required()
        .type_name("SHAPE|FILE");
    add_option(app, "--size", options->size, "width and height of the element in pixels, at least 1x1")
        .type_name("WxH");
    add_option(app, "--anchor", options->anchor,
               "column and row of the element that lie on the pixel, from 0 on (default: the middle, the right or "
               "lower of two)")
        .type_name("X,Y");
    return [options] { run_morph(*options); };
}

}  // namespace tarn::tool
