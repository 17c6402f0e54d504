// Memory for calls that may touch nothing else, and random elements for it.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <type_traits>

namespace tarn::play {

// Memory with an inaccessible page on either side.
class Arena {
public:
    explicit Arena(size_t bytes) {
        const size_t page = size_t(sysconf(_SC_PAGESIZE));
        bytes_ = (bytes + page - 1) / page * page;
        map_ = static_cast<uint8_t*>(
            mmap(nullptr, bytes_ + 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        data_ = map_ + page;
        mprotect(map_, page, PROT_NONE);
        mprotect(data_ + bytes_, page, PROT_NONE);
    }
    uint8_t* begin() const { return data_; }
    uint8_t* end() const { return data_ + bytes_; }

private:
    uint8_t *map_, *data_;
    size_t bytes_;
};

// An element: every fourth integer and, unless floats are to be finite, every sixteenth float is one of the extremes.
template <class T>
T random_value(std::mt19937& rng, bool finite) {
    if constexpr (std::is_integral_v<T>) {
        static constexpr T kEdges[] = {
            std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), 0, 1, T(-1), T(-2), 127, 2};
        const uint32_t r = rng();
        return r % 4 == 0 ? kEdges[r >> 8 & 7] : T(rng());
    } else {
        using Limits = std::numeric_limits<T>;
        static const T special[] = {Limits::quiet_NaN(), Limits::infinity(), -Limits::infinity(), T(-0.0), T(0.0),
                                    Limits::max(),       Limits::lowest(),   Limits::denorm_min()};
        const double unit = double(rng()) / 4294967296.0 * 2 - 1;
        const uint32_t r = rng();
        if (r % 16 == 0 && !finite) return special[r >> 8 & 7];
        const int kind = r >> 4 & 3;
        return kind == 0   ? T(int32_t(rng() % 512) - 256) / 2  // halves: ties when rounded
               : kind == 1 ? T(unit * 70000)
               : kind == 2 ? T(unit)
                           : T(std::ldexp(unit, int(rng() % 60) - 30));
    }
}

}  // namespace tarn::play
