// Checks a kernel case at every level over many shapes: widths around every vector width, several heights, packed and
// padded rows, rows that go upwards, pixels right behind and right before an inaccessible page. A kernel fails when it
// differs from the case's expectation, when a level differs from level 0 in one bit, when it writes anything but the
// pixels of its outputs, or when it touches memory behind or before its planes (the process then dies naming the place
// it was at).
#pragma once

#include <string>
#include <vector>

#include "cases/case.h"

namespace tarn::test {

struct Check {
    void operator()(const cases::Case& c) const;
};

// Names of the kernels checked so far in this process, and of all that exist.
const std::vector<std::string>& checked_kernels();
const std::vector<std::string>& all_kernels();

// Processor levels that this machine can run: 0 up to this one.
int highest_level();

// Runs fn once per level with that level active, then puts level back to the highest.
template <class Fn>
void at_every_level(Fn fn) {
    for (int level = 0; level <= highest_level(); ++level) {
        k::active_level = level;
        fn(level);
    }
    k::active_level = highest_level();
}

}  // namespace tarn::test
