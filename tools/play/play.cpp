#include "play/play.h"

#include <dlfcn.h>
#include <setjmp.h>
#include <signal.h>
#include <unistd.h>
#if defined(__x86_64__)
#include <xmmintrin.h>
#endif

#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include "play/library.h"
#include "play/memory.h"

namespace tarn::play {

namespace {

constexpr uint8_t kGuard = 0xa5;
constexpr int64_t kArenaBytes = int64_t(8) << 20;
constexpr int kAround = 256;
constexpr unsigned kSeconds = 20;  // no call takes so long

QuelHOST* host;
std::vector<std::string> level_names;
bool only_highest = false;     // of them beside the lowest
std::vector<Kernels> kernels;  // of the module and its companions

// How calls end that do not return: by a signal, to here.
sigjmp_buf landing;
volatile sig_atomic_t in_call = 0;
std::string last_line;  // of the log

void on_signal(int number) {
    if (in_call) siglongjmp(landing, number);
    signal(number, SIG_DFL);
    raise(number);
}

uint32_t exchange_float_state([[maybe_unused]] uint32_t state) {
#if defined(__x86_64__)
    const uint32_t before = _mm_getcsr();
    _mm_setcsr(state);
    return before;
#else
    return state;
#endif
}

std::string join(const auto& items, auto show) {
    std::string text;
    for (const auto& item : items) text += (text.empty() ? "" : ", ") + show(item);
    return "{" + text + "}";
}
std::string hex(uint32_t word) {
    char text[16];
    snprintf(text, sizeof text, word < 1000 ? "%u" : "0x%x", word);
    return text;
}

// Bytes of a pixel; for a word that names no type as many as any.
int64_t pixel_bytes(uint32_t type) {
    const uint32_t kind = type >> 8 & 15;
    const bool known = kind >= LUMO_KIND_U8 && kind <= LUMO_KIND_F64;
    return int64_t(type >> 12 & 15) * (known ? int64_t(LumoELEMTYPEsizeof(kind << 8)) : 8);
}

// Pixels, the same wherever they stand. Low bits of contents: 0 anything, 1 numbers, 2 a few values, 3 one value.
void fill(uint8_t* row, int64_t bytes, uint32_t type, uint32_t contents, std::mt19937& rng) {
    const auto each = [&]<class T>(T) {
        for (int64_t i = 0; i + int64_t(sizeof(T)) <= bytes; i += sizeof(T)) {
            T value = random_value<T>(rng, contents % 4 == 1);
            if (contents % 4 == 2) value = T(rng() % 3);
            if (contents % 4 == 3) value = T(contents / 4 % 7);
            memcpy(row + i, &value, sizeof value);
        }
    };
    switch (type >> 8 & 15) {
        case LUMO_KIND_S16:
            return each(int16_t());
        case LUMO_KIND_S32:
        case LUMO_KIND_U32:
            return each(int32_t());
        case LUMO_KIND_F32:
            return each(float());
        default:
            return each(uint8_t());
    }
}

// ---- Memory that is watched -----------------------------------------------------------------------------------------

template <class Function>
Function* of_watched_memory(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_DEFAULT, name));
}
const auto fail_nth = of_watched_memory<decltype(KaTESTfailnth)>("KaTESTfailnth");
const auto live_memory = of_watched_memory<decltype(KaTESTlive)>("KaTESTlive");

}  // namespace

bool watches_memory() { return fail_nth && live_memory; }

// Memory of one array or parameter, and what stood in it.
struct Play::Memory {
    explicit Memory() : arena(kArenaBytes) {}
    Arena arena;
    uint8_t *from = nullptr, *to = nullptr;
    std::vector<uint8_t> before;
    static std::deque<Memory>& all() {
        static std::deque<Memory> memories;
        return memories;
    }
};

// ---- Contours -------------------------------------------------------------------------------------------------------

