// ./dev bench: measures families and prints their tables.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <random>
#include <thread>

#include <opencv2/core/utility.hpp>

#include "bench.h"
#include "kernels/base/runtime.h"

namespace tarn::bench {

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

double time_calls(const std::function<void()>& run, int64_t calls) {
    const auto start = Clock::now();
    for (int64_t i = 0; i < calls; ++i) run();
    return seconds(Clock::now() - start) / double(calls);
}

std::vector<Family*>& families() {
    static std::vector<Family*> all;
    return all;
}

// Memory of one plane. Starts are staggered, so that streams do not meet in the same cache sets; or aligned, all at the
// beginning of a page; or unlucky, a few bytes apart from page to page and at no multiple of a vector, so that a load
// waits for a store to what seems its own address.
struct Buffer {
    Buffer(int64_t bytes, int index, const std::string& addresses) {
        memory =
            static_cast<uint8_t*>(std::aligned_alloc(4096, size_t((bytes + 3 * 4096 + index * 8256) / 4096 * 4096)));
        data = memory + (addresses == "aligned" ? 0 : addresses == "unlucky" ? 8 + index * 68 : index * 1088);
    }
    ~Buffer() { std::free(memory); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;
    uint8_t *memory, *data;
};

void fill(uint8_t* data, int64_t bytes, cases::Type type) {
    std::mt19937 rng(1);
    if (cases::bytes_of(type) == 4)  // of integers too: extremes of floats are given as these
        for (int64_t i = 0; i < bytes / 4; ++i) reinterpret_cast<float*>(data)[i] = float(rng() % 256);
    else
        for (int64_t i = 0; i < bytes; ++i) data[i] = uint8_t(rng() >> 11);
}

// What the figures depend on, by features: makers' names say less.
std::string machine() {
#if defined(__x86_64__)
    const char* architecture = "x86-64";
#else
    const char* architecture = "portable build";
#endif
    return architecture + (", " + std::to_string(std::thread::hardware_concurrency()) + " cores");
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d", std::localtime(&now));
    return text;
}

std::string number(double v) {
    char text[32];
    std::snprintf(text, sizeof text, v < 0.0995 ? "%.3f" : v < 9.95 ? "%.2f" : v < 99.5 ? "%.1f" : "%.0f", v);
    return text;
}

}  // namespace

Family::Family(const char* name, void (*run)(Bench&)) : name(name), run(run) { families().push_back(this); }

std::vector<Times> interleaved(const std::vector<Contender>& contenders, const Options& options) {
    const double slice = options.quick ? 0.0005 : 0.002;
    const double enough = 0.25;  // for all rounds, so that rows of large images have fewer
    std::vector<int64_t> calls;
    double round = 0;
    std::vector<std::vector<double>> seen(contenders.size());
    for (const Contender& c : contenders) {
        const double once = time_calls(c.run, 1);
        const double warm = once > slice ? once : time_calls(c.run, 3);
        calls.push_back(std::max<int64_t>(1, int64_t(slice / std::max(warm, 1e-8))));
        round += warm * double(calls.back());
    }
    const int rounds = options.quick ? 7 : int(std::clamp(enough / round, 5.0, 21.0));
    for (int r = 0; r < rounds; ++r)
        for (size_t i = 0; i < contenders.size(); ++i) {
            // Turns rotate, so that nobody always follows the same neighbour.
            const size_t turn = (i + size_t(r)) % contenders.size();
            seen[turn].push_back(time_calls(contenders[turn].run, calls[turn]));
        }
    std::vector<Times> times;
    for (std::vector<double>& s : seen) {
        std::sort(s.begin(), s.end());
        times.push_back({s.front(), s[s.size() / 2]});
    }
    return times;
}

void Bench::row(const std::string& name, const std::string& size, double units,
                const std::vector<Contender>& contenders) {
    if (!wants(name)) return;
    if (rows_.empty()) std::cerr << family_ << ":";
    std::cerr << " " << name << " " << size << std::flush;
    const auto times = interleaved(contenders, options_);
    Line line{name, size, {}, times[0].median / times[0].least};
    for (size_t i = 0; i < contenders.size(); ++i)
        line.columns.push_back({contenders[i].name, times[i].least * 1e9 / units});
    rows_.push_back(line);
}

std::vector<Size> Bench::sizes_of(std::vector<Size> usual) const {
    if (!options_.sizes.empty()) usual = options_.sizes;
    usual.resize(options_.quick ? 1 : usual.size(), {256, 256});
    return usual;
}

void Bench::row(const Case& c, std::vector<Size> sizes, bool alone) {
    if (!wants(c.name)) return;
    const auto peers = peers_.find(c.name);
    if (peers == peers_.end() && options_.filter.empty() && !alone) return;
    if (sizes.empty() && !options_.quick) sizes = {{64, 64}, {256, 256}, {1920, 1080}, {4096, 4096}};
    for (const Size n : sizes_of(sizes)) {
        std::vector<std::unique_ptr<Buffer>> buffers;
        std::vector<View> views;
        std::vector<Stream> in, out;
        for (const cases::Plane& p : c.planes) {
            const Size s = p.size(n);
            const int64_t stride = int64_t(s.width) * p.elements * cases::bytes_of(p.type) + options_.padding,
                          bytes = stride * s.height;
            buffers.push_back(std::make_unique<Buffer>(bytes, int(buffers.size()), options_.addresses));
            fill(buffers.back()->data, bytes, p.type);
            views.push_back({buffers.back()->data, int32_t(stride), s});
            if (p.role != cases::Role::out) in.push_back({views.back().data, bytes});
            // Results of a few bytes are no stream.
            if (p.role != cases::Role::in && bytes > 4096) out.push_back({views.back().data, bytes});
        }
        std::vector<Contender> contenders;
        const int highest = k::active_level;
        contenders.push_back({"ours", [&] { c.run(views.data(), n); }});
        contenders.push_back({"limit", [&] { copy_streams(in, out); }});
        if (peers != peers_.end())
            for (const Peer& p : peers->second)
                contenders.push_back({p.name, [&, run = &p.run] { (*run)(views.data(), n); }});
        if (options_.levels)
            for (int level = 0; level < highest; ++level)
                contenders.push_back({k::kLevelNames[level], [&, level] {
                                          k::active_level = level;
                                          c.run(views.data(), n);
                                          k::active_level = highest;
                                      }});
        row(c.name, std::to_string(n.width) + " x " + std::to_string(n.height), double(n.width) * n.height, contenders);
    }
}

double Bench::figure(const std::string& name, const std::string& contender) const {
    double ns = 0;
    for (const Line& l : rows_)
        if (l.name == name)
            for (const auto& [column, figure] : l.columns)
                if (column == contender) ns = figure;
    return ns;
}

std::string Bench::table() const {
    std::vector<std::string> names;
    for (const Line& l : rows_)
        for (const auto& [name, ns] : l.columns)
            if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    std::string text = "| row | size |", rule = "|---|---|";
    for (const std::string& n : names) text += " " + n + " |", rule += "--:|";
    for (const std::string& n : names)
        if (n == "limit")
            text += " x limit |", rule += "--:|";
        else if (n != "ours")
            text += " " + n + " / ours |", rule += "--:|";
    text += " spread |\n" + rule + "--:|\n";
    for (const Line& l : rows_) {
        const auto find = [&](const std::string& n) {
            for (const auto& [name, ns] : l.columns)
                if (name == n) return ns;
            return 0.0;
        };
        const double ours = find("ours");
        text += "| " + l.name + " | " + l.size + " |";
        for (const std::string& n : names) text += find(n) ? " " + number(find(n)) + " |" : " |";
        for (const std::string& n : names)
            if (n != "ours")
                text += !find(n) ? " |" : " " + number(n == "limit" ? ours / find(n) : find(n) / ours) + " |";
        text += " " + number(l.spread) + " |\n";
    }
    return text;
}

std::string Options::folder() const { return std::string("docs/bench/") + k::kLevelNames[k::active_level]; }

// Measures at this level. OpenCV asks for its instructions when it is loaded, so the program begins anew where it is
// not yet held to them.
void choose_level(const std::string& level, char** argv) {
    const auto at = int(std::find(std::begin(k::kLevelNames), std::end(k::kLevelNames), level) - k::kLevelNames);
    if (at > k::active_level) {
        std::cerr << "bench: this processor has no level " << level << "\n";
        std::exit(1);
    }
    // What each level lacks that the next has; Debian's OpenCV stands on SSE3.
    const char* const lacks[] = {"SSSE3,", "SSE4.1,SSE4.2,POPCNT,", "AVX,FP16,FMA3,AVX2,", "AVX512-COMMON,AVX512-SKX,",
                                 ""};
    std::string disabled;
    for (int i = at; i < k::kLevelCount; ++i) disabled += lacks[i];
    if (!disabled.empty()) disabled.pop_back();
    if (at < k::active_level && !getenv("OPENCV_CPU_DISABLE")) {
        setenv("OPENCV_CPU_DISABLE", disabled.c_str(), 1);
        execv("/proc/self/exe", argv);
    }
    k::active_level = at;
}

}  // namespace tarn::bench

