// What a module that was built for fuzzing exports beside its descriptor, as "TarnTestruntime".
#pragma once

#include <stdint.h>

struct TarnTestRUNTIME {
    int* level;
    int64_t* stream_bytes;
};
