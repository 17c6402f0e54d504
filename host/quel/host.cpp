// The host: one module, its companions, and the table that calls go through.
//
// The table is a copy of the module's interface record in which each declared slot leads to the companion's function of
// the same name, or to a stub that makes an error value. Every call record carries the table's address, so calls of one
// operation to another are routed the same way.
#include "quel/host.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <utility>

#include "quel/loader.h"
#include "quel/system.h"

using namespace quel;

namespace {

constexpr int kCompanions = 8;

struct Companion {
    Module module;
    QuelIFACE table;
};

}  // namespace

struct QuelHOST {
    QuelMODCTX context;
    Module module;
    QuelIFACE table;
    Companion companions[kCompanions];
    int companion_count;
    char missing[64];  // first companion that isn't there, for the stub's message
};

namespace {

using Once = int64_t (*)(const QuelCALL*, QuelERR*, KaSMEMSTG*);

// ---- Routing

int64_t unserved(int slot, const QuelCALL* call, QuelERR* err) {
    // Called through a table of this file only, so the table's first word is the host.
    const QuelIFACE* table = call->iface;
    const QuelHOST* host = static_cast<const QuelHOST*>(reinterpret_cast<const void*>(table->host[0]));
    const char* name = table->slots[slot].qualified;
    const uint32_t iface = uint32_t(table->packed_code >> 48);
    if (host->missing[0])
        return QuelMkerr_u(err, 0, 0, 0, iface, QUEL_E_UNSERVED, QUEL_C_UNSUPPORTED,
                           "no loaded module serves %s; put the companion module %s%s beside this one", name,
                           host->missing, kModuleSuffix);
    return QuelMkerr_u(err, 0, 0, 0, iface, QUEL_E_UNSERVED, QUEL_C_UNSUPPORTED, "no loaded module serves %s", name);
}

// One function a slot: a sibling call keeps the caller's call record, so the slot can't be read from there.
template <int kSlot>
int64_t unserved_slot(const QuelCALL* call, QuelERR* err) {
    return unserved(kSlot, call, err);
}

template <int... kSlots>
QuelENTRY unserved_entry(int slot, std::integer_sequence<int, kSlots...>) {
    static constexpr int64_t (*kEntries[])(const QuelCALL*, QuelERR*) = {unserved_slot<kSlots>...};
    return reinterpret_cast<QuelENTRY>(kEntries[slot]);
}

// The companions' function of this name, or null.
QuelENTRY companion_entry(const QuelHOST* host, const char* name) {
    for (int i = 0; i < host->companion_count; ++i)
        for (const QuelSLOT& slot : host->companions[i].table.slots)
            if (is_function(slot.entry) && strcmp(slot.name, name) == 0) return slot.entry;
    return nullptr;
}

void route(QuelHOST* host) {
    host->table = *host->module.iface;
    host->table.host[0] = reinterpret_cast<uint64_t>(host);
    for (int i = 0; i < QUEL_IFACE_SLOTS; ++i) {
        QuelSLOT& slot = host->table.slots[i];
        if (slot.entry != QUEL_ENTRY_DECLARED) continue;
        const QuelENTRY served = companion_entry(host, slot.name);
        slot.entry = served ? served : unserved_entry(i, std::make_integer_sequence<int, QUEL_IFACE_SLOTS>());
    }
}

// ---- Loading

// Calls "init-once" (slot 0) or "fini-once" (slot 1) when the table has it.
int64_t call_once(const QuelIFACE* table, int32_t slot, const char* name, QuelERR* err) {
    const QuelSLOT& once = table->slots[slot];
    if (!is_function(once.entry) || strcmp(once.name, name) != 0) return 0;
    const QuelCALL call = {{}, table, slot, 0};
    return reinterpret_cast<Once>(once.entry)(&call, err, nullptr);
}

bool load_companion(QuelHOST* host, const char* folder, const char* name, QuelERR* err) {
    char path[kPathSize];
    if (strchr(name, '/') ||
        size_t(snprintf(path, sizeof path, "%s%s%s", folder, name, kModuleSuffix)) >= sizeof path ||
        !file_exists(path)) {
        if (!host->missing[0]) snprintf(host->missing, sizeof host->missing, "%s", name);
        return true;
    }
    if (host->companion_count == kCompanions) {
        QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: more than %d companion modules", path, kCompanions);
        return false;
    }
    Companion& companion = host->companions[host->companion_count];
    if (!open_module(path, &companion.module, err)) return false;
    host->companion_count += 1;
    if (!attach_module(path, &companion.module, &host->context, host, err)) return false;
    if (strcmp(companion.module.iface->family, host->module.iface->family) != 0) {
        QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: its operations are of family %s, not %s", path,
                        companion.module.iface->family, host->module.iface->family);
        return false;
    }
    companion.table = *companion.module.iface;
    if (call_once(&companion.table, 0, "init_once", err) < 0) {
        QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: its init-once failed", path);
        return false;
    }
    return true;
}

bool load_companions(QuelHOST* host, const char* path, QuelERR* err) {
    const QuelMODULE* descriptor = host->module.descriptor;
    const QuelDEPLIST* list = descriptor->dependencies ? descriptor->dependencies() : nullptr;
    char folder[kPathSize];
    if (!list || !folder_of(path, folder)) return true;
    for (uint64_t i = 0; i < list->count; ++i)
        if (!list->names[i] || !load_companion(host, folder, list->names[i], err)) return false;
    return true;
}

