// Opens one module and checks what it says about itself before anybody relies on it.
#ifndef TARN_HOST_QUEL_LOADER_H
#define TARN_HOST_QUEL_LOADER_H

#include "quel.h"

namespace quel {

// A module in memory; zeroed when there is none.
struct Module {
    void* library;
    const QuelMODULE* descriptor;
    const QuelIFACE* iface;
};

// Opens the library and checks its descriptor. The module is not attached yet, and iface is null.
bool open_module(const char* path, Module* module, QuelERR* err);
// Attaches the module and checks the interface that it registers.
bool attach_module(const char* path, Module* module, QuelMODCTX* context, void* pass, QuelERR* err);
void close_module(Module* module);

// Makes an error value of the host's own. Returns -1.
#define QUEL_HOST_ERROR(err, code, ...) QuelMkerr_u(err, 0, 0, 0, 0, code, QUEL_C_ARGUMENT, __VA_ARGS__)

inline bool is_function(QuelENTRY entry) { return entry && entry != QUEL_ENTRY_DECLARED; }

}  // namespace quel
#endif
