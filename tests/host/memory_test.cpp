// Storages and pools.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <thread>
#include <vector>

#include "ka/test.h"
#include "quel/host.h"

namespace {

// Fails the test when something is still open at its end.
class Memory : public testing::Test {
protected:
    void SetUp() override { before = KaTESTlive(); }
    void TearDown() override {
        KaTESTfailnth(0);
        expect_now(0, 0, 0);
    }
    // What is open since the test began.
    void expect_now(uint64_t storages, uint64_t blocks, uint64_t bytes) const {
        const KaTESTLIVE live = KaTESTlive();
        EXPECT_EQ(live.storages - before.storages, storages);
        EXPECT_EQ(live.blocks - before.blocks, blocks);
        EXPECT_EQ(live.bytes - before.bytes, bytes);
    }
    KaTESTLIVE before;
};

struct Storage : KaSMEMSTG {
    explicit Storage(KaSMEMSTG* parent = nullptr, uint64_t block_size = 0) {
        EXPECT_EQ(KaSMEMSTGopen(this, parent, block_size, nullptr), this);
    }
    ~Storage() { KaMEMSTGdestroy(&base); }
    Storage(const Storage&) = delete;
    uint8_t* get(uint64_t bytes, uint64_t flags = 0) {
        return static_cast<uint8_t*>(KaSMEMSTGalloc(this, bytes, flags, nullptr));
    }
};
struct Pool : KaPOOL {
    Pool(KaSMEMSTG* storage, uint64_t size, uint64_t alignment) {
        EXPECT_EQ(KaPOOLopen(this, storage, size, alignment, nullptr), this);
    }
    ~Pool() { KaMEMSTGdestroy(&base); }
    Pool(const Pool&) = delete;
    uint8_t* get() { return static_cast<uint8_t*>(KaPOOLget(this, nullptr)); }
};

bool aligned(const void* block, uint64_t alignment) { return reinterpret_cast<uintptr_t>(block) % alignment == 0; }

TEST_F(Memory, blocks_are_aligned_apart_and_wholly_usable) {
    for (uint64_t block_size : {uint64_t(0), uint64_t(4096), uint64_t(1) << 20}) {
        Storage storage(nullptr, block_size);
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
            ASSERT_TRUE(data && aligned(data, alignment < 16 ? 16 : alignment));
            memset(data, i, size);
            blocks.push_back({data, size});
            if (i % 7 == 3) {  // free some on the way, so that idle pieces come back
                Got& victim = blocks[random() % blocks.size()];
                KaSMEMSTGfree(&storage, victim.data);
                victim.data = nullptr;
            }
        }
        for (size_t i = 0; i < blocks.size(); ++i)
            for (size_t j = 0; blocks[i].data && j < blocks[i].size; ++j) ASSERT_EQ(blocks[i].data[j], uint8_t(i));
    }
}

TEST_F(Memory, empty_blocks_have_addresses_of_their_own) {
    Storage storage;
    std::set<void*> seen = {nullptr};
    for (int i = 0; i < 20; ++i) seen.insert(storage.get(0));
    EXPECT_EQ(seen.size(), 21u);
}

TEST_F(Memory, flag_bit_0_clears_the_block_even_when_its_memory_was_used_before) {
    Storage storage;
    for (int round = 0; round < 3; ++round) {
        uint8_t* block = storage.get(5000, 1);
        for (int i = 0; i < 5000; ++i) ASSERT_EQ(block[i], 0);
        memset(block, 0xee, 5000);
        KaSMEMSTGclear(&storage);
    }
}

TEST_F(Memory, counts_follow_every_block) {
    Storage parent, child(&parent, 4096);
    uint8_t* a = child.get(100);
    child.get(30), parent.get(7);
    expect_now(2, 3, 137);
    EXPECT_EQ(child.used, 130u);
    KaSMEMSTGfree(&child, a);
    KaSMEMSTGfree(&child, nullptr);
    expect_now(2, 2, 37);
    EXPECT_EQ(child.used, 30u);
    KaSMEMSTGclear(&child);
    expect_now(2, 1, 7);
    // Clearing a parent closes what draws on it and leaves it open.
    KaSMEMSTGclear(&parent);
    EXPECT_EQ(child.base.tag, 0u);
    EXPECT_NE(parent.get(1000), nullptr);
}

