#include "commands.h"

#include "kinds.h"

namespace tarn::tool {
namespace {
constexpr Command kCommands[] = {
    {"copy", "tarn::copy", "copy a picture, converting the file format", "destination, source",
     "tarn copy photo.png -o photo.tiff", setup_copy},
    {"convert-scale", "tarn::convert-scale", "scale and offset the values, to samples of any depth",
     "destination, source (null: destination), scale (null: 1), offset (null: 0)",
     "tarn convert-scale deep.tiff -o photo.png --depth u8 --scale 0.0038911", setup_convert_scale},
    {"count-in-range", "tarn::count-in-range", "count the pixels of each channel in a range of values",
     "counts, source, lower bounds (null: the type's), upper bounds (null: the type's)",
     "tarn count-in-range photo.png --lower 200 --upper 255", setup_count_in_range},
    {"cvtorigin", "tarn::cvtorigin", "turn a picture top to bottom", "array, origin it has, origin it gets",
     "tarn cvtorigin scan.tiff -o upright.tiff", setup_cvtorigin},
    {"cvtorigin-n", "tarn::cvtorigin-n", "the same for a list of arrays: the channels of the picture",
     "number of arrays, arrays, origin they have, origin they get", "tarn cvtorigin-n scan.tiff -o upright.tiff",
     setup_cvtorigin_n},
    {"cvtvrange-n", "tarn::cvtvrange-n", "stretch the values of each channel to a range",
     "number of arrays, arrays (the channels of the picture), lo and hi",
     "tarn cvtvrange-n dull.png -o clear.png --range 0,255", setup_cvtvrange_n},
    {"cvtvrange-v", "tarn::cvtvrange-v", "stretch the values of each row to a range", "array, lo and hi",
     "tarn cvtvrange-v scan.png -o even.png --range 0,255", setup_cvtvrange_v},
    {"mean", "tarn::mean", "print the mean of each channel", "means, source", "tarn mean photo.png --json", setup_mean},
    {"minmax", "tarn::minmax", "print the smallest and the largest value of each channel",
     "smallest (null: none), largest (null: none), source", "tarn minmax photo.png", setup_minmax},
    {"and", "tarn::and", "bitwise and of two pictures", "destination, first source (null: destination), second source",
     "tarn and photo.png mask.png -o masked.png", setup_and},
    {"or", "tarn::or", "bitwise or of two pictures", "destination, first source (null: destination), second source",
     "tarn or a.png b.png -o either.png", setup_or},
    {"xor", "tarn::xor", "bitwise exclusive or of two pictures",
     "destination, first source (null: destination), second source", "tarn xor a.png b.png -o difference.png",
     setup_xor},
    {"not", "tarn::not", "bitwise complement", "destination, source (null: destination)",
     "tarn not photo.png -o negative.png", setup_not},
    {"cmp", "tarn::cmp", "compare two pictures: 255 where it holds",
     "destination, first source, second source,\n"
     "  comparison code (3 less, 4 less-equal, 5 equal, 6 greater-equal, 7 greater)",
     "tarn cmp a.png b.png --comparison greater -o where.png", setup_cmp},
    {"and-c", "tarn::and-c", "bitwise and with a constant per channel",
     "destination, source (null: destination), constants (words; null: copy)",
     "tarn and-c photo.png --constants 240 -o coarse.png", setup_and_c},
    {"or-c", "tarn::or-c", "bitwise or with a constant per channel",
     "destination, source (null: destination), constants (words; null: copy)",
     "tarn or-c photo.png --constants 0,0,128 -o blue.png", setup_or_c},
    {"xor-c", "tarn::xor-c", "bitwise exclusive or with a constant per channel",
     "destination, source (null: destination), constants (words; null: copy)",
     "tarn xor-c photo.png --constants 255 -o negative.png", setup_xor_c},
    {"set", "tarn::set", "fill with a constant, everywhere or where a mask says so",
     "destination, constants (floats; null: zeros), mask (null: everywhere)",
     "tarn set photo.png --constants 255,0,0 --mask where.png -o marked.png", setup_set},
    {"cmp-c", "tarn::cmp-c", "compare with a constant per channel: 255 where it holds",
     "destination, source, constants (floats),\n"
     "  comparison code (3 less, 4 less-equal, 5 equal, 6 greater-equal, 7 greater)",
     "tarn cmp-c photo.png --comparison less --constants 100 -o dark.png", setup_cmp_c},
    {"add-c", "tarn::add-c", "add a constant per channel, saturating",
     "destination, source (null: destination), constants (floats; null: copy)",
     "tarn add-c photo.png --constants 20 -o brighter.png", setup_add_c},
    {"sub-c", "tarn::sub-c", "subtract a constant per channel, saturating",
     "destination, source (null: destination), constants (floats; null: copy)",
     "tarn sub-c photo.png --constants 10,20,30 -o darker.png", setup_sub_c},
    {"mul-c", "tarn::mul-c", "multiply by a constant per channel, saturating",
     "destination, source (null: destination), constants (floats; null: copy)",
     "tarn mul-c photo.png --constants 2 -o doubled.png", setup_mul_c},
    {"add-n", "tarn::add-n", "add pictures, saturating after every one", "destination, number of sources, sources",
     "tarn add-n a.png b.png c.png -o sum.png", setup_add_n},
    {"sub-n", "tarn::sub-n", "subtract all other pictures from the first", "destination, number of sources, sources",
     "tarn sub-n photo.png background.png -o foreground.png", setup_sub_n},
    {"mul-n", "tarn::mul-n", "multiply pictures, saturating after every one", "destination, number of sources, sources",
     "tarn mul-n a.tif b.tif -o product.tif", setup_mul_n},
    {"avgarith-n", "tarn::avgarith-n", "mean of pictures, ties to even", "destination, number of sources, sources",
     "tarn avgarith-n frame1.png frame2.png frame3.png -o mean.png", setup_avgarith_n},
    {"multi-line-neuronet", "tarn::multi-line-neuronet", "evaluate a fully connected network on rows of samples",
     "output, input, number of layers, layers (weights, bias or null, activation)",
     "tarn multi-line-neuronet test.npy --layer w1.npy,b1.npy,rectifier --layer w2.npy,b2.npy,softmax --classes",
     setup_neuronet},
    {"reshape", "tarn::reshape", "give the pixels, in the order of the rows, another width and height",
     "destination, source, order method (4 is refused)", "tarn reshape strip.png -o block.png --size 64x64",
     setup_reshape},
    {"scale-resize", "tarn::scale-resize", "resample a picture or a region of it to another size",
     "destination, source, region (null: all), value range lo and hi (null: none),\n"
     "  interpolation code (3 nearest, 4 linear, 5 cubic, 6 lanczos)",
     "tarn scale-resize photo.jpg -o small.png --size 320x200 --interpolation cubic", setup_scale_resize},
    {"warp-affine", "tarn::warp-affine", "turn, scale, shear and shift a picture by an affine warp",
     "destination, source, warp (a, b, tx, c, d, ty),\n"
     "  interpolation code (3 nearest, 4 linear, 5 cubic, 6 lanczos)",
     "tarn warp-affine photo.jpg -o turned.png --rotate 12.5 --fit --background 255", setup_warp_affine},
    {"warp-affine-quad", "tarn::warp-affine-quad", "warp a picture by where its corners go",
     "destination, source, corners in the source (null: its own), corners in the destination (null: its own),\n"
     "  interpolation code (3 nearest, 4 linear, 5 cubic, 6 lanczos)",
     "tarn warp-affine-quad scan.png -o page.png --from 31,12,590,48,566,410,7,374 --size 600x400",
     setup_warp_affine_quad},
    {"copy-transform", "tarn::copy-transform",
     "change size, samples, colours, values and layout at once, also to and from .npy",
     "destination, source, range (null: none),\n"
     "  interpolation code (3 nearest, 4 linear, 5 cubic)",
     "tarn copy-transform a.jpg b.jpg -o batch.npy --size 224x224 --type f32 --range 0,1", setup_copy_transform},
    {"copymkb", "tarn::copymkb", "put a border around a picture, of its edge pixels or a constant",
     "destination, source (null: destination), kind (3 constant, 4 replicate),\n"
     "  border (left, top, right, bottom, values; null: copy)",
     "tarn copymkb photo.png -o framed.png --border 20,20,20,40 --kind constant --value 255", setup_copymkb},
    {"filter", "tarn::filter", "filter by box, minimum, maximum or median",
     "destination, source (null: destination), region (null: all), kind (3 box, 4 min, 5 max, 6 median),\n"
     "  mask (anchor's column and row, width, height; null: 3x3)",
     "tarn filter noisy.png -o clean.png --kind median --size 3x3", setup_filter},
    {"threshold", "tarn::threshold", "binarise, with fixed, automatic or local thresholds",
     "destination, source (null: destination), region (null: all), options (method 3 Otsu, 4 adaptive; null: zeros),\n"
     "  count, specifications (comparison, channel, threshold, offset, reference, values, what stays)",
     "tarn threshold page.png -o clean.png --method adaptive --size 31x31 --offset -12", setup_threshold},
    {"morph", "tarn::morphop-n", "erode, dilate, open, close and the like, with any structuring element",
     "state (of tarn::initmorphstate), operation (3 erode, 4 dilate, 5 open, 6 close, 7 top-hat, 8 black-hat,\n"
     "  9 gradient), number of arrays, destinations, sources, region (null: all of the first source)",
     "tarn morph scan.png -o clean.png --operation open --element ellipse --size 5x5", setup_morph},
    {"contour-find", "tarn::contour::find", "outlines of regions, over the picture or as nested polygons",
     "output object, source (one channel of u8), flags (1 ones, 2 zeros; 4 zeros, 8 ones connect diagonally)",
     "tarn contour-find photo.jpg --otsu --diagonal ones -o outlines.svg", setup_contour_find},
    {"ops", nullptr, "list the 200 operation slots of the module", nullptr, "tarn ops --kind implemented", setup_ops},
    {"info", nullptr, "tell about the module and the processor", nullptr, "tarn info --json", setup_info},
    {"check", nullptr, "tell which promises of the interface a module keeps", nullptr, "tarn check lib/tarn-ipp.so",
     setup_check},
    {"selfcheck", nullptr, "run every operation at every processor level and compare the bits", nullptr,
     "tarn selfcheck", setup_selfcheck},
    {"help", nullptr, "tell about a command or an operation", nullptr, "tarn help scale-resize", setup_help},
};

// What the operations without a command do.
struct Summary {
    const char* qualified;
    const char* text;
};
constexpr Summary kSummaries[] = {
    {"init-once", "choose the processor level; called once by the host"},
    {"fini-once", "end of use; does nothing"},
    {"tarn::initmorphstate", "prepare the state of a morphology operation"},
};

// Words that people try.
constexpr struct {
    const char *alias, *command;
} kAliases[] = {{"resize", "scale-resize"}, {"crop", "scale-resize"}, {"flip", "cvtorigin"}, {"rotate", "warp-affine"}};

constexpr bool told_once() {
    for (const Summary& summary : kSummaries)
        for (const Command& command : kCommands)
            if (command.operation && std::string_view(summary.qualified) == command.operation) return false;
    return true;
}
static_assert(told_once(), "an operation with a command has its summary there");
}  // namespace

std::span<const Command> commands() { return kCommands; }

const Command* find_command(const std::string& name) {
    for (const Command& command : kCommands)
        if (name == command.name || (command.operation && name == command.operation)) return &command;
    for (const auto& [alias, command] : kAliases)
        if (name == alias) return find_command(command);
    return nullptr;
}

std::vector<std::string> aliases_of(const Command& command) {
    std::vector<std::string> all;
    for (const auto& [alias, name] : kAliases)
        if (std::string_view(name) == command.name) all.push_back(alias);
    return all;
}

std::string help_footer(const Command& command) {
    std::string text;
    if (command.operation) {
        text += std::string("Operation:\n  ") + command.operation + "(" + command.arguments + ")\n";
        for (const TarnKINDS& row : all_kinds())
            if (std::string_view(row.operation) == command.operation)
                text += "  " + std::string(row.array) + (*row.calls ? " (" + std::string(row.calls) + ") " : " ") +
                        kinds_text(row) + "\n";
        text += "\n";
    }
    const auto aliases = aliases_of(command);
    for (size_t i = 0; i < aliases.size(); ++i) text += (i ? ", " : "Also called:\n  ") + aliases[i];
    if (!aliases.empty()) text += "\n\n";
    return text + "Example:\n  " + command.example;
}

std::string operation_summary(const std::string& qualified) {
    for (const Command& command : kCommands)
        if (command.operation && qualified == command.operation) return command.summary;
    for (const Summary& summary : kSummaries)
        if (qualified == summary.qualified) return summary.text;
    return {};
}

}  // namespace tarn::tool