// Takes contours and writes down what it is told.
struct Receiver : TarnCONTOURS {
    Play* play;
    int fail_at;
    int64_t calls = 0, handles = 0;
    std::map<int64_t, std::vector<int64_t>> open;  // handles that are to be given up, and those inside
    int64_t told(const char* what, int64_t a, int64_t b) {
        char text[64];
        snprintf(text, sizeof text, "%s %lld %lld;", what, (long long)(a), (long long)(b));
        play->outcome_.told += text;
        return ++calls == fail_at ? -77 : 0;
    }
    void close(void* handle) {
        if (!open.erase(int64_t(intptr_t(handle)))) play->outcome_.fault = "a handle was given up twice";
    }
    // What lies in a contour that was taken is its receiver's.
    void taken(int64_t handle) {
        for (const int64_t inner : open[handle]) taken(inner);
        open.erase(handle);
    }
    Receiver(Play* play, int fail_at) : play(play), fail_at(fail_at) {
        release = [](TarnCONTOURS* self, void* handle) { static_cast<Receiver*>(self)->close(handle); };
        deliver = [](TarnCONTOURS* self, TarnCONTOUR* contour, void** handle, QuelERR*) {
            Receiver& r = *static_cast<Receiver*>(self);
            uint64_t sum = 0;  // wraps around
            std::vector<int64_t> inside;
            for (const TarnPOINT* p = contour->points.head; p; p = p->next)
                sum = sum * 31 + uint64_t(p->x) * 1009 + uint64_t(p->y);
            for (const TarnCONTOURLIST& list : contour->children)
                for (const TarnCONTOUR* c = list.head; c; c = c->next) {
                    inside.push_back(int64_t(intptr_t(c->handle)));
                    sum = sum * 31 + uint64_t(inside.back());
                }
            const int64_t status = r.told("contour", int64_t(sum), contour->flags);
            if (status) return status;
            *handle = reinterpret_cast<void*>(intptr_t(++r.handles));
            r.open[r.handles] = inside;
            return status;
        };
        notice_top = [](TarnCONTOURS* self, int32_t one, void* handle, QuelERR*) {
            Receiver& r = *static_cast<Receiver*>(self);
            const int64_t status = r.told("top", int64_t(intptr_t(handle)), one);
            if (!status) r.taken(int64_t(intptr_t(handle)));
            return status;
        };
    }
};

// ---- Choices --------------------------------------------------------------------------------------------------------

Play::Play(const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed)
    : setting_(setting), choices_(choices), seed_(seed) {
    fail_nth(0);
    live_ = live_memory();
    fail_nth(setting.failing);
    KaSMEMSTGopen(&record_, nullptr, 0, nullptr);
}

Play::~Play() = default;

uint32_t Play::pick(uint32_t n) {
    if (next_ == choices_.size()) {
        seed_ += seed_ ? 0x9e3779b97f4a7c15 : 0;  // splitmix64 (G. Steele, D. Lea, C. Flood, 2014)
        uint64_t z = (seed_ ^ seed_ >> 30) * 0xbf58476d1ce4e5b9;
        z = (z ^ z >> 27) * 0x94d049bb133111eb;
        choices_.push_back(uint32_t((z ^ z >> 31) >> 16) % n);
    }
    return choices_[next_++] % n;
}

Size Play::size() {
    const uint32_t which = pick(24);
    if (which == 23) return {between(-1, 0), int(pick(9))};
    if (which == 22) return {int(pick(2000)), int(pick(4))};
    if (which == 21) return {int(pick(40)), int(pick(300))};
    const int width = int(pick(71));
    return {width, int(pick(which < 10 ? 8 : 71))};
}

uint32_t Play::type(std::initializer_list<uint32_t> kinds, bool hostile) {
    if (hostile && chance(24)) return pick(1 << 16) | (chance(4) ? pick(1 << 16) << 16 : 0);
    const uint32_t kind = kinds.begin()[pick(uint32_t(kinds.size()))];
    return kind | LUMO_CHANNELS(1 + pick(4));
}

