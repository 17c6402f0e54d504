// The variance between two classes is (s N - n S)^2 / (n (N - n)), over N^3, where n of the N elements are in the lower class and
// s and S are the sums of their intervals' numbers. Variances that double can't tell apart are compared as fractions of integers.
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
        // The quotient is formed only where it is the greatest so far: most are not, and a division takes as long as the rest.
        const double square = double(r) * double(r), by = double(d);
        if (square < greatest * by * (1 - 1e-12)) continue;
        if (square > greatest * by * (1 + 1e-12) || is_greater(Wide(r), Wide(d), Wide(root), Wide(divisor)))
            greatest = square / by, root = r, divisor = d, found = i;
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
    uint64_t all = 0, all_sum = 0;
    for (int32_t i = 0; i < bins; ++i) {
        all += counts[i];
        all_sum += counts[i] * uint32_t(i);
    }
    if (double(all) * double(all) * bins < 0x1p62)
        return lower_class_end<int64_t>(counts, bins, int64_t(all), int64_t(all_sum));
    return lower_class_end<Wide>(counts, bins, all, all_sum);
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
