#include "play/library.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <set>

namespace tarn::play {

Library::Library(const char* path) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
        void* bytes = mmap(nullptr, size_t(status.st_size), PROT_READ, MAP_PRIVATE, file, 0);
        if (bytes != MAP_FAILED) bytes_ = static_cast<const char*>(bytes), size_ = size_t(status.st_size);
    }
    if (file >= 0) close(file);

    static const auto* const own = reinterpret_cast<const ElfW(Ehdr)*>(getauxval(AT_SYSINFO_EHDR));
    const auto* head = at<ElfW(Ehdr)>(0);
    if (!head || memcmp(head->e_ident, ELFMAG, SELFMAG) != 0 || head->e_ident[EI_CLASS] != __ELF_NATIVE_CLASS / 32 ||
        head->e_type != ET_DYN || (own && head->e_machine != own->e_machine))
        return;
    sections_ = at<ElfW(Shdr)>(head->e_shoff, head->e_shnum);
    section_count_ = head->e_shnum;
}

Library::~Library() {
    if (bytes_) munmap(const_cast<char*>(bytes_), size_);
}

template <class Record, class Each>
void Library::records(uint32_t kind, Each each) const {
    for (int i = 0; i < section_count_; ++i) {
        const ElfW(Shdr)& section = sections_[i];
        if (section.sh_type != kind || section.sh_link >= uint32_t(section_count_)) continue;
        const ElfW(Shdr)& texts = sections_[section.sh_link];
        const uint64_t count = section.sh_size / sizeof(Record), length = texts.sh_size;
        const auto* all = at<Record>(section.sh_offset, count);
        const char* text = at<char>(texts.sh_offset, length);
        if (!all || !text || !length || text[length - 1]) continue;
        for (uint64_t r = 0; r < count; ++r)
            each(all[r], [&](uint64_t offset) { return offset < length ? text + offset : ""; });
    }
}

std::vector<std::string> Library::exports() const {
    std::vector<std::string> names;
    records<ElfW(Sym)>(SHT_DYNSYM, [&](const auto& symbol, auto text) {
        const int binding = symbol.st_info >> 4;
        if (symbol.st_shndx != SHN_UNDEF && (binding == STB_GLOBAL || binding == STB_WEAK || binding == STB_GNU_UNIQUE))
            names.push_back(text(symbol.st_name));
    });
    return names;
}

std::vector<std::string> Library::needs() const {
    std::vector<std::string> names;
    records<ElfW(Dyn)>(SHT_DYNAMIC, [&](const auto& entry, auto text) {
        if (entry.d_tag == DT_NEEDED) names.push_back(text(entry.d_un.d_val));
    });
    return names;
}

uint64_t Library::variable(const char* name, size_t bytes) const {
    uint64_t offset = 0;
    records<ElfW(Sym)>(SHT_SYMTAB, [&](const auto& symbol, auto text) {
        const bool defined = symbol.st_shndx != SHN_UNDEF && (symbol.st_info & 15) == STT_OBJECT;
        if (defined && symbol.st_size >= bytes && !strcmp(text(symbol.st_name), name)) offset = symbol.st_value;
    });
    return offset;
}

std::optional<Kernels> kernels_of(const void* inside) {
    Dl_info found = {};
    link_map* loaded = nullptr;
    if (!dladdr1(inside, &found, reinterpret_cast<void**>(&loaded), RTLD_DL_LINKMAP) || !loaded) return {};
    const Library library(found.dli_fname);
    const auto find = [&]<class T>(T*& variable, const char* name, size_t count) {
        const uint64_t offset = library.variable(name, count * sizeof(T));
        variable = offset ? reinterpret_cast<T*>(loaded->l_addr + offset) : nullptr;
        return offset != 0;
    };
    Kernels kernels = {};
    const char* const* names = nullptr;
    if (!find(kernels.level, "_ZN4tarn1k12active_levelE", 1) || *kernels.level < 0 || *kernels.level > 99) return {};
    find(kernels.stream_bytes, "_ZN4tarn1k12stream_bytesE", 1);
    // The linker may have left out the names.
    find(names, "_ZN4tarn1k11kLevelNamesE", size_t(*kernels.level) + 1);
    for (int i = 0; i <= *kernels.level; ++i) kernels.levels.push_back(names ? names[i] : "level " + std::to_string(i));
    return kernels;
}

std::vector<Kernels> kernels_of_table(const QuelIFACE* table) {
    std::vector<Kernels> all;
    std::set<const void*> seen;
    for (const QuelSLOT& slot : table->slots) {
        Dl_info found = {};
        const void* entry = reinterpret_cast<const void*>(slot.entry);
        if (!entry || !dladdr(entry, &found) || !seen.insert(found.dli_fbase).second) continue;
        if (const auto kernels = kernels_of(entry)) all.push_back(*kernels);
    }
    return all;
}

}  // namespace tarn::play