uint32_t Play::real() {
    static constexpr float kReals[] = {0,     1,      -1,    0.5f,   -0.5f,   2,      1.5f,     127.5f,
                                       255,   256,    -0.0f, 300,    32767,   -32768, 65536,    3e9f,
                                       -3e9f, 1e-40f, 1e30f, -1e30f, 3.4e38f, NAN,    INFINITY, -INFINITY};
    const uint32_t which = pick(std::size(kReals) + 8);
    float value = which < std::size(kReals) ? kReals[which] : 0;
    if (which >= std::size(kReals)) value = float(int(pick(8000)) - 4000) / 16;
    return __builtin_bit_cast(uint32_t, value);
}
std::vector<uint32_t> Play::reals(int count) {
    std::vector<uint32_t> all;
    while (int(all.size()) < count) all.push_back(real());
    return all;
}

Place Play::plane_of(uint32_t type, Size n, Role role, uint32_t modes) {
    const int layout = int(pick(32));
    const uint32_t mode = modes == 4 ? pick(4) : modes;
    return plane(type, n.width, n.height, layout, pick(1000) * 4 + mode, role);
}
Place Play::dst(uint32_t type, Size n) {
    if (chance(6)) n.width += int(pick(4)), n.height += int(pick(3));
    return plane_of(type, n, out);
}
Place Play::operand(Place dst, uint32_t type, Size n, bool null) {
    const uint32_t which = pick(null ? 6 : 5);
    return which < 4 ? src(type, n) : which == 4 ? dst : Place();
}
Play::Pair Play::overlapping(uint32_t type, Size n) {
    n.width = n.width < 0 ? 0 : n.width;
    const int x = int(pick(4)), y = int(pick(4)), right = int(pick(4)), bottom = int(pick(4));
    const Place both = plane_of(type, {n.width + 3, n.height + 3}, in);
    const Place dst = view(both, x, y, n.width, n.height, out);
    return {dst, view(both, right, bottom, n.width, n.height, in)};
}
Place Play::region_of(Size n) {
    const uint32_t which = pick(8);
    if (which < 3 || n.width <= 0 || n.height <= 0) return {};
    std::vector<uint32_t> edges;
    if (which == 7) {
        for (int i = 0; i < 4; ++i) edges.push_back(of({0, 1, 5, ~0u, 0x7fffffff, 0x80000000, 40}));
    } else {
        const uint32_t left = pick(uint32_t(n.width)), top = pick(uint32_t(n.height));
        edges = {left, top, uint32_t(n.width) - pick(uint32_t(n.width) - left),
                 uint32_t(n.height) - pick(uint32_t(n.height) - top)};
    }
    return words(edges);
}

// ---- Making ---------------------------------------------------------------------------------------------------------

std::string Play::show(Place place) { return place.at ? "a" + std::to_string(place.number) : "Place()"; }

Place Play::named(void* at, const std::string& text) {
    const Place place{at, places_++};
    outcome_.text += "    const Place " + show(place) + " = p." + text + ";\n";
    return place;
}

uint8_t* Play::take(int64_t bytes, bool at_start, int shift) {
    auto& all = Memory::all();
    if (memories_ == all.size()) all.emplace_back();
    Memory& m = all[memories_++];
    if (bytes + shift > kArenaBytes) {
        fprintf(stderr, "an array of %lld bytes is too large for its memory\n", (long long)(bytes));
        exit(2);
    }
    uint8_t* at = at_start ? m.arena.begin() + shift : m.arena.end() - bytes;
    m.from = std::max(m.arena.begin(), at - kAround), m.to = std::min(m.arena.end(), at + bytes + kAround);
    memset(m.from, kGuard, size_t(m.to - m.from));
    return at;
}

void Play::written(uint8_t* data, int64_t stride, int64_t row_bytes, int rows, Role role) {
    Memory& m = Memory::all()[memories_ - 1];
    m.before.assign(m.from, m.to);
    if (role != in) written_.push_back({data, stride, row_bytes, rows, role});
}