TEST_F(Memory, destroying_a_parent_destroys_everything_that_draws_on_it) {
    Storage root;
    std::vector<KaSMEMSTG> chain(50);
    for (size_t i = 0; i < chain.size(); ++i) {
        KaSMEMSTGopen(&chain[i], i % 5 ? &chain[i - 1] : &root, i % 2 ? 1024 : 0, nullptr);
        KaSMEMSTGalloc(&chain[i], 300, 0, nullptr);
    }
    Pool pool(&chain[49], 24, 8);
    pool.get();
    KaMEMSTGdestroy(&chain[10].base);  // one in the middle first, with the four below it
    EXPECT_EQ(chain[14].base.tag, 0u);
    EXPECT_NE(chain[15].base.tag, 0u);
    KaMEMSTGdestroy(&root.base);  // its own and the pool's destructors meet closed records
    expect_now(0, 0, 0);
    EXPECT_EQ(pool.base.tag, 0u);
    KaMEMSTGdestroy(nullptr);
}

TEST_F(Memory, impossible_sizes_and_arguments_are_refused_with_a_status) {
    Storage storage;
    KaSMEMSTG other = {}, closed = {};
    KaPOOL pool;
    QuelERR err = {};
    err.status = UINT64_C(0xabcd0000);
    const auto refused = [&err](const void* result, uint32_t code) {
        const bool as_promised = !result && err.status == (UINT64_C(0xabcd0000) | code) && err.count == 0;
        err.status = UINT64_C(0xabcd0000);
        return as_promised;
    };
    for (uint64_t size : {UINT64_MAX, UINT64_MAX - 15, UINT64_MAX - 4096, UINT64_C(1) << 63, (UINT64_C(1) << 62) + 1,
                          UINT64_C(1) << 62, UINT64_C(1) << 60}) {
        EXPECT_TRUE(refused(KaSMEMSTGalloc(&storage, size, 1, &err), QUEL_E_NOMEM)) << size;
        EXPECT_TRUE(refused(KaSMEMSTGaalloc(&storage, size, 4096, 0, &err), QUEL_E_NOMEM)) << size;
        EXPECT_EQ(storage.get(size), nullptr);
    }
    for (uint64_t alignment : {0u, 3u, 48u, 8192u})
        EXPECT_TRUE(refused(KaSMEMSTGaalloc(&storage, 8, alignment, 0, &err), QUEL_E_OPTION)) << alignment;
    EXPECT_TRUE(refused(KaSMEMSTGalloc(nullptr, 8, 0, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaSMEMSTGopen(nullptr, nullptr, 0, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaSMEMSTGopen(&other, &closed, 0, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaSMEMSTGopen(&other, nullptr, UINT64_MAX, &err), QUEL_E_NOMEM));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, 0, 8, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, 8, 24, &err), QUEL_E_OPTION));
    EXPECT_TRUE(refused(KaPOOLopen(&pool, nullptr, UINT64_MAX, 8, &err), QUEL_E_NOMEM));
    const bool open = KaPOOLopen(&pool, nullptr, UINT64_C(1) << 61, 8, &err);  // refused now or at the first object
    EXPECT_TRUE(refused(open ? KaPOOLget(&pool, &err) : nullptr, QUEL_E_NOMEM));
    if (open) KaMEMSTGdestroy(&pool.base);
}

TEST_F(Memory, the_nth_allocation_fails_once) {
    Storage storage;
    Pool pool(&storage, 8, 8);
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
    EXPECT_NE(storage.get(10), nullptr);
}