int main(int argc, char** argv) {
    using namespace tarn::bench;
    Options options;
    CLI::App app{
        "Measures kernels and operations beside their peers, interleaved in one run. Figures are nanoseconds per "
        "pixel, the "
        "least of many rounds; 'limit' reads and writes the same bytes and computes nothing."};
    app.add_option("--filter", options.filter, "only rows whose name contains this text (also rows without a peer)");
    app.add_option("--family", options.family, "only this family");
    app.add_flag("--levels", options.levels, "each processor level a column");
    app.add_flag("--quick", options.quick, "256 x 256 only, few rounds");
    app.add_option("--addresses", options.addresses, "where planes begin within their pages (default: staggered)")
        ->check(CLI::IsMember({"staggered", "aligned", "unlucky"}));
    app.add_option("--padding", options.padding,
                   "bytes behind every row of a kernel's plane: rows are no longer one run of bytes")
        ->check(CLI::Range(0, 1 << 20));
    std::vector<std::string> sizes;
    app.add_option("--size", sizes,
                   "WxH instead of a row's usual sizes; may be given again (contours, copy-transforms, nets and calls "
                   "keep theirs)")
        ->type_name("WxH");
    app.add_flag("--write", options.write, "write the tables to docs/bench/<level>/<family>.md");
    std::string level;
    app.add_option("--level", level, "a lower processor level, with OpenCV held to the same instructions")
        ->check(
            CLI::IsMember(std::vector<std::string>(std::begin(tarn::k::kLevelNames), std::end(tarn::k::kLevelNames))));
    CLI11_PARSE(app, argc, argv);
    for (const std::string& size : sizes) {
        tarn::cases::Size n;
        if (std::sscanf(size.c_str(), "%dx%d", &n.width, &n.height) != 2 || n.width <= 0 || n.height <= 0) {
            std::cerr << "bench: --size: " << size << " is no size; give one such as 640x480\n";
            return 1;
        }
        options.sizes.push_back(n);
    }

    tarn::k::select_level();
    if (!level.empty()) choose_level(level, argv);
    cv::setNumThreads(1);
    const std::string head =
        machine() + ", one thread, level " + tarn::k::kLevelNames[tarn::k::active_level] + ", " + today();
    if (options.write) std::filesystem::create_directories(options.folder());
    bool any = false;
    std::sort(families().begin(), families().end(),
              [](Family* a, Family* b) { return std::string(a->name) < b->name; });
    for (Family* f : families()) {
        if (!options.family.empty() && options.family != f->name) continue;
        Bench bench(f->name, options);
        f->run(bench);
        if (bench.empty()) continue;
        any = true;
        std::cerr << "\n";
        std::string text = "# Bench: " + std::string(f->name) + "\n\n" + head +
                           ". Nanoseconds per unit (a pixel unless the row says otherwise), the least of interleaved "
                           "rounds; spread: the "
                           "median of ours / the least.\n\n" +
                           bench.table();
        std::cout << text << "\n";
        if (options.write && options.filter.empty())
            std::ofstream(options.folder() + "/" + std::string(f->name) + ".md") << text;
    }
    if (!any) std::cerr << "bench: no row is named so\n";
    return any ? 0 : 1;
}
