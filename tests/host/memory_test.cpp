// Storages and pools.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "quel/host.h"

namespace {

// Fails the test when something is still open at its end.
class Memory : public testing::Test {
protected:
    void SetUp() override { before = KaTESTlive(); }
    void TearDown() override {
        KaTESTfailnth(0);
        const KaTESTLIVE after = KaTESTlive();
        EXPECT_EQ(after.storages, before.storages);
        EXPECT_EQ(after.blocks, before.blocks);
        EXPECT_EQ(after.bytes, before.bytes);
    }
    KaTESTLIVE now() const {
        const KaTESTLIVE live = KaTESTlive();
        return {live.storages - before.storages, live.blocks - before.blocks, live.bytes - before.bytes};
    }
    KaTESTLIVE before;
};

uint64_t misalignment(const void* block, uint64_t alignment) { return reinterpret_cast<uintptr_t>(block) % alignment; }

TEST_F(Memory, blocks_are_aligned_apart_and_wholly_usable) {
    for (uint64_t block_size : {uint64_t(0), uint64_t(4096), uint64_t(1) << 20}) {
        KaSMEMSTG storage;
        ASSERT_EQ(KaSMEMSTGopen(&storage, nullptr, block_size, nullptr), &storage);
        struct Got {
            uint8_t* data;
            size_t size;
        };
        std::vector<Got> blocks;
        std::mt19937 random(7);
        for (int i = 0; i < 300; ++i) {
            const uint64_t alignment = uint64_t(1) << random() % 13;
            const size_t size = random() % (i % 10 ? 200 : 20000);
            auto* data = static_cast<uint8_t*>(KaSMEMSTGaalloc(&storage, size, alignment, 0, nullptr));
            ASSERT_NE(data, nullptr);
            EXPECT_EQ(misalignment(data, alignment < 16 ? 16 : alignment), 0u);
            memset(data, i, size);
            blocks.push_back({data, size});
            if (i % 7 == 3) {  // free some on the way, so that idle pieces come back
                const size_t victim = random() % blocks.size();
                KaSMEMSTGfree(&storage, blocks[victim].data);
                blocks[victim].data = nullptr;
            }
        }
        for (size_t i = 0; i < blocks.size(); ++i)
            for (size_t j = 0; blocks[i].data && j < blocks[i].size; ++j) ASSERT_EQ(blocks[i].data[j], uint8_t(i));
        KaMEMSTGdestroy(&storage.base);
    }
}

TEST_F(Memory, empty_blocks_have_addresses_of_their_own) {
    KaSMEMSTG storage;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    std::set<void*> seen;
    for (int i = 0; i < 20; ++i) seen.insert(KaSMEMSTGalloc(&storage, 0, 0, nullptr));
    EXPECT_EQ(seen.size(), 20u);
    EXPECT_EQ(seen.count(nullptr), 0u);
    KaMEMSTGdestroy(&storage.base);
}

TEST_F(Memory, flag_bit_0_clears_the_block_even_when_its_memory_was_used_before) {
    KaSMEMSTG storage;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    for (int round = 0; round < 3; ++round) {
        auto* block = static_cast<uint8_t*>(KaSMEMSTGalloc(&storage, 5000, 1, nullptr));
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(block[i], 0);
        memset(block, 0xee, 5000);
        KaSMEMSTGclear(&storage);
    }
    KaMEMSTGdestroy(&storage.base);
}

TEST_F(Memory, counts_follow_every_block) {
    KaSMEMSTG parent, child;
    KaSMEMSTGopen(&parent, nullptr, 0, nullptr);
    KaSMEMSTGopen(&child, &parent, 4096, nullptr);
    EXPECT_EQ(now().storages, 2u);
    void* a = KaSMEMSTGalloc(&child, 100, 0, nullptr);
    KaSMEMSTGalloc(&child, 30, 0, nullptr);
    KaSMEMSTGalloc(&parent, 7, 0, nullptr);
    EXPECT_EQ(now().blocks, 3u);
    EXPECT_EQ(now().bytes, 137u);
    EXPECT_EQ(child.used, 130u);
    KaSMEMSTGfree(&child, a);
    KaSMEMSTGfree(&child, nullptr);
    EXPECT_EQ(now().blocks, 2u);
    EXPECT_EQ(child.used, 30u);
    KaSMEMSTGclear(&child);
    EXPECT_EQ(now().bytes, 7u);
    EXPECT_EQ(now().storages, 2u);
    KaMEMSTGdestroy(&child.base);
    KaMEMSTGdestroy(&parent.base);
}

TEST_F(Memory, destroying_a_parent_destroys_everything_that_draws_on_it) {
    KaSMEMSTG root;
    std::vector<KaSMEMSTG> chain(50);
    KaPOOL pool;
    KaSMEMSTGopen(&root, nullptr, 0, nullptr);
    for (size_t i = 0; i < chain.size(); ++i) {
        KaSMEMSTGopen(&chain[i], i % 5 ? &chain[i - 1] : &root, i % 2 ? 1024 : 0, nullptr);
        KaSMEMSTGalloc(&chain[i], 300, 0, nullptr);
    }
    KaPOOLopen(&pool, &chain[49], 24, 8, nullptr);
    KaPOOLget(&pool, nullptr);
    KaMEMSTGdestroy(&chain[10].base);  // one in the middle first, with the four below it
    EXPECT_EQ(chain[14].base.tag, 0u);
    EXPECT_NE(chain[15].base.tag, 0u);
    KaMEMSTGdestroy(&root.base);
    EXPECT_EQ(now().storages, 0u);
    EXPECT_EQ(pool.base.tag, 0u);
    KaMEMSTGdestroy(&pool.base);  // a closed record
    KaMEMSTGdestroy(nullptr);
}

TEST_F(Memory, clearing_a_parent_closes_its_children_and_leaves_it_open) {
    KaSMEMSTG parent, child;
    KaSMEMSTGopen(&parent, nullptr, 0, nullptr);
    KaSMEMSTGopen(&child, &parent, 0, nullptr);
    KaSMEMSTGalloc(&child, 1000, 0, nullptr);
    KaSMEMSTGclear(&parent);
    EXPECT_EQ(child.base.tag, 0u);
    EXPECT_NE(KaSMEMSTGalloc(&parent, 1000, 0, nullptr), nullptr);
    KaMEMSTGdestroy(&parent.base);
}

TEST_F(Memory, impossible_sizes_and_arguments_are_refused_with_a_status) {
    KaSMEMSTG storage, other = {};
    KaPOOL pool;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    QuelERR err = {};
    const auto refused = [&err](const void* result, uint32_t code) {
        const bool as_promised =
            !result && (err.status & 0xffff) == code && err.status >> 16 == 0xabcd && err.count == 0;
        err.status = UINT64_C(0xabcd0000);
        return as_promised;
    };
    err.status = UINT64_C(0xabcd0000);
    for (uint64_t size : {UINT64_MAX, UINT64_MAX - 15, UINT64_MAX - 4096, UINT64_C(1) << 63, (UINT64_C(1) << 62) + 1,
                          UINT64_C(1) << 62, UINT64_C(1) << 60}) {
        EXPECT_TRUE(refused(KaSMEMSTGalloc(&storage, size, 1, &err), QUEL_E_NOMEM)) << size;
        EXPECT_TRUE(refused(KaSMEMSTGaalloc(&storage, size, 4096, 0, &err), QUEL_E_NOMEM)) << size;
        EXPECT_EQ(KaSMEMSTGalloc(&storage, size, 0, nullptr), nullptr);
    }
    for (uint64_t alignment : {0u, 3u, 48u, 8192u})
        EXPECT_TRUE(refused(KaSMEMSTGaalloc(&storage, 8, alignment, 0, &err), QUEL_E_OPTION)) << alignment;
    EXPECT_TRUE(refused(KaSMEMSTGalloc(nullptr, 8, 0, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaSMEMSTGopen(nullptr, nullptr, 0, &err), QUEL_E_OPTION));
    KaSMEMSTG closed = {};
    EXPECT_TRUE(refused(KaSMEMSTGopen(&other, &closed, 0, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaSMEMSTGopen(&other, nullptr, UINT64_MAX, &err), QUEL_E_NOMEM));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, 0, 8, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, 8, 24, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, UINT64_MAX, 8, &err), QUEL_E_NOMEM));
    const bool open = KaPOOLopen(&pool, nullptr, UINT64_C(1) << 61, 8, &err);  // refused now or at the first object
    EXPECT_TRUE(refused(open ? KaPOOLget(&pool, &err) : nullptr, QUEL_E_NOMEM));
    if (open) KaMEMSTGdestroy(&pool.base);
    KaMEMSTGdestroy(&storage.base);
}