void unload(QuelHOST* host) {
    for (int i = 0; i < host->companion_count; ++i) close_module(&host->companions[i].module);
    close_module(&host->module);
    free(host->context.interfaces.entries);
    memset(static_cast<void*>(host), 0, sizeof *host);
    host->context.host = host;
}

bool load(QuelHOST* host, const char* path, QuelERR* err) {
    if (!open_module(path, &host->module, err) || !attach_module(path, &host->module, &host->context, host, err) ||
        !load_companions(host, path, err))
        return false;
    route(host);
    if (!is_function(host->table.slots[0].entry) || call_once(&host->table, 0, "init_once", err) != 0) {
        QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: its init-once is missing or failed", path);
        return false;
    }
    return true;
}

// The slot of this name, or -1. A slot name wins over a qualified one, and that over one without its family.
int32_t find_slot(const QuelIFACE* table, const char* name) {
    const size_t family = strlen(table->family);
    for (int pass = 0; pass < 3; ++pass)
        for (int32_t i = 0; i < QUEL_IFACE_SLOTS; ++i) {
            const char* candidate = pass == 0 ? table->slots[i].name : table->slots[i].qualified;
            if (pass == 2) {
                if (strncmp(candidate, table->family, family) != 0 || strncmp(candidate + family, "::", 2) != 0)
                    continue;
                candidate += family + 2;
            }
            if (strcmp(candidate, name) == 0) return i;
        }
    return -1;
}

}  // namespace

QuelHOST* QuelHOSTopen(QuelERR* err) {
    QuelHOST* host = static_cast<QuelHOST*>(calloc(1, sizeof(QuelHOST)));
    if (!host)
        QuelMkerr(0, err, 0, 0, 0, 0, QUEL_E_NOMEM, QUEL_C_NOMEM, 1, "QuelHOSTopen");
    else
        host->context.host = host;
    return host;
}

int64_t QuelHOSTload(QuelHOST* host, const char* path, QuelERR* err) {
    if (!host) return QUEL_HOST_ERROR(err, QUEL_E_MODULE, "no host to load a module into; make one with QuelHOSTopen");
    if (host->module.library)
        return QUEL_HOST_ERROR(err, QUEL_E_MODULE,
                               "this host has loaded %s already; open another host for another module",
                               host->module.descriptor->name);
    char own[kPathSize], beside[kPathSize + 32], below[kPathSize + 32];
    if (!path) {
        if (!own_folder(own))
            return QUEL_HOST_ERROR(err, QUEL_E_MODULE,
                                   "the folder of this library can't be found; give the module's path");
        // As it is built, and as it is installed.
        snprintf(beside, sizeof beside, "%starn-ipp%s", own, kModuleSuffix);
        snprintf(below, sizeof below, "%starn/tarn-ipp%s", own, kModuleSuffix);
        path = file_exists(beside) ? beside : below;
    }
    if (load(host, path, err)) return 0;
    unload(host);
    return -1;
}

int64_t QuelHOSTfind(QuelHOST* host, const char* name, QuelOP* op, QuelERR* err) {
    if (!host || !host->module.iface) return QUEL_HOST_ERROR(err, QUEL_E_MODULE, "no module is loaded");
    const int32_t slot = name ? find_slot(&host->table, name) : -1;
    if (slot < 0) return QUEL_HOST_ERROR(err, QUEL_E_OPTION, "no operation is called \"%s\"", name ? name : "");
    return QuelHOSTslot(host, slot, op, err);
}

int64_t QuelHOSTslot(QuelHOST* host, int32_t slot, QuelOP* op, QuelERR* err) {
    if (!host || !host->module.iface) return QUEL_HOST_ERROR(err, QUEL_E_MODULE, "no module is loaded");
    if (slot < 0 || slot >= QUEL_IFACE_SLOTS)
        return QUEL_HOST_ERROR(err, QUEL_E_OPTION, "there is no slot %d; slots are 0 to %d", slot,
                               QUEL_IFACE_SLOTS - 1);
    const QuelSLOT& found = host->table.slots[slot];
    if (!found.entry)
        return QUEL_HOST_ERROR(err, QUEL_E_OPTION, "slot %d (%s) is reserved and holds no operation", slot,
                               found.qualified);
    *op = {found.entry, {{host, nullptr, nullptr}, &host->table, slot, 0}};
    return 0;
}

const QuelMODULE* QuelHOSTmodule(const QuelHOST* host) { return host ? host->module.descriptor : nullptr; }

const QuelIFACE* QuelHOSTiface(const QuelHOST* host) { return host ? host->module.iface : nullptr; }

const QuelIFACE* QuelHOSTtable(const QuelHOST* host) { return host && host->module.iface ? &host->table : nullptr; }

void QuelHOSTclose(QuelHOST* host) {
    if (!host) return;
    if (host->module.iface) {
        call_once(&host->table, 1, "fini_once", nullptr);
        for (int i = 0; i < host->companion_count; ++i) call_once(&host->companions[i].table, 1, "fini_once", nullptr);
    }
    unload(host);
    free(host);
}
