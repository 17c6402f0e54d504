// Commands of the element-wise operations.
#include "commands.h"
#include "options.h"
#include "progress.h"

namespace tarn::tool {

Run setup_copy(CLI::App& app) {
    const auto files = std::make_shared<Files>();
    add_inputs(app, *files);
    add_image_output(app, *files);
    return [files] {
        ImageOutput out(*files);
        const Image source = read_input(*files);
        out.check(source.shape);
        const Module module;
        Timing timing{files->time};
        Operation copy(module, "tarn::copy", timing);
        const Image result = by_parts(source, source.shape, files->inputs[0], [&](Image& to, const Image& from, bool) {
            LumoMAT dst = to.view();
            const LumoMAT src = from.view();
            copy.call<TarnCopy>(describe(source.shape), &dst, &src);
        });
        out.write(result);
        print_time(*files, timing);
    };
}

}  // namespace tarn::tool
