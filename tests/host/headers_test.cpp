// The headers in C++, and every function of them linked.
#include <gtest/gtest.h>

#include "ka.h"
#include "lumo.h"
#include "lumo_array.h"
#include "quel.h"
#include "quel/host.h"
#include "tarn.h"

extern "C" void (*const host_functions[54])(void);

TEST(Headers, name_functions_that_exist) {
    for (auto* function : host_functions) EXPECT_NE(function, nullptr);
    EXPECT_STREQ(LumoARRLOshow(&_G_Lumo_NHWC_arrlo), "NHWC");
    EXPECT_NE(_G_Lumo_default_logger, nullptr);
}
