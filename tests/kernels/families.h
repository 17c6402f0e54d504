// The families of kernels: each family's cases are a source of their own, which CMake makes of its folder's name:
// TARN_FAMILY(logic) checks all that cases/logic.h has, as the test kernels.logic.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>

#include "kernels/check.h"

namespace tarn::test {

using Visit = std::function<void(const cases::Case&)>;

// The cases of each family, by its name.
std::map<std::string, void (*)(const Visit&)>& families();

}  // namespace tarn::test

#define TARN_FAMILY(name)                                                                            \
    static void visit_cases(const tarn::test::Visit& visit) { tarn::cases::name##_cases(visit); }    \
    [[maybe_unused]] static const bool listed = (tarn::test::families()[#name] = visit_cases, true); \
    TEST(kernels, name) { visit_cases(tarn::test::Check{}); }
