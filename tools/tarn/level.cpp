#include "level.h"

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "error.h"

namespace tarn::tool {
namespace {
std::string wanted;

// A library's file in memory.
class File {
public:
    explicit File(const char* path) {
        const int file = open(path, O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (file >= 0 && fstat(file, &status) == 0 && status.st_size > 0) {
            void* bytes = mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
            if (bytes != MAP_FAILED) bytes_ = static_cast<const char*>(bytes), size_ = size_t(status.st_size);
        }
        if (file >= 0) close(file);
    }
    ~File() {
        if (bytes_) munmap(const_cast<char*>(bytes_), size_);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    // count records from this offset on, or null where the file doesn't have them.
    template <class T>
    const T* at(uint64_t offset, uint64_t count = 1) const {
        const bool inside = offset <= size_ && count <= (size_ - offset) / sizeof(T) && offset % alignof(T) == 0;
        return inside ? reinterpret_cast<const T*>(bytes_ + offset) : nullptr;
    }

private:
    const char* bytes_ = nullptr;
    size_t size_ = 0;
};

// A variable of a loaded library by its symbol's name; null where the file tells none of at least this size.
struct Variable {
    char* address = nullptr;
    size_t bytes = 0;
};
Variable find_variable(const File& file, uint64_t base, const char* name) {
    const auto* head = file.at<ElfW(Ehdr)>(0);
    if (!head || std::memcmp(head->e_ident, ELFMAG, SELFMAG) != 0) return {};
    const auto* sections = file.at<ElfW(Shdr)>(head->e_shoff, head->e_shnum);
    for (int i = 0; sections && i < head->e_shnum; ++i) {
        if (sections[i].sh_type != SHT_SYMTAB || sections[i].sh_link >= head->e_shnum) continue;
        const ElfW(Shdr)& texts = sections[sections[i].sh_link];
        const uint64_t count = sections[i].sh_size / sizeof(ElfW(Sym)), length = std::strlen(name) + 1;
        const auto* symbols = file.at<ElfW(Sym)>(sections[i].sh_offset, count);
        const char* text = file.at<char>(texts.sh_offset, texts.sh_size);
        for (uint64_t s = 0; symbols && text && s < count; ++s) {
            const auto& symbol = symbols[s];
            if (symbol.st_shndx == SHN_UNDEF || (symbol.st_info & 15) != STT_OBJECT ||
                symbol.st_name + length > texts.sh_size)
                continue;
            if (std::memcmp(text + symbol.st_name, name, length) == 0)
                return {reinterpret_cast<char*>(base + symbol.st_value), symbol.st_size};
        }
    }
    return {};
}
}  // namespace

std::optional<Levels> levels_of(const QuelHOST* host) {
    Dl_info found = {};
    link_map* library = nullptr;
    if (!dladdr1(QuelHOSTmodule(host), &found, reinterpret_cast<void**>(&library), RTLD_DL_LINKMAP) || !library)
        return {};
    const File file(found.dli_fname);
    const Variable active = find_variable(file, library->l_addr, "_ZN4tarn1k12active_levelE");
    const Variable names = find_variable(file, library->l_addr, "_ZN4tarn1k11kLevelNamesE");
    if (active.bytes != sizeof(int) || !names.bytes) return {};
    Levels levels{{}, reinterpret_cast<int*>(active.address)};
    const int highest = *levels.active;
    if (highest < 0 || size_t(highest) >= names.bytes / sizeof(char*)) return {};
    for (int i = 0; i <= highest; ++i) levels.names.push_back(reinterpret_cast<const char* const*>(names.address)[i]);
    return levels;
}

void want_level(const std::string& name) { wanted = name; }

void apply_level(const QuelHOST* host) {
    const char* variable = std::getenv("TARN_LEVEL");
    const std::string name = !wanted.empty() ? wanted : variable ? variable : "";
    if (name.empty()) return;
    const std::string subject = wanted.empty() ? "TARN_LEVEL" : "--level";
    const auto levels = levels_of(host);
    if (!levels)
        fail(subject, "can't be set: the module's library has no symbol table",
             "leave its symbols in, or leave it out");
    std::string all;
    for (size_t i = 0; i < levels->names.size(); ++i) {
        all += (i ? i + 1 == levels->names.size() ? " or " : ", " : "") + levels->names[i];
        if (levels->names[i] != name) continue;
        *levels->active = int(i);
        return;
    }
    usage(subject, "'" + name + "' is no level of this machine", "give " + all);
}

}  // namespace tarn::tool
