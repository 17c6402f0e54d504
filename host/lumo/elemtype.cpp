// Element types: their sizes and names.
#include "lumo.h"

namespace {

struct Type {
    const char* name;
    uint64_t size;
};

constexpr Type kByCode[] = {{"u8", 1},  {"s8", 1},  {"u16", 2}, {"s16", 2}, {"u32", 4},
                            {"s32", 4}, {"u64", 8}, {"s64", 8}, {"f32", 4}, {"f64", 8}};
constexpr Type kByKind[] = {{"?", 0}, {"u8", 1}, {"s16", 2}, {"s32", 4}, {"u32", 4}, {"f32", 4}, {"f64", 8}};
constexpr Type kUnknown = {"?", 0};

const Type& by_code(uint32_t code) { return code < sizeof kByCode / sizeof *kByCode ? kByCode[code] : kUnknown; }
const Type& by_kind(uint32_t kind) { return kind < sizeof kByKind / sizeof *kByKind ? kByKind[kind] : kUnknown; }

}  // namespace

uint64_t LumoELEMTYPEsizeof(LumoELEMTYPE type) {
    const uint32_t kind = type >> 8 & 15;
    return kind ? by_kind(kind).size : by_code(type & 255).size;
}

uint64_t LumoELEMTYPEalignof(LumoELEMTYPE type) {
    const uint64_t size = LumoELEMTYPEsizeof(type);
    return size ? size : 1;
}

const char* LumoELEMTYPEshow(LumoELEMTYPE type) {
    // Code 0 is u8, and also what a word without a code holds: there the kind says more.
    const uint32_t kind = type >> 8 & 15, code = type & 255;
    return code == 0 && kind ? by_kind(kind).name : by_code(code).name;
}

uint32_t _LumoELEMTYPEto_old(LumoELEMTYPE type) {
    switch (type & 255) {
        case LUMO_CODE_U8:
            return LUMO_KIND_U8;
        case LUMO_CODE_S16:
            return LUMO_KIND_S16;
        case LUMO_CODE_S32:
            return LUMO_KIND_S32;
        case LUMO_CODE_U32:
            return LUMO_KIND_U32;
        case LUMO_CODE_F32:
            return LUMO_KIND_F32;
        default:
            return 0;
    }
}
