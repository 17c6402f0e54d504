// Checks a kernel case at every level over many shapes: widths around every vector width, several heights, packed and
// padded rows, rows that go upwards, rows at odd bytes, pixels right behind and right before an inaccessible page. A
// kernel fails when it differs from the case's expectation, when a level differs from level 0 in one bit, when it
// writes anything but the pixels of its outputs, when it takes a size that is not positive or a missing plane, or when
// it touches memory behind or before its planes (the process then dies naming the place it was at).
//
// From the environment: TARN_SEED, the first seed of the random planes (1); TARN_LEVELS=ends, only the lowest level and
// the highest.
#pragma once

#include <string>
#include <vector>

#include "cases/case.h"

namespace tarn::test {

struct Check {
    void operator()(const cases::Case& c) const;
};

// Names of all kernels that exist.
const std::vector<std::string>& all_kernels();

// Processor levels that this machine can run, 0 up to this one, and those that are tried.
int highest_level();
const std::vector<int>& checked_levels();

// Runs fn once per level with that level active, then puts level back to the highest.
template <class Fn>
void at_every_level(Fn fn) {
    for (const int level : checked_levels()) {
        k::active_level = level;
        fn(level);
    }
    k::active_level = highest_level();
}

}  // namespace tarn::test
