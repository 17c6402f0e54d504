// Linked into copies of the module and its companion that fuzzing loads: the level and the streaming threshold, to be set.
#include "fuzz/runtime.h"

#include "ka.h"
#include "kernels/base/runtime.h"

extern "C" KA_EXPORT const TarnTestRUNTIME TarnTestruntime;
const TarnTestRUNTIME TarnTestruntime = {&tarn::k::active_level, &tarn::k::stream_bytes};