void Play::surroundings(bool errors, bool storage) {
    errors_ = errors, storage_ = storage;
    outcome_.text +=
        std::string("    p.surroundings(") + (errors ? "true, " : "false, ") + (storage ? "true" : "false") + ");\n";
}

static const char* const kRoles[] = {"in", "out", "scratch"};

Place Play::plane(uint32_t type, int width, int height, int layout, uint32_t contents, Role role) {
    static constexpr int kPaddings[] = {0, 1, 5, 16};
    const std::string text = "plane(" + hex(type) + ", " + std::to_string(width) + ", " + std::to_string(height) +
                             ", " + std::to_string(layout) + ", " + std::to_string(contents) + ", " + kRoles[role] +
                             ")";
    if (!setting_.laid_out) layout = 0;
    const int64_t row = std::max(width, 0) * pixel_bytes(type), pitch = row + kPaddings[layout & 3];
    const int rows = std::max(height, 0);
    const bool upwards = layout >> 2 & 1;
    uint8_t* lowest = take(rows ? pitch * (rows - 1) + row : 0, layout >> 3 & 1, layout >> 4);
    uint8_t* first = upwards && rows ? lowest + pitch * (rows - 1) : lowest;
    std::mt19937 rng(contents);
    const int64_t stride = upwards ? -pitch : pitch;
    for (int y = 0; y < rows; ++y) fill(first + y * stride, row, type, contents, rng);
    written(first, stride, row, rows, role);
    mats_.push_back({"", type, width, height, int32_t(stride), first});
    return named(&mats_.back(), text);
}

Place Play::view(Place of, int x, int y, int width, int height, Role role) {
    const LumoMAT& m = mat(of);
    uint8_t* data = static_cast<uint8_t*>(m.data) + int64_t(y) * m.stride + x * pixel_bytes(m.elemtype);
    if (role != in && width > 0 && height > 0)
        written_.push_back({data, m.stride, width * pixel_bytes(m.elemtype), height, role});
    mats_.push_back({"", m.elemtype, width, height, m.stride, data});
    return named(&mats_.back(), "view(" + show(of) + ", " + std::to_string(x) + ", " + std::to_string(y) + ", " +
                                    std::to_string(width) + ", " + std::to_string(height) + ", " + kRoles[role] + ")");
}

template <class T>
Place Play::record(const T* items, size_t count, const std::string& text, Role role) {
    const int64_t bytes = int64_t(sizeof(T) * count);
    uint8_t* at = take(bytes, false, 0);
    if (count) memcpy(at, items, size_t(bytes));
    written(at, bytes, bytes, 1, role);
    return named(at, text);
}

Place Play::words(const std::vector<uint32_t>& words, Role role) {
    return record(words.data(), words.size(), "words(" + join(words, hex) + ", " + kRoles[role] + ")", role);
}
Place Play::doubles(const std::vector<double>& values) {
    const auto exact = [](double value) {
        char text[40];
        snprintf(text, sizeof text, "%.17g", value);
        return std::string(std::isfinite(value) ? text
                           : std::isnan(value)  ? "NAN"
                           : value < 0          ? "-INFINITY"
                                                : "INFINITY");
    };
    return record(values.data(), values.size(), "doubles(" + join(values, exact) + ")");
}
Place Play::list(const std::vector<Place>& places) {
    std::vector<void*> pointers;
    for (const Place& place : places) pointers.push_back(place.at);
    return record(pointers.data(), pointers.size(), "list(" + join(places, [](Place p) { return show(p); }) + ")");
}