TEST_F(Memory, the_nth_allocation_fails_once) {
    KaSMEMSTG storage;
    KaPOOL pool;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    KaPOOLopen(&pool, &storage, 8, 8, nullptr);
    for (uint64_t n = 1; n <= 5; ++n) {
        KaTESTfailnth(n);
        QuelERR err = {};
        for (uint64_t i = 1; i <= 5; ++i) {
            void* got = i % 2 ? KaSMEMSTGalloc(&storage, 10, 0, &err) : KaPOOLget(&pool, &err);
            EXPECT_EQ(got == nullptr, i == n) << n << ' ' << i;
        }
        EXPECT_EQ(err.status, uint64_t(QUEL_E_NOMEM));
        EXPECT_EQ(KaTESTfailnth(0), 5u);
    }
    EXPECT_NE(KaSMEMSTGalloc(&storage, 10, 0, nullptr), nullptr);
    KaMEMSTGdestroy(&storage.base);
}

TEST_F(Memory, pool_objects_are_aligned_and_apart) {
    for (uint64_t size : {1u, 24u, 100u, 5000u})
        for (uint64_t alignment : {1u, 8u, 64u, 4096u})
            for (bool from_storage : {false, true}) {
                KaSMEMSTG storage;
                KaPOOL pool;
                KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
                ASSERT_EQ(KaPOOLopen(&pool, from_storage ? &storage : nullptr, size, alignment, nullptr), &pool);
                std::vector<uint8_t*> objects;
                for (int i = 0; i < 700; ++i) {
                    objects.push_back(static_cast<uint8_t*>(KaPOOLget(&pool, nullptr)));
                    ASSERT_NE(objects.back(), nullptr);
                    ASSERT_EQ(misalignment(objects.back(), alignment), 0u);
                    memset(objects.back(), i, size);
                }
                for (int i = 0; i < 700; ++i) {
                    ASSERT_EQ(objects[i][0], uint8_t(i));
                    ASSERT_EQ(objects[i][size - 1], uint8_t(i));
                }
                KaMEMSTGdestroy(&pool.base);
                KaMEMSTGdestroy(&storage.base);
            }
}

