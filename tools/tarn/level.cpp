#include "level.h"

#include <cstdlib>

#include "error.h"
#include "play/library.h"

namespace tarn::tool {
namespace {
std::string wanted;
}  // namespace

std::vector<std::string> levels_of(const QuelHOST* host) {
    const auto kernels = play::kernels_of(QuelHOSTmodule(host));
    return kernels ? kernels->levels : std::vector<std::string>();
}

void want_level(const std::string& name) { wanted = name; }

void apply_level(const QuelHOST* host) {
    const char* variable = std::getenv("TARN_LEVEL");
    const std::string name = !wanted.empty() ? wanted : variable ? variable : "";
    if (name.empty()) return;
    const std::string subject = wanted.empty() ? "TARN_LEVEL" : "--level";
    const auto levels = levels_of(host);
    if (levels.empty())
        fail(subject, "can't be set: the module's library has no symbol table",
             "leave its symbols in, or leave it out");
    size_t level = 0;
    std::string all;
    for (size_t i = 0; i < levels.size(); ++i) {
        all += (i ? i + 1 == levels.size() ? " or " : ", " : "") + levels[i];
        if (levels[i] == name) level = i + 1;
    }
    if (!level) usage(subject, "'" + name + "' is no level of this machine", "give " + all);
    for (const auto& kernels : play::kernels_of_table(QuelHOSTtable(host))) *kernels.level = int(level - 1);
}

}  // namespace tarn::tool