Place Play::array(Place plane, const char* layout, uint32_t type, uint32_t cls, Size n, int channels, int batch) {
    const LumoMAT& m = mat(plane);
    LumoARRAY a = {type, cls, {}, {n.width, n.height, channels, batch}, {}, m.data};
    snprintf(a.layout.dims, sizeof a.layout.dims, "%s", layout);
    const int64_t element = int64_t(LumoELEMTYPEsizeof(type)), rows = int64_t(m.stride) * n.height;
    const bool planar = a.layout.dims[0] == 'C' || a.layout.dims[1] == 'C';
    const int64_t strides[] = {planar ? element : element * channels, m.stride, planar ? rows : element,
                               planar ? rows * channels : rows};
    memcpy(a.stride, strides, sizeof strides);
    const std::string numbers = hex(type) + ", " + std::to_string(cls) + ", {" + std::to_string(n.width) + ", " +
                                std::to_string(n.height) + "}, " + std::to_string(channels) + ", " +
                                std::to_string(batch);
    return record(&a, 1, "array(" + show(plane) + ", \"" + layout + "\", " + numbers + ")");
}

Place Play::specs(const std::vector<uint32_t>& words, Place reference) {
    std::vector<TarnTHRSPEC> all;
    const auto real = [&](size_t i) { return __builtin_bit_cast(float, words[i]); };
    for (size_t i = 0; i + 7 <= words.size(); i += 7)
        all.push_back({words[i], int32_t(words[i + 1]), real(i + 2), real(i + 3), reference, real(i + 4), real(i + 5),
                       words[i + 6], 0});
    return record(all.data(), all.size(), "specs(" + join(words, hex) + ", " + show(reference) + ")", scratch);
}

Place Play::layers(const std::vector<Place>& weights, const std::vector<Place>& biases,
                   const std::vector<uint32_t>& codes) {
    std::vector<TarnLayer> all;
    for (size_t i = 0; i < codes.size(); ++i) all.push_back({weights[i], biases[i], int32_t(codes[i]), 0});
    const auto name = [](Place p) { return show(p); };
    return record(all.data(), all.size(),
                  "layers(" + join(weights, name) + ", " + join(biases, name) + ", " + join(codes, hex) + ")");
}

Place Play::receiver(int fail_at) {
    return named(static_cast<TarnCONTOURS*>(&receivers_.emplace_back(this, fail_at)),
                 "receiver(" + std::to_string(fail_at) + ")");
}

void Play::poke(Place array, int64_t offset, uint32_t value) {
    static_cast<uint8_t*>(mat(array).data)[offset] ^= uint8_t(1 + value % 255);
    outcome_.text +=
        "    p.poke(" + show(array) + ", " + std::to_string(offset) + ", " + std::to_string(value) + ");\n";
}

void Play::may_end() {
    may_end_ = true;
    outcome_.text += "    p.may_end();\n";
}

void Play::must_refuse() {
    must_refuse_ = true;
    outcome_.text += "    p.must_refuse();\n";
}

// ---- Calls ----------------------------------------------------------------------------------------------------------

