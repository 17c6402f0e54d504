// Counts what storages and pools do, for tests.
#include "ka/test.h"

#include <atomic>

#include "ka/memory.h"

namespace ka {
namespace {
std::atomic<uint64_t> live_storages, live_blocks, live_bytes;
std::atomic<bool> counting;
std::atomic<uint64_t> allocation_count, failing_allocation;
}  // namespace

bool count_allocation() {
    if (!counting.load(std::memory_order_relaxed)) return true;
    const uint64_t number = allocation_count.fetch_add(1, std::memory_order_relaxed) + 1;
    return number != failing_allocation.load(std::memory_order_relaxed);
}

void count_live(int64_t storages, int64_t blocks, int64_t bytes) {
    live_storages.fetch_add(uint64_t(storages), std::memory_order_relaxed);
    live_blocks.fetch_add(uint64_t(blocks), std::memory_order_relaxed);
    live_bytes.fetch_add(uint64_t(bytes), std::memory_order_relaxed);
}

}  // namespace ka

using namespace ka;

uint64_t KaTESTfailnth(uint64_t n) {
    counting.store(true, std::memory_order_relaxed);
    failing_allocation.store(n, std::memory_order_relaxed);
    return allocation_count.exchange(0, std::memory_order_relaxed);
}

KaTESTLIVE KaTESTlive(void) {
    return {live_storages.load(std::memory_order_relaxed), live_blocks.load(std::memory_order_relaxed),
            live_bytes.load(std::memory_order_relaxed)};
}
