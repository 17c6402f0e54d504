// The processor level of the loaded module. The module chooses the highest that the machine has and has no call to be
// told another, so this looks up the variable of the choice in the library's symbol table, as a debugger does. A
// library without its symbols runs as ever, but can't be told.
#ifndef TARN_TOOLS_LEVEL_H
#define TARN_TOOLS_LEVEL_H

#include <optional>
#include <string>
#include <vector>

#include "quel/host.h"

namespace tarn::tool {

struct Levels {
    std::vector<std::string> names;  // that this machine has, lowest first
    int* active;                     // index of the one that kernels run at
};

// Of a host's module that has just been loaded. None when the library has no symbols.
std::optional<Levels> levels_of(const QuelHOST* host);

// The level that modules get when they are loaded from now on; empty: what TARN_LEVEL names, or the highest.
void want_level(const std::string& name);
// Sets a module that has just been loaded to what is wanted; throws when it has no such level.
void apply_level(const QuelHOST* host);

}  // namespace tarn::tool
#endif