int64_t Play::call_and_watch(const char* name, const std::string& shown, const Call& call) {
    struct Typed {
        const char *name, *type;
    };
    static constexpr Typed kTypes[] = {
#define SLOT(number, name, qualified, function, Type) {name, #Type},
#define SERVED SLOT
#define OTHER(...)
#include "ipp/slots.def"
    };
    if (ended_) return -1;  // deliberate: a body's calls end with the first that ended the process
    for (const Typed& t : kTypes)
        if (!strcmp(t.name, name))
            outcome_.text += std::string("    p.call<") + t.type + ">(\"" + name + "\"" + shown + ");\n";
    QuelERR err = {};
    QuelOP op;
    if (QuelHOSTfind(host, name, &op, &err)) {
        outcome_.fault = err.last.text;
        return -1;
    }
    for (const Kernels& k : kernels) {
        *k.level = setting_.level;
        if (!k.stream_bytes) continue;
        static const int64_t usual = *k.stream_bytes;
        *k.stream_bytes = setting_.streaming ? 0 : usual;
    }
    last_line.clear();
    volatile int64_t result = -1;
    volatile uint32_t mine = 0;
    alarm(kSeconds);
    const int ended = sigsetjmp(landing, 1);
    if (!ended) {
        in_call = 1;
        mine = exchange_float_state(setting_.float_state);
        result = call(op, errors_ ? &err : nullptr, storage_ ? &record_ : nullptr);
    }
    in_call = 0;
    const uint32_t left = exchange_float_state(mine);
    alarm(0);
    ended_ = ended != 0;
    const std::string who = std::string(name) + ": ";
    if (ended && (ended != SIGABRT || (last_line.empty() && !may_end_)))
        outcome_.fault = who + (ended == SIGALRM ? "takes too long" : std::string("ended by: ") + strsignal(ended));
    else if (!ended && (left ^ setting_.float_state) & 0xffc0)
        outcome_.fault = who + "left the float unit in another state";
    else if (must_refuse_ && result >= 0)
        outcome_.fault = who + "served what it must refuse";
    must_refuse_ = false;
    outcome_.refused |= result < 0;
    outcome_.told += who + (ended ? "ended, " + last_line : std::to_string(result));
    if (errors_ && !ended)
        outcome_.told += ", " + std::to_string(err.count) + " " + std::to_string(err.status) + " " +
                         (err.count ? err.last.text : "");
    outcome_.told += "\n";
    return result;
}

void Play::finish(Outcome* outcome) {
    auto& all = Memory::all();
    if (!ended_ && record_.live && outcome_.fault.empty()) outcome_.fault = "blocks of the caller's storage were kept";
    KaMEMSTGdestroy(&record_.base);
    const uint64_t made = fail_nth(0);
    const KaTESTLIVE live = live_memory();
    outcome_.allocations = made;
    if (!ended_ && outcome_.fault.empty() && (live.storages != live_.storages || live.blocks != live_.blocks))
        outcome_.fault = "memory or storages were kept";
    for (const Receiver& r : receivers_)
        if (!ended_ && !r.open.empty() && outcome_.fault.empty()) outcome_.fault = "handles were not given up";
    for (const Written& w : written_)
        for (int y = 0; w.role == out && y < w.rows; ++y)
            outcome_.written.insert(outcome_.written.end(), w.data + y * w.stride, w.data + y * w.stride + w.row_bytes);
    for (size_t i = 0; i < memories_; ++i) {
        Memory& m = all[i];
        for (const Written& w : written_)
            for (int y = 0; w.data >= m.from && w.data <= m.to && y < w.rows; ++y)
                memcpy(w.data + y * w.stride, m.before.data() + (w.data + y * w.stride - m.from), size_t(w.row_bytes));
        if (memcmp(m.from, m.before.data(), m.before.size()) && outcome_.fault.empty())
            outcome_.fault = "wrote outside of what it was given to write, in the memory of a" + std::to_string(i);
    }
    *outcome = std::move(outcome_);
}

// ---- Plays ----------------------------------------------------------------------------------------------------------

std::string load(const char* path) {
    static LumoLOGGER logger = {4, 0, [](void*, int32_t, const char* line) { last_line = line; }, nullptr};
    _G_Lumo_default_logger = &logger;
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGALRM}) signal(number, on_signal);
    QuelERR err = {};
    host = QuelHOSTopen(&err);
    if (!host || QuelHOSTload(host, path, &err)) return err.last.text;
    const auto own = kernels_of(QuelHOSTmodule(host));
    if (own) level_names = own->levels;
    const char* which = getenv("TARN_LEVELS");
    only_highest = which && strcmp(which, "ends") == 0;
    kernels = kernels_of_table(QuelHOSTtable(host));
    return {};
}

const std::vector<std::string>& levels() { return level_names; }

bool implemented(const Operation& operation) {
    QuelOP op;
    if (QuelHOSTfind(host, operation.name, &op, nullptr)) return false;
    return QuelHOSTiface(host)->slots[op.call.slot].entry == op.entry;
}

