// The loader. A file that is no module, or a module made for another host, must give a message and not a crash: each
// field that the host reads later is checked here, in the order in which the later ones depend on it.
#include "quel/loader.h"

#include <string.h>

#include "quel/system.h"

namespace quel {
namespace {

constexpr uint64_t kFormat = 0x02040000;  // of descriptors and of interface records
constexpr char kModuleSymbol[] = "_G_quel_module";
constexpr int kInterfaceWord = 12;  // of a registration entry

bool refuse(QuelERR* err, const char* path, const char* reason) {
    QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: %s", path, reason);
    return false;
}

bool refuse_word(QuelERR* err, const char* path, const char* what, uint64_t is, uint64_t should) {
    QUEL_HOST_ERROR(err, QUEL_E_MODULE,
                    "cannot load module %s: its %s is 0x%llx where this host knows 0x%llx; build both from one version",
                    path, what, (unsigned long long)is, (unsigned long long)should);
    return false;
}

bool refuse_count(QuelERR* err, const char* path, uint64_t count) {
    QUEL_HOST_ERROR(err, QUEL_E_MODULE, "cannot load module %s: its interface has %llu slots where this host knows %d",
                    path, (unsigned long long)count, QUEL_IFACE_SLOTS);
    return false;
}

bool check_descriptor(const char* path, const QuelMODULE* descriptor, QuelERR* err) {
    if (!descriptor) return refuse(err, path, "its descriptor is missing (_G_quel_module is null)");
    if (descriptor->format != kFormat)
        return refuse_word(err, path, "descriptor's format word", descriptor->format, kFormat);
    if (!descriptor->path || !descriptor->name || !*descriptor->name)
        return refuse(err, path, "its descriptor has no name");
    if (descriptor->one != 1) return refuse_word(err, path, "descriptor's word 0x1e0", descriptor->one, 1);
    if (!descriptor->attach) return refuse(err, path, "its descriptor has no attach function");
    return true;
}

bool check_interface(const char* path, const QuelIFACE* iface, QuelERR* err) {
    if (iface->format != kFormat) return refuse_word(err, path, "interface's format word", iface->format, kFormat);
    if (!iface->path || !iface->name || !iface->family) return refuse(err, path, "its interface has no name");
    if (iface->slot_count != QUEL_IFACE_SLOTS) return refuse_count(err, path, iface->slot_count);
    for (const QuelSLOT& slot : iface->slots)
        if (!slot.name || !slot.qualified) return refuse(err, path, "an operation slot has no name");
    return true;
}

}  // namespace

bool open_module(const char* path, Module* module, QuelERR* err) {
    *module = {};
    if (!file_exists(path)) return refuse(err, path, "there is no such file; build the module or give its path");
    const char* reason = "";
    module->library = open_library(path, &reason);
    if (!module->library) return refuse(err, path, reason);
    // The symbol is a variable that holds the descriptor's address.
    const void* symbol = find_symbol(module->library, kModuleSymbol);
    const QuelMODULE* descriptor = symbol ? *static_cast<const QuelMODULE* const*>(symbol) : nullptr;
    const bool good = symbol ? check_descriptor(path, descriptor, err)
                             : refuse(err, path, "it is a library but no module (it has no symbol _G_quel_module)");
    if (good)
        module->descriptor = descriptor;
    else
        close_module(module);
    return good;
}

bool attach_module(const char* path, Module* module, QuelMODCTX* context, void* pass, QuelERR* err) {
    const QuelMODULE* descriptor = module->descriptor;
    const uint64_t before = context->interfaces.count;
    if (descriptor->attach(context, nullptr, nullptr, pass) != 0)
        return refuse(err, path, "its attach function failed");
    if (descriptor->attached != 1) return refuse(err, path, "it doesn't say that it is attached");
    if (!descriptor->cell || !*descriptor->cell) return refuse(err, path, "it gives no interface");
    const QuelIFACE* iface = *descriptor->cell;
    bool registered = false;
    for (uint64_t i = before; i < context->interfaces.count; ++i) {
        const QuelREGENTRY* entry = static_cast<const QuelREGENTRY*>(context->interfaces.entries[i]);
        if (entry && entry[kInterfaceWord] == reinterpret_cast<uint64_t>(iface)) registered = true;
    }
    if (!registered) return refuse(err, path, "the interface that it gives is not the one that it registers");
    if (!check_interface(path, iface, err)) return false;
    module->iface = iface;
    return true;
}

void close_module(Module* module) {
    if (module->library) close_library(module->library);
    *module = {};
}

}  // namespace quel
