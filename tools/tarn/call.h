// From the program to the module: the host with the module loaded, operations looked up by name and called, error
// values turned into one line, and the time of a call.
#ifndef TARN_TOOLS_CALL_H
#define TARN_TOOLS_CALL_H

#include <chrono>
#include <string>
#include <type_traits>

#include "image.h"
#include "quel/host.h"
#include "tarn.h"

namespace tarn::tool {

// The host with tarn-ipp loaded: the library named by TARN_MODULE, else the one beside the host's own library.
class Module {
public:
    Module();
    ~Module();
    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;
    QuelHOST* host() const { return host_; }

private:
    QuelHOST* host_;
};

// Measures calls for --time: each is repeated, at least five times and for a third of a second, and the fastest counts.
// An operation that works in place on its destination must not be repeated: call it with repeat switched off.
struct Timing {
    bool repeat = false;
    double milliseconds = 0;  // sum over the calls of the command, each at its fastest
    template <class Call>
    auto operator()(Call&& call) {
        using Clock = std::chrono::steady_clock;
        decltype(call()) result = 0;
        double best = 0, spent = 0;
        for (int i = 0; i == 0 || (repeat && !failed(result) && (i < 5 || spent < 333) && i < 1000); ++i) {
            const auto begin = Clock::now();
            result = call();
            const double took = std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
            if (i == 0 || took < best) best = took;
            spent += took;
        }
        milliseconds += best;
        return result;
    }
    // What an operation returns beside an error value: a negative number, or NaN where it gives a float.
    static bool failed(int64_t result) { return result < 0; }
    static bool failed(float result) { return result != result; }
};

// An operation of the module, ready to be called.
class Operation {
public:
    // Throws when the module has no such operation. name: "tarn::scale-resize".
    Operation(const Module& module, const std::string& name, Timing& timing);

    // Calls it as a Fn (tarn.h) with its own arguments and returns its result. given describes what it was given
    // ("600x400 u8, 3 channels"). Throws what its error value says, and for arrays with which the operation would do
    // something else or end the process.
    template <class Fn, class... Args>
    auto call(const std::string& given, Args... args) {
        int32_t place = 0;
        (require_type(place++, type_of(args), given), ...);
        QuelERR err;
        const auto result = timing_([&] {
            err = {};
            return reinterpret_cast<Fn>(op_.entry)(&op_.call, &err, nullptr, args...);
        });
        if (Timing::failed(result) || err.count) refused(err, given);
        return result;
    }

private:
    // The type of an array, or of the first of a list; 0 for what is neither.
    template <class Arg>
    static LumoELEMTYPE type_of(Arg arg) {
        const LumoMAT* array = nullptr;
        if constexpr (std::is_convertible_v<Arg, const LumoMAT*>) array = arg;
        if constexpr (std::is_convertible_v<Arg, const LumoMAT* const*> && !std::is_null_pointer_v<Arg>) array = *arg;
        return array ? array->elemtype : 0;
    }
    void require_type(int32_t place, LumoELEMTYPE type, const std::string& given) const;
    [[noreturn]] void refused(const QuelERR& err, const std::string& given) const;
    std::string qualified_, name_;
    QuelOP op_;
    Timing& timing_;
};

// Runs each(destination part, source part) on the colour channels and, when there is an alpha channel, on that alone:
// kernels leave a fourth channel as it is, and treat two channels in pairs of pixels, neither of which is meant for
// pictures. to: the result's shape; its channel count is the source's. each's third argument is true for alpha.
template <class Each>
Image by_parts(const Image& source, const Shape& to, const std::string& subject, Each&& each) {
    Image result = Image::make(to, subject);
    if (!source.has_alpha()) {
        each(result, source, false);
        return result;
    }
    const int colours = source.shape.channels - 1;
    for (const bool alpha : {false, true}) {
        const int first = alpha ? colours : 0, count = alpha ? 1 : colours;
        Shape shape = to;
        shape.channels = count;
        Image part = Image::make(shape, subject);
        each(part, take_channels(source, first, count), alpha);
        put_channels(result, part, first);
    }
    return result;
}

}  // namespace tarn::tool
#endif
