// What a module of the interface and its companion have alike: the words of their records, which are the host's, and
// the rows of the operation table.
#pragma once

#include "quel.h"

namespace tarn::ipp {

inline constexpr uint64_t kFormat = 0x0000000002040000;
inline constexpr uint64_t kInterfaceCode = 0x05e70003ffff0003;
inline constexpr char kSignature[] = "P,P";

// The interface record up to its slots, which the including file lists.
#define TARN_INTERFACE_HEAD                                                                                   \
    {}, kFormat, "operations/tarn/Tarnipp", "tarn/Tarnipp", "tarn", kInterfaceCode, 0x0607 /* version */, {}, \
        QUEL_IFACE_SLOTS

// What an attach function hands to the host's list, and the dependency list right behind it.
struct Registration {
    uint64_t words1[12];
    QuelIFACE* interface;
    uint64_t words2[25];
    QuelDEPLIST dependencies;
};
constexpr Registration registration_of(QuelIFACE* interface, QuelDEPLIST dependencies) {
    return {{9, 0, 0, 0, 0, 0, 0, 3, 0xffff000300000008, 0x0000060705e70003, 0, 0},
            interface,
            {0, 0, 0, 0xffff000300000008, 0x0000000803ee0003, 0, 0, 1, 0x03ee0003ffff0003, 8, 0, 0xffff000300000008,
             0x0000000503ed0003, 0, 0x1e0, 1, 0x03ed0003ffff0003, 5},
            dependencies};
}

using Attach = int64_t(QuelMODCTX*, void*, void*, void*);
constexpr QuelMODULE module_of(const char* path, const char* name, Attach* attach,
                               const QuelDEPLIST* (*dependencies)(void)) {
    QuelMODULE m = {};
    m.format = kFormat;
    m.path = path;
    m.name = m.name2 = m.name3 = name;
    m.type_code = 0x05ec0005ffff0002;
    m.attach = attach;
    m.dependencies = dependencies;
    m.one = 1;
    m.build_date = "Jan 16 2026";
    return m;
}

// What attaching is, whatever the module: its descriptor says that it is done and where the interface is found, and the
// host's list gets the registration.
inline int64_t attach_to(QuelMODCTX* context, void* pass, QuelMODULE& descriptor, QuelIFACE*& cell,
                         const Registration& registration) {
    descriptor.attached = 1;
    cell = registration.interface;
    descriptor.cell = &cell;
    _QuelSelistPushback_nlk(&context->interfaces, &registration, 0, pass);
    return 0;  // deliberate: whether the host could take the entry is the host's to know
}

static_assert(sizeof(QuelSLOT) == 56 && offsetof(QuelIFACE, format) == 0x40 &&
              offsetof(QuelIFACE, slot_count) == 0xb8 && offsetof(QuelIFACE, slots) == 0xc0);
static_assert(sizeof(QuelMODULE) == 0x1f0 && offsetof(QuelMODULE, attach) == 0x98 &&
              offsetof(QuelMODULE, name3) == 0x188 && offsetof(QuelMODULE, dependencies) == 0x1b8 &&
              offsetof(QuelMODULE, attached) == 0x1c0 && offsetof(QuelMODULE, cell) == 0x1c8 &&
              offsetof(QuelMODULE, one) == 0x1e0);
static_assert(offsetof(QuelCALL, iface) == 24 && offsetof(QuelCALL, slot) == 32);

}  // namespace tarn::ipp
