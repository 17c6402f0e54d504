// The processor level of the loaded module and its companion. Modules choose the highest that the machine has and have
// no call to be told another, so this sets the variable of the choice. A library without its symbols runs as ever, but
// can't be told.
#ifndef TARN_TOOLS_LEVEL_H
#define TARN_TOOLS_LEVEL_H

#include <string>
#include <vector>

#include "quel/host.h"

namespace tarn::tool {

// Names of the levels that this machine has, lowest first, by a host's module that has just been loaded. None when the
// library has no symbols.
std::vector<std::string> levels_of(const QuelHOST* host);

// The level that modules get when they are loaded from now on; empty: what TARN_LEVEL names, or the highest.
void want_level(const std::string& name);
// Sets a module that has just been loaded to what is wanted; throws when it has no such level.
void apply_level(const QuelHOST* host);

}  // namespace tarn::tool
#endif
