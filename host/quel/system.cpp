#include "quel/system.h"

#include <dlfcn.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

namespace quel {

bool file_exists(const char* path) { return access(path, F_OK) == 0; }

bool folder_of(const char* path, char (&folder)[kPathSize]) {
    const char* slash = strrchr(path, '/');
    const int length =
        slash ? snprintf(folder, kPathSize, "%.*s", int(slash - path) + 1, path) : snprintf(folder, kPathSize, "./");
    return length > 0 && size_t(length) < kPathSize;
}

bool own_folder(char (&folder)[kPathSize]) {
    Dl_info info;
    return dladdr(reinterpret_cast<const void*>(&file_exists), &info) && info.dli_fname &&
           folder_of(info.dli_fname, folder);
}

void* open_library(const char* path, const char** reason) {
    // Without a slash the system would look in its library folders.
    char local[kPathSize];
    if (!strchr(path, '/')) {
        if (size_t(snprintf(local, sizeof local, "./%s", path)) >= sizeof local) {
            *reason = "the path is too long";
            return nullptr;
        }
        path = local;
    }
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        const char* text = dlerror();
        *reason = text ? text : "the system gives no reason";
    }
    return library;
}

void* find_symbol(void* library, const char* name) { return dlsym(library, name); }

void close_library(void* library) { dlclose(library); }

}  // namespace quel
