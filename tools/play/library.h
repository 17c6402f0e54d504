// A shared library as its file tells of it, read with distrust: what it exports and needs, and where variables of
// kernels lie that it has no call for. Modules choose the highest processor level that the machine has; to run them at
// another, the variable of the choice is looked up in the library's symbol table, as a debugger does.
#pragma once

#include <elf.h>
#include <link.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "quel.h"

namespace tarn::play {

class Library {
public:
    explicit Library(const char* path);
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    // Whether it is a shared library for processors of this program's kind, with a table of its sections.
    bool good() const { return sections_ != nullptr; }
    std::vector<std::string> exports() const;
    std::vector<std::string> needs() const;
    // Offset of a variable of at least this size from where the library is loaded, or 0.
    uint64_t variable(const char* name, size_t bytes) const;

private:
    // count records from this offset on, or null where the file doesn't have them.
    template <class T>
    const T* at(uint64_t offset, uint64_t count = 1) const {
        const bool inside = offset <= size_ && count <= (size_ - offset) / sizeof(T) && offset % alignof(T) == 0;
        return inside ? reinterpret_cast<const T*>(bytes_ + offset) : nullptr;
    }
    // Calls each(record, text) of sections of this kind; text gives a name by its offset.
    template <class Record, class Each>
    void records(uint32_t kind, Each each) const;

    const char* bytes_ = nullptr;
    size_t size_ = 0;
    const ElfW(Shdr) * sections_ = nullptr;
    int section_count_ = 0;
};

// The kernels' variables of a loaded library.
struct Kernels {
    std::vector<std::string> levels;  // that this machine has, lowest first, if the library has just been loaded
    int* level;                       // index of the one that kernels run at
    int64_t* stream_bytes;            // outputs above it are stored around the cache; null when no kernel does that
};
// Of the library that holds this address. None when it has no kernels or no symbols.
std::optional<Kernels> kernels_of(const void* inside);
// Of all libraries that have functions in this table: the module and its companions.
std::vector<Kernels> kernels_of_table(const QuelIFACE* table);

}  // namespace tarn::play