Setting draw_setting(uint64_t seed) {
    std::vector<uint32_t> draws;
    Play by(Setting(), draws, seed);
    Setting setting;
    setting.level = level_names.empty() ? 0 : int(by.pick(uint32_t(level_names.size())));
    if (only_highest && setting.level > 0) setting.level = int(level_names.size()) - 1;
    setting.float_state = by.chance(3) ? 0x1f80 : 0x1f80 | by.pick(4) << 13 | by.pick(2) << 15 | by.pick(2) << 6;
    setting.streaming = by.chance(6);
    setting.laid_out = by.pick(8) != 0;
    Outcome unused;
    by.finish(&unused);
    return setting;
}

Outcome play(const Operation& operation, const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed) {
    Outcome outcome;
    Play p(setting, choices, seed);
    if (operation.drawn) p.surroundings();
    operation.body(p, operation.name);
    p.finish(&outcome);
    return outcome;
}

std::string wrong(const Operation& operation, const Setting& setting, std::vector<uint32_t>& choices, uint64_t seed,
                  uint64_t* count) {
    const Outcome first = play(operation, Setting(), choices, seed), other = play(operation, setting, choices, 0);
    *count += 2;
    if (!first.fault.empty()) return "level 0: " + first.fault;
    if (!other.fault.empty()) return other.fault;
    if (first.told != other.told) return "told\n" + other.told + "and at level 0\n" + first.told;
    for (size_t i = 0; i < first.written.size(); ++i)
        if (first.written[i] != other.written[i])
            return "byte " + std::to_string(i) + " of what is written is " + hex(other.written[i]) + ", at level 0 " +
                   hex(first.written[i]);
    for (uint64_t n = 1; n <= other.allocations && n <= 12; ++n) {
        Setting failing = setting;
        failing.failing = n;
        const Outcome failed = play(operation, failing, choices, 0);
        ++*count;
        const std::string which = "allocation " + std::to_string(n) + " failing: ";
        if (!failed.fault.empty()) return which + failed.fault;
        if (!failed.refused && (failed.told != other.told || failed.written != other.written))
            return which + "neither refused nor done";
    }
    return {};
}

std::string shrunk(const Operation& operation, Setting setting, std::vector<uint32_t> choices) {
    uint64_t plays = 0;
    const auto fails = [&](const Setting& s, std::vector<uint32_t> c) {
        return !wrong(operation, s, c, 0, &plays).empty();
    };
    const auto try_setting = [&](auto change) {
        Setting simpler = setting;
        change(simpler);
        if (fails(simpler, choices)) setting = simpler;
    };
    try_setting([](Setting& s) { s.float_state = 0x1f80; });
    try_setting([](Setting& s) { s.streaming = false; });
    try_setting([](Setting& s) { s.laid_out = false; });
    for (bool better = true; better && plays < 4000;) {
        better = false;
        for (size_t i = 0; i < choices.size() && plays < 4000; ++i)
            for (const uint32_t divisor : {0u, 2u, 1u}) {
                if (!choices[i]) break;
                std::vector<uint32_t> simpler = choices;
                simpler[i] = !divisor ? 0 : divisor == 2 ? simpler[i] / 2 : simpler[i] - 1;
                if (!fails(setting, simpler)) continue;
                choices = simpler;
                better = true;
                break;
            }
    }
    const std::string what = wrong(operation, setting, choices, 0, &plays);
    char head[160];
    snprintf(head, sizeof head, "FOUND(%s, (Setting{%d, 0x%x, %s, %s})) {\n", operation.name, setting.level,
             setting.float_state, setting.streaming ? "true" : "false", setting.laid_out ? "true" : "false");
    std::string comment = "// " + what;
    for (size_t at = 0; (at = comment.find('\n', at)) != std::string::npos; at += 4) comment.replace(at, 1, "\n// ");
    return comment + "\n" + head + play(operation, Setting(), choices, 0).text + "}\n";
}

}  // namespace tarn::play
