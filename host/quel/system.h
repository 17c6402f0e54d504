// What differs between operating systems: shared libraries and the place of files.
#ifndef TARN_HOST_QUEL_SYSTEM_H
#define TARN_HOST_QUEL_SYSTEM_H

#include <stddef.h>

namespace quel {

inline constexpr size_t kPathSize = 4096;
#if defined(_WIN32)
inline constexpr char kModuleSuffix[] = ".dll";
#else
inline constexpr char kModuleSuffix[] = ".so";
#endif

bool file_exists(const char* path);
// The folder, with its last separator, of a file; "./" when the path names none. False when it is too long.
bool folder_of(const char* path, char (&folder)[kPathSize]);
// The folder of the library that this function is in.
bool own_folder(char (&folder)[kPathSize]);
// Opens a shared library; null, with the reason as text, when that fails.
void* open_library(const char* path, const char** reason);
void* find_symbol(void* library, const char* name);
void close_library(void* library);

}  // namespace quel
#endif