TEST_F(Memory, storages_of_different_threads_are_independent) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                KaSMEMSTG storage;
                KaSMEMSTGopen(&storage, nullptr, 4096, nullptr);
                for (int i = 0; i < 20; ++i) memset(KaSMEMSTGalloc(&storage, 3000, 0, nullptr), i, 3000);
                KaMEMSTGdestroy(&storage.base);
            }
        });
    for (auto& thread : threads) thread.join();
}

#if !defined(__SANITIZE_ADDRESS__)
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN
#endif
#endif
#else
#define UNDER_ASAN
#endif

#ifndef UNDER_ASAN
TEST_F(Memory, a_cleared_storage_uses_its_memory_again) {
    KaSMEMSTG storage;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    void* first = KaSMEMSTGalloc(&storage, 1 << 20, 0, nullptr);
    for (int layer = 0; layer < 10; ++layer) {
        KaSMEMSTGclear(&storage);
        EXPECT_EQ(KaSMEMSTGalloc(&storage, (1 << 20) - layer * 1000, 0, nullptr), first);
    }
    KaMEMSTGdestroy(&storage.base);

    KaSMEMSTGopen(&storage, nullptr, 1 << 20, nullptr);
    first = KaSMEMSTGalloc(&storage, 10, 0, nullptr);
    for (int step = 0; step < 10; ++step) {
        KaSMEMSTGclear(&storage);
        EXPECT_EQ(KaSMEMSTGalloc(&storage, 20, 0, nullptr), first);
        KaSMEMSTGalloc(&storage, 3 << 20, 0, nullptr);  // a piece of its own, behind the one for small blocks
        EXPECT_EQ(KaSMEMSTGalloc(&storage, 20, 0, nullptr), static_cast<char*>(first) + 64);
    }
    KaMEMSTGdestroy(&storage.base);
}

