// Bitwise operations: of two arrays, of an array and constants, and the complement. In place needs no form of its own:
// a kernel's source may be its destination.
#include "kernels/logic/logic.h"

#include "ipp/constants.h"
#include "ipp/copy.h"
#include "ipp/operations.h"

namespace tarn::ipp {
namespace {

int64_t binary(const k::KernelSet<k::Binary>& kernels, const QuelCALL* call, LumoMAT* dst, const LumoMAT* a,
               const LumoMAT* b) {
    const auto& kernel = kernel_for(call, kTyped, kernels, dst->elemtype);
    if (!a && !b) return 0;
    const LumoMAT *first = a && b ? a : dst, *second = b ? b : a;
    kernel(second->data, second->stride, first->data, first->stride, dst->data, dst->stride, size_of(*first));
    return 0;
}

int64_t with_constants(const k::KernelSet<k::WithConstant>& kernels, const QuelCALL* call, LumoMAT* dst,
                       const LumoMAT* src, const uint32_t* constants) {
    if (!src) src = dst;
    const LumoELEMTYPE type = dst->elemtype;
    if (!constants) {
        if (src->data != dst->data) copy_plane(*dst, *src, size_of(*dst));
        return 0;
    }
    // 8 bits with four channels keep the fourth; 16 and 32 bits combine it with a constant of its own, deliberately.
    const TypeMap& map = kTyped.type(type) == u8 ? kTyped : kFour;
    const auto& kernel = kernel_for(call, map, kernels, type);
    const Constants c = cut(map.type(type), k::used(map.form(type)), [=](int i) { return constants[i]; });
    kernel(src->data, src->stride, c.bytes, dst->data, dst->stride, size_of(*dst));
    return 0;
}

}  // namespace

int64_t op_and(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return binary(k::and_kernels, call, dst, a, b);
}
int64_t op_or(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return binary(k::or_kernels, call, dst, a, b);
}
int64_t op_xor(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* a, const LumoMAT* b) {
    return binary(k::xor_kernels, call, dst, a, b);
}

int64_t op_not(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src) {
    if (!src) src = dst;
    kernel_for(call, kTyped, k::not_kernels, dst->elemtype)(src->data, src->stride, dst->data, dst->stride,
                                                            size_of(*src));
    return 0;
}

int64_t op_and_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                 const uint32_t* constants) {
    return with_constants(k::and_c_kernels, call, dst, src, constants);
}
int64_t op_or_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                const uint32_t* constants) {
    return with_constants(k::or_c_kernels, call, dst, src, constants);
}
int64_t op_xor_c(const QuelCALL* call, QuelERR*, KaSMEMSTG*, LumoMAT* dst, const LumoMAT* src,
                 const uint32_t* constants) {
    return with_constants(k::xor_c_kernels, call, dst, src, constants);
}

}  // namespace tarn::ipp
