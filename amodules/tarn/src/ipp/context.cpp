// Error values and scratch memory, each in one place for all operations.
#include "ipp/context.h"

#include <stdlib.h>

namespace tarn::ipp {
namespace {

const char* slot_name(const QuelCALL* call) { return call->iface->slots[call->slot].name; }

void* allocate(void* context, uint64_t bytes) {
    KaSMEMSTG* storage = static_cast<Context*>(context)->storage();
    return storage ? KaSMEMSTGaalloc(storage, bytes, 64, 0, nullptr) : nullptr;
}
void release(void* context, void* block) { KaSMEMSTGfree(static_cast<Context*>(context)->storage(), block); }

}  // namespace

uint32_t interface_code(const QuelCALL* call) { return uint32_t(call->iface->packed_code >> 48); }

KaSMEMSTG* Context::storage() {
    if (!payer) payer = own.open(nullptr, 0, err);
    return payer;
}

k::Allocator Context::allocator() { return {allocate, release, this}; }

bool Temporary::make(Context& context, LumoELEMTYPE type, k::Size size) {
    const LumoMATPARM parm{type, size.width, size.height, 0};
    KaSMEMSTG* payer = context.storage();
    storage = context.own.opened ? nullptr : payer;
    return payer && _LumoMATinit(&mat, &parm, payer, context.err);
}

int64_t report(const Context& context, k::Status status, const char* text) {
    const QuelCALL* call = context.call;
    QuelERR* err = context.err;
    if (status == k::kOk) return 0;
    if (status == kNoTemporary) {
        if (err) err->status = (err->status & 0xffff) | uint64_t(interface_code(call)) << 16;
        return -1;
    }
    if (status != k::kNoMemory) return refuse(context, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, 6, text);
    QuelMkerr(0, err, 0, 0, 0, interface_code(call), QUEL_E_NOMEM, QUEL_C_NOMEM, 1, slot_name(call));
    return -1;
}

int64_t refuse(const Context& context, uint32_t code, uint32_t cls, uint32_t form, const char* text) {
    const QuelCALL* call = context.call;
    QuelMkerr(0, context.err, 0, 0, 0, interface_code(call), code, cls, form, call->iface->family, slot_name(call),
              text);
    return -1;
}

void refuse_unserved(const Context& context, const QuelSLOT& sibling) {
    QuelMkerr_u(context.err, 0, 0, 0, interface_code(context.call), QUEL_E_UNSERVED, QUEL_C_UNSUPPORTED,
                "no loaded module serves %s", sibling.qualified);
}

void unsupported(const QuelCALL* call, LumoELEMTYPE type) {
    LumoLOGprintf(_G_Lumo_default_logger, 1, "%s: unsupported %s x %d", call->iface->slots[call->slot].qualified,
                  LumoELEMTYPEshow(type), channels_of(type));
    abort();
}

}  // namespace tarn::ipp
