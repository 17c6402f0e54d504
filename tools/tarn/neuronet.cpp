// The command of the network operation: weights and samples from .npy files, results to a .npy file, or the classes
// they mean.
#include <algorithm>
#include <iostream>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "error.h"
#include "npy.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {
namespace {
struct Neuronet {
    Files files;
    std::vector<std::string> layers;
    std::string labels;
    bool classes = false, json = false;
};

struct Layer {
    std::string name;  // of the weights' file
    Matrix weights, bias;
    int32_t activation = TARN_ACTIVATION_NONE;
};

constexpr struct {
    const char* word;
    int32_t code;
} kActivations[] = {{"none", TARN_ACTIVATION_NONE},
                    {"mirrored-sigmoid", TARN_ACTIVATION_MIRRORED_SIGMOID},
                    {"sigmoid", TARN_ACTIVATION_SIGMOID},
                    {"rectifier", TARN_ACTIVATION_RECTIFIER},
                    {"leaky-rectifier", TARN_ACTIVATION_LEAKY_RECTIFIER},
                    {"softmax", TARN_ACTIVATION_SOFTMAX}};

// "weights.npy", "weights.npy,bias.npy", "weights.npy,softmax", "weights.npy,bias.npy,softmax"; inputs: the width of
// what comes in, told as `from`.
Layer read_layer(const std::string& text, int32_t inputs, const std::string& from) {
    std::vector<std::string> parts;
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find(',', begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    const size_t files = size_t(std::count_if(parts.begin(), parts.end(), is_npy));
    if (!is_npy(parts[0]) || files > 2 || parts.size() > files + 1 || (files == 2 && !is_npy(parts[1])))
        usage("--layer", "'" + text + "' is not a layer",
              "give WEIGHTS.npy, then if wanted BIAS.npy, then the activation");
    Layer layer;
    layer.name = parts[0];
    if (parts.size() > files) {
        std::string words;
        const auto* found = std::find_if(std::begin(kActivations), std::end(kActivations),
                                         [&](const auto& a) { return parts.back() == a.word; });
        for (const auto& a : kActivations) words += std::string(words.empty() ? "" : ", ") + a.word;
        if (found == std::end(kActivations))
            usage("--layer", "'" + parts.back() + "' is no activation", "choose one of " + words);
        layer.activation = found->code;
    }
    layer.weights = read_npy(parts[0]);
    if (layer.weights.columns != inputs)
        fail(parts[0],
             "has rows of " + std::to_string(layer.weights.columns) + " weights, but " + from + " gives " +
                 std::to_string(inputs) + " values",
             "store a row per neuron, one weight per input; a transposed matrix is saved with "
             "numpy.ascontiguousarray(w.T)");
    if (files == 2) {
        layer.bias = read_npy(parts[1]);
        if (layer.bias.values.size() != size_t(layer.weights.rows))
            fail(parts[1],
                 "has " + std::to_string(layer.bias.values.size()) + " values for the " +
                     std::to_string(layer.weights.rows) + " neurons of " + parts[0],
                 "give one value per neuron");
        layer.bias.columns = layer.weights.rows, layer.bias.rows = 1;
    }
    return layer;
}

void run_neuronet(const Neuronet& options) {
    const Files& files = options.files;
    if (files.output.empty() && !options.classes && options.labels.empty() && !files.time)
        usage("-o", "nothing is to be written or told", "give -o OUT.npy, --classes, --labels or --time");
    std::optional<OutputFile> out;
    if (!files.output.empty()) {
        if (!is_npy(files.output) && files.output != "-")
            usage("-o", "'" + files.output + "' does not end in .npy", "results are written as .npy");
        out.emplace(files.output);
    }
    const Matrix samples = read_npy(files.inputs[0]);
    std::vector<Layer> layers;
    for (const std::string& text : options.layers) {
        if (layers.empty())
            layers.push_back(read_layer(text, samples.columns, files.inputs[0]));
        else
            layers.push_back(read_layer(text, layers.back().weights.rows, layers.back().name));
    }
    Matrix labels;
    if (!options.labels.empty()) {
        labels = read_npy(options.labels);
        if (labels.values.size() != size_t(samples.rows))
            fail(options.labels,
                 "has " + std::to_string(labels.values.size()) + " classes for " + std::to_string(samples.rows) +
                     " samples",
                 "give one class per sample");
    }

    std::vector<LumoMAT> views;
    std::vector<TarnLayer> records;
    views.reserve(2 * layers.size());
    for (const Layer& layer : layers) {
        const LumoMAT& weights = views.emplace_back(layer.weights.view());
        const LumoMAT* bias = layer.bias.values.empty() ? nullptr : &views.emplace_back(layer.bias.view());
        records.push_back({&weights, bias, layer.activation, 0});
    }
    Matrix result{samples.rows, layers.back().weights.rows, {}};
    if (result.columns > INT32_MAX / 4) fail(layers.back().name, "has too many neurons", "split the layer");
    result.values.resize(size_t(result.rows) * size_t(result.columns));
    const Module module;
    Timing timing{files.time};
    Operation network(module, "tarn::multi-line-neuronet", timing);
    {
        const Progress progress("evaluating " + files.inputs[0]);
        LumoMAT output = result.view();
        const LumoMAT input = samples.view();
        const std::string given =
            std::to_string(samples.rows) + " samples of " + std::to_string(samples.columns) + " values";
        network.call<TarnMultiLineNeuronet>(given, &output, &input, uint64_t(records.size()), records.data());
    }
    if (out) {
        write_npy(*out, result);
        out->commit();
    }

    std::vector<int32_t> classes;
    for (int64_t r = 0; r < result.rows; ++r) {
        const float* row = result.values.data() + r * result.columns;
        classes.push_back(int32_t(std::max_element(row, row + result.columns) - row));
    }
    nlohmann::ordered_json told;
    if (options.classes && options.json)
        told["classes"] = classes;
    else if (options.classes)
        for (const int32_t c : classes) std::cout << c << "\n";
    if (!options.labels.empty()) {
        int64_t right = 0;
        for (size_t i = 0; i < classes.size(); ++i) right += float(classes[i]) == labels.values[i];
        told["samples"] = classes.size();
        told["right"] = right;
        told["accuracy"] = double(right) / double(classes.size());
    }
    if (!told.empty()) print_values(told, options.json);
    print_time(files, timing);
}
}  // namespace

Run setup_neuronet(CLI::App& app) {
    const auto options = std::make_shared<Neuronet>();
    add_option(app, "IN", options->files.inputs,
               "samples to read: a .npy file of 32-bit floats, a sample per row; - is standard input")
        .required()
        .type_name("")
        .expected(1, 1);
    add_option(app, "--layer", options->layers,
               "a layer, the first one first: weights (a row per neuron), if wanted a bias (a value per neuron) "
               "and an activation: "
               "none (default), sigmoid, mirrored-sigmoid, rectifier, leaky-rectifier or softmax")
        .required()
        .one_each()
        .type_name("W.npy[,B.npy][,ACT]");
    add_option(app, "-o,--output", options->files.output, "results to write, a row per sample; - is standard output")
        .type_name("OUT.npy");
    add_flag(app, "--classes", options->classes, "print each sample's class: the column of its largest result, from 0");
    add_option(app, "--labels", options->labels, "the samples' true classes; prints how many were found")
        .type_name("L.npy");
    add_flag(app, "--time", options->files.time,
             "print the milliseconds of the operation's call, best of several repeats");
    add_json(app, options->json);
    return [options] { run_neuronet(*options); };
}

}  // namespace tarn::tool
