// Layouts and colour classes. A layout is its own text, so comparing layouts is comparing letters.
#include <string.h>

#include "lumo_array.h"

const LumoARRLO _G_Lumo_HWC_arrlo = {"HWC"};
const LumoARRLO _G_Lumo_NHWC_arrlo = {"NHWC"};
const LumoARRLO _G_Lumo_NCHW_arrlo = {"NCHW"};

int LumoARRLOsub(const LumoARRLO* a, const LumoARRLO* b) {
    const char* in = b->dims;
    const char* const end = in + strnlen(in, sizeof b->dims);
    for (size_t i = 0; i < sizeof a->dims && a->dims[i]; ++i) {
        while (in < end && *in != a->dims[i]) ++in;
        if (in == end) return 0;
        ++in;
    }
    return 1;
}

int LumoARRLOsame(const LumoARRLO* a, const LumoARRLO* b) { return strncmp(a->dims, b->dims, sizeof a->dims) == 0; }

const char* LumoARRLOshow(const LumoARRLO* layout) {
    const size_t length = strnlen(layout->dims, sizeof layout->dims);
    if (length > LUMO_DIMS) return "?";
    for (size_t i = 0; i < length; ++i)
        if (!strchr("WHCN", layout->dims[i]) || strchr(layout->dims + i + 1, layout->dims[i])) return "?";
    return layout->dims;
}

int32_t LumoARRCLSnchannels(uint32_t cls) {
    switch (cls) {
        case LUMO_CLASS_GREY:
            return 1;
        case LUMO_CLASS_RGB:
        case LUMO_CLASS_BGR:
            return 3;
        case LUMO_CLASS_BGRA:
            return 4;
        default:
            return 0;
    }
}
