// What storages and pools share inside the library: memory from a parent or the heap, the family tree, and the counts
// that tests read.
#ifndef TARN_HOST_KA_MEMORY_H
#define TARN_HOST_KA_MEMORY_H

#include "ka/fail.h"

#if defined(__SANITIZE_ADDRESS__)
#define KA_ASAN 1
#elif defined(__SANITIZE_THREAD__)
#define KA_TSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KA_ASAN 1
#elif __has_feature(thread_sanitizer)
#define KA_TSAN 1
#endif
#endif
#ifndef KA_ASAN
#define KA_ASAN 0
#endif
#ifndef KA_TSAN
#define KA_TSAN 0
#endif
#if KA_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace ka {

// Sizes above this are refused before any sum can overflow. The sanitizers' heaps end the process, instead of returning
// null, when asked for too much: there the limit is what they surely give.
inline constexpr uint64_t kLargestSize = UINT64_C(1) << (KA_ASAN || KA_TSAN ? 33 : 62);
inline constexpr uint64_t kLargestAlignment = 4096;
inline constexpr uint64_t kAlignment = 16;

inline constexpr uint64_t kStorageTag = UINT64_C(0x47545356454d534b);
inline constexpr uint64_t kPoolTag = UINT64_C(0x4c4f4f5056454d4b);

inline bool good_alignment(uint64_t alignment) {
    return alignment != 0 && alignment <= kLargestAlignment && (alignment & (alignment - 1)) == 0;
}

inline uint64_t round_up(uint64_t value, uint64_t alignment) { return (value + alignment - 1) & ~(alignment - 1); }

// Memory that storages and pools take for themselves (a child's piece, a pool's slab): from the parent, or from the
// heap when it is null. Not counted as a block. Size at most kLargestSize; the address is a multiple of 16.
void* obtain(KaSMEMSTG* parent, uint64_t size);
void give_back(KaSMEMSTG* parent, void* memory);

// Puts a record into its parent's list of children, and takes it out.
void open_record(KaMEMSTG* record, uint64_t tag, KaSMEMSTG* parent);
void close_record(KaMEMSTG* record);
void release_slabs(KaPOOL* pool);

#ifdef KA_TESTS
// Counts one allocation; false when a test wants this one to fail.
bool count_allocation();
// Adds to what is open and handed out.
void count_live(int64_t storages, int64_t blocks, int64_t bytes);
#else
inline bool count_allocation() { return true; }
inline void count_live(int64_t, int64_t, int64_t) {}
#endif

// Tells the address sanitizer which bytes may be touched.
inline void hide([[maybe_unused]] const void* memory, [[maybe_unused]] uint64_t size) {
#if KA_ASAN
    __asan_poison_memory_region(memory, size);
#endif
}
inline void show([[maybe_unused]] const void* memory, [[maybe_unused]] uint64_t size) {
#if KA_ASAN
    __asan_unpoison_memory_region(memory, size);
#endif
}

}  // namespace ka
#endif
