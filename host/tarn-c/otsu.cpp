// The variance between two classes is (s N - n S)^2 / (n (N - n)), over N^3, where n of the N elements are in the lower
// class and s and S are the sums of their intervals' numbers. Variances that double can't tell apart are compared as
// fractions of integers.
#include "tarn-c/otsu.h"

#include <string.h>

namespace tarn::ipp {
namespace {

using Wide = unsigned __int128;

// A product of up to 320 bits.
struct Product {
    static constexpr int kWords = 10;
    uint32_t word[kWords] = {1};
    void multiply(Wide factor) {
        uint32_t by[4], product[kWords] = {};
        for (int i = 0; i < 4; ++i) by[i] = uint32_t(factor >> 32 * i);
        for (int i = 0; i < kWords; ++i) {
            uint64_t carry = 0;
            for (int j = 0; i + j < kWords; ++j) {
                carry += product[i + j] + uint64_t(word[i]) * (j < 4 ? by[j] : 0);
                product[i + j] = uint32_t(carry);
                carry >>= 32;
            }
        }
        memcpy(word, product, sizeof word);
    }
    bool operator>(const Product& other) const {
        for (int i = kWords - 1; i >= 0; --i)
            if (word[i] != other.word[i]) return word[i] > other.word[i];
        return false;
    }
};

// Whether a^2 / b is greater than c^2 / d.
bool is_greater(Wide a, Wide b, Wide c, Wide d) {
    Product left, right;
    left.multiply(a), left.multiply(a), left.multiply(d);
    right.multiply(c), right.multiply(c), right.multiply(b);
    return left > right;
}

// Int holds N^2 times the number of intervals.
template <class Int>
int32_t lower_class_end(const uint64_t* counts, int32_t bins, Int all, Int all_sum) {
    int32_t found = 0;
    Int lower = 0, sum = 0, root = 0, divisor = 1;
    double greatest = 0;
    for (int32_t i = 0; i < bins; ++i) {
        if (counts[i] == 0) continue;
        lower += Int(counts[i]);
        sum += Int(counts[i]) * uint32_t(i);
        if (lower == all) break;
        // The mean of the lower class is below that of all.
        const Int r = lower * all_sum - sum * all, d = lower * (all - lower);
        // The quotient is formed only where it is the greatest so far: most are not, and a division takes as long as
        // the rest.
        const double square = double(r) * double(r), by = double(d);
        if (square < greatest * by * (1 - 1e-12)) continue;
        if (square > greatest * by * (1 + 1e-12) || is_greater(Wide(r), Wide(d), Wide(root), Wide(divisor)))
            greatest = square / by, root = r, divisor = d, found = i;
    }
    return found;
}

// The same of few elements and intervals, as a picture's tiles have, where the search takes as long as the counting:
// all variances in vectors, and of those near the greatest the fractions. lower and sum: of the classes that end with
// each interval, integers whose products double holds.
constexpr int32_t kFew = 512, kGroup = 16;
int32_t lower_class_end_of_few(const uint64_t* counts, int32_t bins, const int32_t* lower, const int32_t* sum) {
    double variance[kFew];
    const int32_t ends = bins - 1, all = lower[ends];
    const double whole = all, whole_sum = sum[ends];
    for (int32_t i = 0; i < ends; ++i) {
        const double n = lower[i], r = n * whole_sum - sum[i] * whole;
        variance[i] = r * r / (n * (whole - n));
    }
    const int32_t groups = (ends + kGroup - 1) / kGroup;
    for (int32_t i = ends; i < groups * kGroup; ++i) variance[i] = 0;
    double most[kFew / kGroup], greatest = 0;
    for (int32_t g = 0; g < groups; ++g) {
        most[g] = 0;
        for (int32_t i = g * kGroup; i < (g + 1) * kGroup; ++i) most[g] = variance[i] > most[g] ? variance[i] : most[g];
        greatest = most[g] > greatest ? most[g] : greatest;
    }

    const double near = greatest * (1 - 1e-12);
    int32_t found = -1;
    Wide root = 0, divisor = 1;
    for (int32_t g = 0; g < groups; ++g) {
        if (most[g] < near) continue;
        for (int32_t i = g * kGroup; i < (g + 1) * kGroup; ++i) {
            if (variance[i] < near || counts[i] == 0) continue;
            const Wide r = Wide(lower[i]) * Wide(sum[ends]) - Wide(sum[i]) * Wide(all);
            const Wide d = Wide(lower[i]) * Wide(all - lower[i]);
            if (found < 0 || is_greater(r, d, root, divisor)) found = i, root = r, divisor = d;
        }
    }
    return found;
}

// Numbers of a type in their order: for floats the order of their bits.
float number_at(int64_t place, k::Type type) {
    if (type != k::Type::f32) return float(place);
    const int32_t bits = int32_t(place < 0 ? place ^ INT32_MAX : place);
    float value;
    memcpy(&value, &bits, sizeof value);
    return value;
}
int64_t place_of(float value, k::Type type) {
    if (type != k::Type::f32) return int64_t(value);
    int32_t bits;
    memcpy(&bits, &value, sizeof bits);
    return bits < 0 ? bits ^ INT32_MAX : bits;
}

}  // namespace

int32_t otsu_bin(const uint64_t* counts, int32_t bins) {
    int32_t first = 0, last = bins - 1;
    while (first < last && counts[first] == 0) ++first;
    while (last > first && counts[last] == 0) --last;
    if (first == last) return 0;
    counts += first;
    bins = last + 1 - first;
    int32_t lower[kFew] = {}, sums[kFew] = {};
    uint64_t all = 0, sum = 0;
    const auto gather = [&](auto put) {
        for (int32_t i = 0; i < bins; ++i) {
            all += counts[i];
            sum += counts[i] * uint32_t(i);
            put(i);
        }
        return double(all) * double(all) * bins;
    };
    if (bins <= kFew && gather([&](int32_t i) { lower[i] = int32_t(all), sums[i] = int32_t(sum); }) < 0x1p53)
        return first + lower_class_end_of_few(counts, bins, lower, sums);
    all = sum = 0;
    const double most = gather([](int32_t) {});
    if (most < 0x1p62) return first + lower_class_end<int64_t>(counts, bins, int64_t(all), int64_t(sum));
    return first + lower_class_end<Wide>(counts, bins, all, sum);
}

float last_of_bin(const k::Bins& bins, int32_t bin, k::Type type) {
    const float least = type == k::Type::u8 ? 0.0f : type == k::Type::s16 ? -32768.0f : bins.lower;
    const float most = type == k::Type::u8 ? 255.0f : type == k::Type::s16 ? 32767.0f : bins.upper;
    // Intervals follow the order of the numbers: the last place that is not above the interval.
    const auto above = [&](int64_t place) {
        const float value = number_at(place, type);
        return value > bins.upper || (value >= bins.lower && k::bin_of(bins, value) > bin);
    };
    int64_t first = place_of(least, type), end = place_of(most, type) + 1;  // what is sought lies in [first - 1, end)
    while (first < end) {
        const int64_t middle = first + (end - first) / 2;
        if (above(middle))
            end = middle;
        else
            first = middle + 1;
    }
    const float value = number_at(first - 1, type);
    return value >= bins.lower ? value : bins.lower;
}

}  // namespace tarn::ipp
