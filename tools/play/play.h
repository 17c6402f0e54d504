// A call of an operation as a piece of code, its body: makes arrays and parameters and calls. Bodies of the table draw
// what they make; whatever is made is written down as the C++ that makes it again, so what comes out of a finding is a
// body too. A body is played twice, at level 0 with packed rows and at another level with everything changed that must
// not change a bit.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "ka/test.h"
#include "quel/host.h"
#include "tarn.h"

namespace tarn::play {

// What a play is given beside its body's choices.
struct Setting {
    int level = 0;
    uint32_t float_state = 0x1f80;  // control word: rounding, denormals, flags
    bool streaming = false;         // every output is stored around the cache
    bool laid_out = false;          // arrays stand as drawn, not packed before an inaccessible page
    uint64_t failing = 0;           // the allocation that fails; 0: none
};

struct Outcome {
    std::string fault;             // what no call may do; empty when all is well
    std::string told;              // results, error values, what receivers were told
    std::vector<uint8_t> written;  // pixels and numbers that came out
    std::string text;              // the body in C++
    uint64_t allocations = 0;
    bool refused = false;  // a call returned a negative number or NaN
};

// Something in memory that calls are given; the text calls it by its number.
struct Place {
    void* at = nullptr;
    int number = -1;  // -1: null
    template <class T>
    operator T*() const {
        return static_cast<T*>(at);
    }
};

enum Role { in, out, scratch };  // scratch: written, not compared

struct Size {
    int width, height;
};

class Play {
public:
    Play(const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed);  // seed 0: choices not given are 0
    ~Play();

    // ---- Choices; 0 is the simplest ---------------------------------------------------------------------------------
    uint32_t pick(uint32_t n);
    bool chance(uint32_t n) { return pick(n) == n - 1; }  // once in n
    int between(int low, int high) { return low + int(pick(uint32_t(high - low + 1))); }
    uint32_t of(std::initializer_list<uint32_t> words) { return words.begin()[pick(uint32_t(words.size()))]; }
    Size size();
    // One of these kinds with 1 to 4 channels; with `hostile` sometimes any word.
    uint32_t type(std::initializer_list<uint32_t> kinds, bool hostile = true);
    uint32_t real();  // the bits of a float
    std::vector<uint32_t> reals(int count);
    Place plane_of(uint32_t type, Size n, Role role, uint32_t modes = 4);
    Place dst(uint32_t type, Size n);  // out, sometimes larger
    Place src(uint32_t type, Size n) { return plane_of(type, n, in); }
    Place operand(Place dst, uint32_t type, Size n, bool null = true);  // of its own, dst, or null
    Place reals_or_null(int count) { return chance(4) ? Place() : words(reals(count)); }
    struct Pair {
        Place dst, src;
    };
    Pair overlapping(uint32_t type, Size n);
    Place region_of(Size n);  // in an array, null, or anything
    void surroundings() {
        const bool errors = !chance(4), storage = chance(3);
        surroundings(errors, storage);
    }

    // ---- Making; each is written down -------------------------------------------------------------------------------
    // Whether calls get an error context and a storage.
    void surroundings(bool errors, bool storage);
    // An array. layout: padding, direction, place and shift; contents: a seed, and in its low bits what values.
    Place plane(uint32_t type, int width, int height, int layout, uint32_t contents, Role role);
    Place view(Place of, int x, int y, int width, int height, Role role);
    Place words(const std::vector<uint32_t>& words, Role role = in);
    Place doubles(const std::vector<double>& values);
    Place list(const std::vector<Place>& places);
    Place array(Place plane, const char* layout, uint32_t type, uint32_t cls, Size n, int channels, int batch);
    // Records of seven words (comparison, channel, value, offset, holds, fails, keep), all with one reference.
    Place specs(const std::vector<uint32_t>& words, Place reference);
    Place layers(const std::vector<Place>& weights, const std::vector<Place>& biases,
                 const std::vector<uint32_t>& codes);
    Place receiver(int fail_at);                             // of contours; fails at this callback
    void poke(Place array, int64_t offset, uint32_t value);  // changes a byte, to another one
    void may_end();                                          // the next call, without a line in the log
    void must_refuse();                                      // the next call

    template <class Fn, class... Args>
    int64_t call(const char* name, Args... args) {
        std::string shown;
        ((shown += ", " + show(args)), ...);
        return call_and_watch(name, shown, [&](QuelOP& op, QuelERR* err, KaSMEMSTG* storage) {
            return word(reinterpret_cast<Fn>(op.entry)(&op.call, err, storage, args...));
        });
    }
    static LumoMAT& mat(Place array) { return *static_cast<LumoMAT*>(array.at); }

    void finish(Outcome* outcome);

private:
    friend struct Receiver;
    struct Memory;
    struct Written {
        uint8_t* data;
        int64_t stride, row_bytes;
        int rows;
        Role role;
    };
    static int64_t word(int64_t result) { return result; }
    static int64_t word(float result) {  // without a comparison of floats, which the float state would have a say in
        const uint32_t bits = __builtin_bit_cast(uint32_t, result);
        return (bits & 0x7fffffff) > 0x7f800000 ? -1 : int64_t(bits);
    }
    static std::string show(Place place);
    template <class T>
    static std::string show(T number) {
        return std::to_string(number);
    }
    Place named(void* at, const std::string& text);
    uint8_t* take(int64_t bytes, bool at_start, int shift);
    void written(uint8_t* data, int64_t stride, int64_t row_bytes, int rows, Role role);
    template <class T>
    Place record(const T* items, size_t count, const std::string& text, Role role = in);
    using Call = std::function<int64_t(QuelOP&, QuelERR*, KaSMEMSTG*)>;
    int64_t call_and_watch(const char* name, const std::string& shown, const Call& call);

    Setting setting_;
    std::vector<uint32_t>& choices_;
    size_t next_ = 0;
    uint64_t seed_;
    Outcome outcome_;
    bool errors_ = true, storage_ = false, must_refuse_ = false, may_end_ = false, ended_ = false;
    KaSMEMSTG record_ = {};
    KaTESTLIVE live_;
    std::deque<LumoMAT> mats_;
    std::deque<struct Receiver> receivers_;
    int places_ = 0;
    size_t memories_ = 0;
    std::vector<Written> written_;
};

using Body = void (*)(Play&, const char* name);
struct Operation {
    const char* name;
    Body body;
    bool drawn = true;  // by choices, not as it was found
};
extern const std::vector<Operation> kOperations;

// Loads the module at this path and its companions, once in a process, and catches signals from now on. Returns why it
// can't be loaded, or nothing.
std::string load(const char* path);
// Names of the levels that this machine has, lowest first; none: the module can't be told which to take.
const std::vector<std::string>& levels();

// Whether this process has the libKa of ka/test.h, without which nothing can be played.
bool watches_memory();
// Whether the module itself has the operation, not a companion or nobody.
bool implemented(const Operation& operation);
// TARN_LEVELS=ends in the environment: of the levels only the lowest and the highest.
Setting draw_setting(uint64_t seed);
Outcome play(const Operation& operation, const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed);
// What is wrong with a body's calls; empty when nothing is. count: how many plays it took.
std::string wrong(const Operation& operation, const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed,
                  uint64_t* count);
// The C++ text of a test, after the choices have been made as simple as they can be.
std::string shrunk(const Operation& operation, Setting setting, std::vector<uint32_t> choices);

}  // namespace tarn::play
