// Error values and scratch storage, each in one place for all operations.
#include "ipp/arguments.h"

#include <stdlib.h>

namespace {

uint32_t interface_code(const QuelCALL* call) { return uint32_t(call->iface->packed_code >> 48); }
const char* slot_name(const QuelCALL* call) { return call->iface->slots[call->slot].name; }

void* allocate_from_storage(void* storage, uint64_t bytes) {
    return KaSMEMSTGaalloc(static_cast<KaSMEMSTG*>(storage), bytes, 64, 0, nullptr);
}
void release_to_storage(void* storage, void* block) { KaSMEMSTGfree(static_cast<KaSMEMSTG*>(storage), block); }

}  // namespace

int64_t report(const QuelCALL* call, QuelERR* err, tarn::k::Status status, const char* text) {
    if (status == tarn::k::kOk) return 0;
    if (status != tarn::k::kNoMemory) return refuse(call, err, QUEL_E_TYPE, QUEL_C_UNSUPPORTED, 6, text);
    QuelMkerr(0, err, 0, 0, 0, interface_code(call), QUEL_E_NOMEM, QUEL_C_NOMEM, 1, slot_name(call));
    return -1;
}

int64_t refuse(const QuelCALL* call, QuelERR* err, uint32_t code, uint32_t cls, uint32_t form, const char* text) {
    QuelMkerr(0, err, 0, 0, 0, interface_code(call), code, cls, form, call->iface->family, slot_name(call), text);
    return -1;
}

int64_t mark_failed(const QuelCALL* call, QuelERR* err) {
    if (err) err->status = (err->status & 0xffff) | uint64_t(interface_code(call)) << 16;
    return -1;
}

void unsupported(const QuelCALL* call, LumoELEMTYPE type) {
    LumoLOGprintf(_G_Lumo_default_logger, 1, "%s: unsupported %s x %d", call->iface->slots[call->slot].qualified,
                  LumoELEMTYPEshow(type), channels_of(type));
    abort();
}

KaSMEMSTG* Storage::get(QuelERR* err) {
    if (caller) return caller;
    if (!opened) opened = KaSMEMSTGopen(&own, nullptr, 0, err) != nullptr;
    return opened ? &own : nullptr;
}

tarn::k::Allocator kernel_allocator(KaSMEMSTG* storage) { return {allocate_from_storage, release_to_storage, storage}; }