TEST_F(Memory, pool_objects_are_aligned_and_apart) {
    for (uint64_t size : {1u, 24u, 100u, 5000u})
        for (uint64_t alignment : {1u, 8u, 64u, 4096u})
            for (bool from_storage : {false, true}) {
                Storage storage;
                Pool pool(from_storage ? &storage : nullptr, size, alignment);
                std::vector<uint8_t*> objects;
                for (int i = 0; i < 700; ++i) {
                    objects.push_back(pool.get());
                    ASSERT_TRUE(objects.back() && aligned(objects.back(), alignment));
                    memset(objects.back(), i, size);
                }
                for (int i = 0; i < 700; ++i) {
                    ASSERT_EQ(objects[i][0], uint8_t(i));
                    ASSERT_EQ(objects[i][size - 1], uint8_t(i));
                }
            }
}

TEST_F(Memory, storages_of_different_threads_are_independent) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([] {
            for (int round = 0; round < 50; ++round) {
                Storage storage(nullptr, 4096);
                for (int i = 0; i < 20; ++i) memset(storage.get(3000), i, 3000);
            }
        });
    for (auto& thread : threads) thread.join();
}

#if defined(__SANITIZE_ADDRESS__)
#define UNDER_ASAN
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define UNDER_ASAN
#endif
#endif

using MemoryDeathTest = Memory;
#ifndef UNDER_ASAN
TEST_F(Memory, a_cleared_storage_uses_its_memory_again) {
    Storage large, small(nullptr, 1 << 20);
    uint8_t *first = large.get(1 << 20), *first_small = small.get(10);
    for (int step = 0; step < 10; ++step) {
        KaSMEMSTGclear(&large);
        EXPECT_EQ(large.get((1 << 20) - step * 1000), first);
        KaSMEMSTGclear(&small);
        EXPECT_EQ(small.get(20), first_small);
        small.get(3 << 20);  // a piece of its own, behind the one for small blocks
        EXPECT_EQ(small.get(20), first_small + 64);
    }
}

TEST_F(Memory, a_storage_keeps_a_bounded_amount_of_idle_memory) {
    Storage storage;
    for (int i = 0; i < 40; ++i) storage.get(20 << 20);  // never touched: costs address space only
    KaSMEMSTGclear(&storage);
    EXPECT_LE(storage.idle_bytes, UINT64_C(256) << 20);
    EXPECT_GE(storage.idle_count, 10u);
}

TEST_F(MemoryDeathTest, giving_back_what_was_not_handed_out_ends_the_process) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Storage storage, other;
    uint8_t* block = storage.get(64);
    EXPECT_DEATH(KaSMEMSTGfree(&other, block), "didn't hand it out");
    EXPECT_DEATH((KaSMEMSTGfree(&storage, block), KaSMEMSTGfree(&storage, block)), "given back twice");
}
#else  // nothing is kept idle here, and the sanitizer itself sees wrong use: also between blocks that share a piece
TEST_F(MemoryDeathTest, the_address_sanitizer_sees_the_bounds_of_every_block) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Storage storage(nullptr, 4096), child(&storage);
    Pool pool(&child, 20, 4);
    for (Storage* from : {&storage, &child}) {
        auto* block = static_cast<volatile uint8_t*>(KaSMEMSTGaalloc(from, 37, 64, 0, nullptr));
        from->get(100);
        const auto write = [block](int at) { block[at] = 1; };
        EXPECT_DEATH(write(37), "AddressSanitizer");
        EXPECT_DEATH(write(-1), "AddressSanitizer");
        EXPECT_DEATH((KaSMEMSTGfree(from, const_cast<uint8_t*>(block)), write(5)), "AddressSanitizer");
        EXPECT_DEATH((KaSMEMSTGclear(from), write(5)), "AddressSanitizer");
    }
    volatile uint8_t* object = pool.get();
    object[19] = 1;
    EXPECT_DEATH(object[20] = 1, "AddressSanitizer");
}
#endif

}  // namespace
