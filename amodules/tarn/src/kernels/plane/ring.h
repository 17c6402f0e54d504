// For kernel sources only: the last prepared rows, each made once and used by several output rows.
#pragma once

#include "kernels/base/body.h"

namespace tarn::k::TARN_LEVEL {
namespace {

// kRows slots of `pitch` elements. A source row has its slot by its number, so the kRows rows around an output are all
// held.
template <class T, int kRows>
class Ring {
public:
    Ring(T* memory, int64_t pitch) : memory_(memory), pitch_(pitch) { forget(); }

    // Before other columns.
    void forget() {
        for (int64_t& h : held_) h = -1;
    }
    // Row `number` (not negative); prepare(T*) makes it when it is not there.
    template <class Prepare>
    const T* row(int64_t number, Prepare prepare) {
        const int slot = int(number % kRows);
        T* at = memory_ + slot * pitch_;
        if (held_[slot] != number) {
            prepare(at);
            held_[slot] = number;
        }
        return at;
    }

private:
    T* memory_;
    int64_t pitch_;
    int64_t held_[kRows];
};

}  // namespace
}  // namespace tarn::k::TARN_LEVEL
