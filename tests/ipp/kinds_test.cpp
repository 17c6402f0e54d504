// The published table of kinds: every operation called with every type, in a process of its own, and what becomes of
// it.
#include "tarn_kinds.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>

#include "ipp/fixture.h"

using namespace tarn::test;

namespace {

enum Outcome { kNothing, kError, kWritten, kEnded };

// The arrays of a call, in the type that it is about; of the two of a conversion the other is u8.
struct Scene {
    Scene(const TarnKINDS& row, LumoELEMTYPE type)
        : name(row.operation),
          calls(row.calls),
          other((type & 0xf000) | LUMO_U8),
          dst(Array(of(row, "src", type), 8, 4).filled(1)),
          src(Array(of(row, "dst", type), 8, 4).filled(2)),
          wide(Array(src.mat.elemtype, 16, 8).filled(3)) {}
    LumoELEMTYPE of(const TarnKINDS& row, const char* array, LumoELEMTYPE type) const {
        const bool converts = TarnKINDSfind(row.operation, 0) && TarnKINDSfind(row.operation, 1);
        return converts && std::strcmp(row.array, array) == 0 ? other : type;
    }

    // The operation's result: below 0, or NaN, with an error value.
    template <class Fn, class... Args>
    double go(Args... args) {
        return double(call<Fn>(name, &err, nullptr, args...));
    }

    const char *name, *calls;
    LumoELEMTYPE other;
    Array dst, src, wide, grey = Array(u8(1), 8, 4).filled(4);
    float results[4] = {-9, -9, -9, -9};
    QuelERR err = {};
};

LumoARRAY array_of(const Array& a, int32_t width) {
    LumoARRAY parms;
    const int32_t sizes[] = {a.mat.height, width, a.channels};
    const int64_t strides[] = {a.mat.stride, a.channels * a.element_bytes, a.element_bytes};
    EXPECT_TRUE(LumoARRPARMS(&parms, 3, sizes, strides, &_G_Lumo_HWC_arrlo, a.mat.elemtype, 0));
    parms.data = a.mat.data;
    return parms;
}

LumoMAT state_of(LumoELEMTYPE type, KaSMEMSTG* storage) {
    const int32_t sizes[] = {4, 8};
    LumoARRAY region;
    LumoMAT state = {};
    LumoARRPARMS(&region, 2, sizes, _G_Lumo_strides_corder, &(const LumoARRLO&)LumoARRLO{"HW"}, type, 0);
    call<TarnInitmorphstate>("initmorphstate", nullptr, storage, &state, uint32_t(TARN_MORPH_BASIC), &region, nullptr,
                             nullptr);
    return state;
}

double run_operation(Scene& s) {
    static const float ones[4] = {1, 1, 1, 1}, range[2] = {10, 20};
    static const uint32_t words[4] = {3, 5, 9, 17};
    const LumoMAT* const sources[] = {&s.src, &s.wide};
    LumoMAT *const dsts[] = {&s.dst}, *d = &s.dst;
    const LumoMAT *src = &s.src, *none = nullptr;
    TarnTHRSPEC spec = {TARN_GREATER, TARN_ALL_CHANNELS, 100, 0, src, 7, 9, 0, 0};
    const auto is = [&](std::initializer_list<const char*> names) {
        return std::any_of(names.begin(), names.end(),
                           [&](const char* n) { return std::string("tarn::") + n == s.name; });
    };
    if (is({"copy"})) return s.go<TarnCopy>(d, src);
    if (is({"and", "or", "xor"})) return s.go<TarnLogic>(d, src, &s.wide.mat);
    if (is({"and-c", "or-c", "xor-c"})) return s.go<TarnLogicC>(d, src, words);
    if (is({"not"})) return s.go<TarnNot>(d, src);
    if (is({"set"})) return s.go<TarnSet>(d, ones, none);
    if (is({"add-c", "sub-c", "mul-c"})) return s.go<TarnArithC>(d, src, ones);
    if (is({"add-n", "sub-n", "mul-n", "avgarith-n"})) return s.go<TarnArithN>(d, 2, sources);
    if (is({"cmp"})) return s.go<TarnCmp>(&s.grey.mat, src, &s.wide.mat, uint32_t(TARN_LESS));
    if (is({"cmp-c"})) return s.go<TarnCmpC>(&s.grey.mat, src, ones, uint32_t(TARN_LESS));
    if (is({"minmax"})) return s.go<TarnMinMax>(s.results, s.results, src);
    if (is({"mean"})) return s.go<TarnMean>(s.results, src);
    if (is({"count-in-range"}))
        return s.go<TarnCountInRange>(reinterpret_cast<int32_t*>(s.results), src, nullptr, nullptr);
    if (is({"cvtvrange-v"})) return s.go<TarnCvtvrangeV>(d, range);
    if (is({"cvtvrange-n"})) return s.go<TarnCvtvrangeN>(uint64_t(1), dsts, range);
    if (is({"cvtorigin"})) return s.go<TarnCvtorigin>(d, 0u, 1u);
    if (is({"cvtorigin-n"})) return s.go<TarnCvtoriginN>(uint64_t(1), dsts, 0u, 1u);
    if (is({"convert-scale"})) return s.go<TarnConvertScale>(d, src, ones, ones);
    if (is({"reshape"})) return s.go<TarnReshape>(d, src, 0u);
    if (is({"scale-resize"})) return s.go<TarnScaleResize>(d, &s.wide.mat, nullptr, nullptr, uint32_t(TARN_LINEAR));
    if (is({"warp-affine-quad"}))
        return s.go<TarnWarpAffineQuad>(d, &s.wide.mat, nullptr, nullptr, uint32_t(TARN_LINEAR));
    if (is({"warp-affine"})) {
        const LumoAWARP same = {1, 0, 0, 0, 1, 0};
        return s.go<TarnWarpAffine>(d, &s.wide.mat, &same, uint32_t(TARN_LINEAR));
    }
    if (is({"copymkb"})) {
        const TarnBORDER border = {2, 1, 2, 1, {}};
        s.src.mat.width = 4, s.src.mat.height = 2;
        return s.go<TarnCopymkb>(d, src, uint32_t(TARN_BORDER_REPLICATE), &border);
    }
    if (is({"filter"}))
        return s.go<TarnFilter>(d, src, nullptr, uint32_t(*s.calls ? TARN_FILTER_MEDIAN : TARN_FILTER_BOX), nullptr);
    if (is({"threshold"})) return s.go<TarnThreshold>(d, src, nullptr, nullptr, uint64_t(1), &spec);
    if (is({"threshold-imm", "threshold-adapt"})) return s.go<TarnThresholdImm>(d, src, uint64_t(1), &spec);
    if (is({"calcthresh-otsu"})) return s.results[0] = s.go<TarnCalcthreshOtsu>(src, range, 16);
    if (is({"copy-transform"})) {
        const LumoARRAY to = array_of(s.dst, *s.calls ? 4 : 8), from = array_of(s.src, 8);
        return s.go<TarnCopyTransform>(&to, &from, nullptr, TARN_LINEAR);
    }
    Storage storage;
    const LumoMAT state = state_of(s.dst.mat.elemtype, &storage);
    if (is({"initmorphstate"})) return s.results[0] = state.data ? 1 : -9;
    if (is({"morphop-n"})) {
        const LumoMAT of_grey = state_of(u8(1), &storage);
        return s.go<TarnMorphopN>(state.data ? &state : &of_grey, uint32_t(TARN_MORPH_ERODE), int64_t(1), dsts, sources,
                                  nullptr);
    }
    if (is({"contour::find"})) {
        TarnCONTOURS output = {[](TarnCONTOURS*, void*) {},
                               [](TarnCONTOURS*, TarnCONTOUR*, void**, QuelERR*) { return int64_t(0); },
                               [](TarnCONTOURS*, int32_t, void*, QuelERR*) { return int64_t(0); }};
        return s.results[0] = s.go<TarnContourFind>(&output, src, 0u);
    }
    s.dst.mat.cls = "am";  // it is there
    s.dst.mat.width = 4;
    const TarnLayer layer = {src, nullptr, TARN_ACTIVATION_NONE, 0};
    return is({"multi-line-neuronet"}) ? s.go<TarnMultiLineNeuronet>(d, src, uint64_t(1), &layer) : NAN;
}

Outcome outcome(const TarnKINDS& row, LumoELEMTYPE type) {
    const pid_t child = fork();
    if (child == 0) {
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
        Scene s(row, type);
        const Array dst = s.dst, grey = s.grey;
        const double result = run_operation(s);
        const bool written = s.dst.memory != dst.memory || s.grey.memory != grey.memory || s.results[0] != -9;
        _exit(s.err.count && !(result >= 0) ? kError : written ? kWritten : kNothing);
    }
    int how = 0;
    waitpid(child, &how, 0);
    return WIFEXITED(how) ? Outcome(WEXITSTATUS(how)) : kEnded;
}

bool as_told(int other, LumoELEMTYPE type, Outcome seen) {
    switch (other) {
        case TARN_OTHERS_ERROR:
            return seen == kError;
        case TARN_OTHERS_NOTHING:
            return seen == kNothing;
        case TARN_OTHERS_END:
            return seen == kEnded;
        case TARN_OTHERS_WRONG:
            return seen == kWritten || seen == kNothing;
        case TARN_OTHERS_COPY:
            return as_told(TarnKINDSother(TarnKINDSfind("tarn::copy", 0), type), type, seen);
        default:
            return seen == kWritten;
    }
}

}  // namespace