TEST_F(Memory, a_storage_keeps_a_bounded_amount_of_idle_memory) {
    KaSMEMSTG storage;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    for (int i = 0; i < 40; ++i)
        KaSMEMSTGalloc(&storage, 20 << 20, 0, nullptr);  // never touched: costs address space only
    KaSMEMSTGclear(&storage);
    EXPECT_LE(storage.idle_bytes, UINT64_C(256) << 20);
    EXPECT_GE(storage.idle_count, 10u);
    KaMEMSTGdestroy(&storage.base);
}

using MemoryDeathTest = Memory;
TEST_F(MemoryDeathTest, giving_back_what_was_not_handed_out_ends_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    KaSMEMSTG storage, other;
    KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
    KaSMEMSTGopen(&other, nullptr, 0, nullptr);
    void* block = KaSMEMSTGalloc(&storage, 64, 0, nullptr);
    EXPECT_DEATH(KaSMEMSTGfree(&other, block), "didn't hand it out");
    EXPECT_DEATH((KaSMEMSTGfree(&storage, block), KaSMEMSTGfree(&storage, block)), "given back twice");
    KaMEMSTGdestroy(&other.base);
    KaMEMSTGdestroy(&storage.base);
}
#else  // nothing is kept idle here, and the sanitizer itself sees wrong use: also between blocks that share a piece
using MemoryDeathTest = Memory;
TEST_F(MemoryDeathTest, the_address_sanitizer_sees_the_bounds_of_every_block) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    KaSMEMSTG storage, child;
    KaPOOL pool;
    KaSMEMSTGopen(&storage, nullptr, 4096, nullptr);
    KaSMEMSTGopen(&child, &storage, 0, nullptr);
    KaPOOLopen(&pool, &child, 20, 4, nullptr);
    for (KaSMEMSTG* from : {&storage, &child}) {
        auto* block = static_cast<volatile uint8_t*>(KaSMEMSTGaalloc(from, 37, 64, 0, nullptr));
        KaSMEMSTGalloc(from, 100, 0, nullptr);
        EXPECT_DEATH(block[37] = 1, "AddressSanitizer");
        EXPECT_DEATH(block[-1] = 1, "AddressSanitizer");
        EXPECT_DEATH(
            {
                KaSMEMSTGfree(from, const_cast<uint8_t*>(block));
                block[5] = 1;
            },
            "AddressSanitizer");
        EXPECT_DEATH(
            {
                KaSMEMSTGclear(from);
                block[5] = 1;
            },
            "AddressSanitizer");
    }
    auto* object = static_cast<volatile uint8_t*>(KaPOOLget(&pool, nullptr));
    object[19] = 1;
    EXPECT_DEATH(object[20] = 1, "AddressSanitizer");
    KaMEMSTGdestroy(&storage.base);
}
#endif

}  // namespace
