// The module's frame, read back byte by byte through the loaded library: descriptor, interface record, slots,
// registration entry, dependency list, attach.
#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "ipp/fixture.h"

namespace {

// A second, untouched copy of the library would be the same one for the loader, so the static part is read as the host
// left it and the attach-time part is tried by calling the hook again.
const uint8_t* descriptor() {
    void* library = dlopen(TARN_MODULE_FILE, RTLD_NOW);
    EXPECT_NE(library, nullptr) << dlerror();
    return *static_cast<const uint8_t* const*>(dlsym(library, "_G_quel_module"));
}

uint64_t word(const void* base, size_t offset) {
    uint64_t v;
    memcpy(&v, static_cast<const uint8_t*>(base) + offset, 8);
    return v;
}
const char* text(const void* base, size_t offset) { return reinterpret_cast<const char*>(word(base, offset)); }

struct Named {
    int slot;
    const char *name, *qualified;
};
#include "ipp/frame_slots.inc"

}  // namespace

TEST(frame, descriptor_words_are_the_hosts) {
    tarn::test::host();
    const uint8_t* d = descriptor();
    EXPECT_EQ(word(d, 0x40), 0x0000000002040000u);
    EXPECT_STREQ(text(d, 0x48), "modules/tarn-ipp");
    EXPECT_STREQ(text(d, 0x50), "tarn-ipp");
    EXPECT_STREQ(text(d, 0x58), "tarn-ipp");
    EXPECT_EQ(word(d, 0x60), 0x05ec0005ffff0002u);
    EXPECT_STREQ(text(d, 0x188), "tarn-ipp");
    EXPECT_EQ(word(d, 0x1e0), 1u);
    EXPECT_STREQ(text(d, 0x1e8), "Jan 16 2026");
    EXPECT_NE(word(d, 0x98), 0u);
    EXPECT_NE(word(d, 0x1b8), 0u);
    for (size_t at = 0x68; at <= 0x1d8; at += 8)
        if (at != 0x98 && at != 0x188 && at != 0x1b8 && at != 0x1c0 && at != 0x1c8) {
            EXPECT_EQ(word(d, at), 0u) << std::hex << at;
        }
}

TEST(frame, dependency_list_names_the_companion) {
    const auto query = reinterpret_cast<const void* (*)()>(word(descriptor(), 0x1b8));
    EXPECT_EQ(word(query(), 0), 1u);
    EXPECT_STREQ(text(query(), 8), "tarn-c");
}

TEST(frame, attach_sets_the_flag_and_the_cell_and_appends_the_entry_each_time) {
    const uint8_t* d = descriptor();
    const auto attach = reinterpret_cast<int64_t (*)(QuelMODCTX*, void*, void*, void*)>(word(d, 0x98));
    QuelMODCTX context = {};
    EXPECT_EQ(attach(&context, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(attach(&context, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(context.interfaces.count, 2u);
    EXPECT_EQ(word(d, 0x1c0), 1u);
    const void* cell = reinterpret_cast<const void*>(word(d, 0x1c8));
    const uint64_t interface = word(cell, 0);
    const void* e = context.interfaces.entries[0];
    EXPECT_EQ(e, context.interfaces.entries[1]);
    const uint64_t words[][8] = {{9, 0, 0, 0, 0, 0, 0, 3},
                                 {0xffff000300000008, 0x0000060705e70003, 0, 0, interface, 0, 0, 0},
                                 {0xffff000300000008, 0x0000000803ee0003, 0, 0, 1, 0x03ee0003ffff0003, 8, 0},
                                 {0xffff000300000008, 0x0000000503ed0003, 0, 0x1e0, 1, 0x03ed0003ffff0003, 5, 0}};
    for (size_t i = 0; i < 32; ++i) EXPECT_EQ(word(e, 8 * i), words[i / 8][i % 8]) << "word " << i;
    free(context.interfaces.entries);  // the list is its host's, here this test
}

TEST(frame, interface_record_and_its_200_slots) {
    const uint8_t* d = descriptor();
    const void* iface = reinterpret_cast<const void*>(word(reinterpret_cast<const void*>(word(d, 0x1c8)), 0));
    EXPECT_EQ(word(iface, 0x40), 0x0000000002040000u);
    EXPECT_STREQ(text(iface, 0x48), "operations/tarn/Tarnipp");
    EXPECT_STREQ(text(iface, 0x50), "tarn/Tarnipp");
    EXPECT_STREQ(text(iface, 0x58), "tarn");
    EXPECT_EQ(word(iface, 0x60), 0x05e70003ffff0003u);
    EXPECT_EQ(word(iface, 0x68), 0x0607u);
    for (size_t at = 0x70; at <= 0xb0; at += 8) EXPECT_EQ(word(iface, at), 0u);
    EXPECT_EQ(word(iface, 0xb8), 200u);

    struct Kind {
        uint64_t entry, a, b;
    };
    const Kind own = {2, 0, 0}, of_companion = {1, 0x05e70003ffff0003u, 0x606u},
               of_nobody = {1, 0x0001000300060003u, 0};
    std::map<int, std::pair<Named, Kind>> slots;
    for (const Named& n : kImplemented) slots[n.slot] = {n, own};
    for (const Named& n : kCompanion) slots[n.slot] = {n, of_companion};
    for (const Named& n : kAbsent) slots[n.slot] = {n, of_nobody};
    EXPECT_EQ(slots.size(), 81u);
    for (int i = 0; i < 200; ++i) {
        SCOPED_TRACE(i);
        const size_t at = 0xc0 + size_t(i) * 56;
        std::string name = "reserved" + std::to_string(i), qualified = "tarn::reserved" + std::to_string(i);
        Kind kind = {};
        if (i == 2) name = "pod_init", qualified = "pod-init";
        if (i == 3) name = "pod_fini", qualified = "pod-fini";
        if (i == 111) qualified = "tarn::reserved11";
        if (slots.count(i)) name = slots[i].first.name, qualified = slots[i].first.qualified, kind = slots[i].second;
        EXPECT_EQ(text(iface, at), name);
        EXPECT_EQ(text(iface, at + 8), qualified);
        EXPECT_STREQ(text(iface, at + 16), "P,P");
        EXPECT_EQ(std::min<uint64_t>(word(iface, at + 24), 2), kind.entry);  // an address is above 1
        EXPECT_EQ(word(iface, at + 32), kind.a);
        EXPECT_EQ(word(iface, at + 40), kind.b);
        EXPECT_EQ(word(iface, at + 48), 0u);
    }
}

TEST(frame, once_operations_return_zero_again_and_again) {
    for (const char* name : {"init_once", "init-once", "fini_once", "init_once"})
        EXPECT_EQ(tarn::test::run<TarnOnce>(name), 0) << name;
}
