// The bench's frame: rows of contenders measured interleaved in one run, and the tables that come out.
//
// A family is one source of this folder with a `Family` in it. Most rows are kernel cases (tests/cases) with peers
// added; each stands beside a plain copy of the same bytes ("limit"). Rows of another kind (whole operations, networks)
// give their contenders themselves.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "cases/case.h"

namespace tarn::bench {

using cases::Case;
using cases::Size;
using cases::View;

struct Contender {
    std::string name;
    std::function<void()> run;
};

struct Options {
    std::string filter;                   // only rows whose name contains this
    std::string family;                   // only this family
    bool levels = false;                  // every level a column
    bool quick = false;                   // 256 x 256 only, short
    std::string addresses = "staggered";  // where planes begin within their pages: see Buffer
    int padding = 0;                      // bytes behind every row
    std::vector<cases::Size> sizes;       // instead of the usual ones
    bool write = false;                   // tables and plots into folder()
    // docs/bench/<level>, for the level that is measured.
    std::string folder() const;
};

// Seconds of one call of each contender: the least of many rounds, in each of which all take their turn, and the
// median.
struct Times {
    double least, median;
};
std::vector<Times> interleaved(const std::vector<Contender>& contenders, const Options& options);

class Bench {
public:
    Bench(std::string family, const Options& options) : family_(std::move(family)), options_(options) {}

    // A peer for the case of this name, called on the case's planes. Name it before the case is visited.
    void peer(const std::string& case_name, const std::string& peer, std::function<void(const View*, Size)> run) {
        peers_[case_name].push_back({peer, std::move(run)});
    }
    // A kernel case at the sizes given (none: the usual ones). Cases without peers are measured
    // only when the filter names them, or when they are to be `alone`.
    void row(const Case& c, std::vector<Size> sizes = {}, bool alone = false);
    // Any contenders; ours first. The table shows nanoseconds per `units` (pixels, samples, ...).
    void row(const std::string& name, const std::string& size, double units, const std::vector<Contender>& contenders);

    const Options& options() const { return options_; }
    // The sizes that a family measures: its usual ones, or those that were asked for; of a quick run the first alone.
    std::vector<Size> sizes_of(std::vector<Size> usual) const;
    bool wants(const std::string& name) const { return name.find(options_.filter) != std::string::npos; }
    // Nanoseconds per unit of a contender in the last row of this name; 0 where there is none.
    double figure(const std::string& name, const std::string& contender) const;
    // The table so far, as Markdown.
    std::string table() const;
    bool empty() const { return rows_.empty(); }

private:
    struct Line {
        std::string name, size;
        std::vector<std::pair<std::string, double>> columns;  // name, ns per unit
        double spread;                                        // ours: the median of the rounds / the least
    };
    struct Peer {
        std::string name;
        std::function<void(const View*, Size)> run;
    };
    std::string family_;
    const Options& options_;
    std::map<std::string, std::vector<Peer>> peers_;
    std::vector<Line> rows_;
};

// Passes every case of a family to a bench: copy_cases(Measure{bench}).
struct Measure {
    Bench& bench;
    std::vector<Size> sizes = {};
    void operator()(const Case& c) const { bench.row(c, sizes); }
};

// Registers a family: static Family copy{"copy", [](Bench& b) { ... }};
struct Family {
    Family(const char* name, void (*run)(Bench&));
    const char* name;
    void (*run)(Bench&);
};

// Reads all `in` streams and writes all `out` streams of the given byte counts, computing nothing: what memory allows.
struct Stream {
    uint8_t* data;
    int64_t bytes;
};
void copy_streams(const std::vector<Stream>& in, const std::vector<Stream>& out);

}  // namespace tarn::bench
