// Pools: objects of one size, handed out from slabs that double in size. Objects are never given back one by one, so
// there is no list of free ones to keep.
#include "ka/memory.h"

using namespace ka;

namespace {

struct Slab {
    Slab* next;
    uint64_t size;  // bytes of the whole slab
};

constexpr uint64_t kFirstSlab = 4096;
constexpr uint64_t kLargestSlab = 1 << 20;

uint64_t object_stride(const KaPOOL* pool) { return round_up(pool->object_size, pool->alignment); }

bool add_slab(KaPOOL* pool) {
    const uint64_t stride = object_stride(pool);
    const uint64_t size = sizeof(Slab) + pool->alignment + stride * pool->slab_objects;
    Slab* slab = static_cast<Slab*>(obtain(reinterpret_cast<KaSMEMSTG*>(pool->base.parent), size));
    if (!slab) return false;
    *slab = {static_cast<Slab*>(pool->base.blocks), size};
    pool->base.blocks = slab;
    const uint64_t behind_header = reinterpret_cast<uint64_t>(slab + 1);
    pool->next_object =
        reinterpret_cast<uint8_t*>(slab + 1) + (round_up(behind_header, pool->alignment) - behind_header);
    pool->slab_end = pool->next_object + stride * pool->slab_objects;
    hide(slab + 1, size - sizeof(Slab));
    if (stride * pool->slab_objects <= kLargestSlab / 2) pool->slab_objects *= 2;
    return true;
}

}  // namespace

void ka::release_slabs(KaPOOL* pool) {
    while (Slab* slab = static_cast<Slab*>(pool->base.blocks)) {
        pool->base.blocks = slab->next;
        show(slab, slab->size);
        give_back(reinterpret_cast<KaSMEMSTG*>(pool->base.parent), slab);
    }
}

KaPOOL* KaPOOLopen(KaPOOL* pool, KaSMEMSTG* storage, uint64_t object_size, uint64_t alignment, QuelERR* err) {
    if (!pool || object_size == 0 || !good_alignment(alignment) || (storage && storage->base.tag != kStorageTag))
        return fail(err, QUEL_E_OPTION);
    if (object_size > kLargestSize - 2 * kLargestAlignment) return fail(err, QUEL_E_NOMEM);
    *pool = {};
    open_record(&pool->base, kPoolTag, storage);
    pool->object_size = object_size;
    pool->alignment = alignment;
    const uint64_t stride = object_stride(pool);
    pool->slab_objects = stride < kFirstSlab ? kFirstSlab / stride : 1;
    return pool;
}

void* KaPOOLget(KaPOOL* pool, QuelERR* err) {
    if (!pool || pool->base.tag != kPoolTag) return fail(err, QUEL_E_OPTION);
    if (!count_allocation()) return fail(err, QUEL_E_NOMEM);
    if (pool->next_object == pool->slab_end && !add_slab(pool)) return fail(err, QUEL_E_NOMEM);
    void* object = pool->next_object;
    pool->next_object += object_stride(pool);
    show(object, pool->object_size);
    return object;
}