TEST(kinds, are_served_as_the_table_tells_and_others_meet_what_it_tells) {
    uint64_t count;
    const TarnKINDS* rows = TarnKINDStable(&count);
    host();
    for (const TarnKINDS* row = rows; row < rows + count; ++row)
        for (LumoELEMTYPE kind : {LUMO_U8, LUMO_S16, LUMO_S32, LUMO_U32, LUMO_F32, LUMO_F64})
            for (int n = 1; n <= 5; ++n) {
                const LumoELEMTYPE type = kind | LUMO_CHANNELS(n);
                const int other = TarnKINDSother(row, type);
                const Outcome seen = outcome(*row, type);
                EXPECT_TRUE(as_told(other, type, seen))
                    << row->operation << " " << row->calls << ", " << row->array << " of " << show(type) << ": told "
                    << other << ", seen " << seen;
            }
}

TEST(kinds, have_a_row_for_every_operation_of_the_module_that_takes_arrays) {
    const QuelIFACE& iface = *QuelHOSTiface(host());
    uint64_t count;
    const TarnKINDS* rows = TarnKINDStable(&count);
    for (uint64_t i = 0; i < iface.slot_count; ++i) {
        const QuelSLOT& slot = iface.slots[i];
        if (!slot.entry || slot.entry == QUEL_ENTRY_DECLARED || std::strncmp(slot.qualified, "tarn::", 6) != 0)
            continue;
        EXPECT_TRUE(std::any_of(rows, rows + count, [&](const TarnKINDS& row) {
            return std::strcmp(row.operation, slot.qualified) == 0;
        })) << slot.qualified;
    }
}
