// Contour find where it is hard: large and deep pictures on a small stack, wrong arguments, and every allocation and
// callback failing.
#include <pthread.h>

#include "ipp/contours_collector.h"

using namespace tarn::test;

namespace {

// Runs body on a thread whose stack holds less than ten bytes for each of the levels that the rings below nest: a
// recursion of any kind would overflow it, as 10^6 levels would overflow a usual stack.
template <class Body>
void on_small_stack(Body body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, kSlowBuild ? 512 << 10 : 64 << 10), 0);
    pthread_t thread;
    const auto run = [](void* b) -> void* {
        (*static_cast<Body*>(b))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// Counts, for pictures with too many contours to keep.
struct Counter : TarnCONTOURS {
    Counter() : TarnCONTOURS{release, deliver, top} {}
    int64_t outers = 0, holes = 0, points = 0, tops = 0, released = 0, inside = 0;
    int64_t twice_area = 0;  // outer outlines' less holes'
    int64_t fail_at = 0;     // the delivery that fails
    bool fail_top = false;
    static void release(TarnCONTOURS* self, void*) { ++static_cast<Counter*>(self)->released; }
    static int64_t top(TarnCONTOURS* self, int32_t, void*, QuelERR*) {
        Counter& c = *static_cast<Counter*>(self);
        return c.fail_top ? -9 : (++c.tops, 0);
    }
    static int64_t deliver(TarnCONTOURS* self, TarnCONTOUR* contour, void** handle, QuelERR*) {
        Counter& c = *static_cast<Counter*>(self);
        if (c.outers + c.holes + 1 == c.fail_at) return -8;
        ++(contour->flags & TARN_CONTOUR_HOLE ? c.holes : c.outers);
        c.points += int64_t(contour->points.count);
        const TarnPOINT* before = contour->points.tail;
        for (const TarnPOINT* p = contour->points.head; p; before = p, p = p->next)
            c.twice_area += int64_t(before->x) * p->y - int64_t(p->x) * before->y;
        c.inside += int64_t(contour->children[0].count + contour->children[1].count);
        *handle = contour;
        return 0;
    }
};

int64_t set_pixels(const Bitmap& m) {
    return std::count_if(m.pixels.begin(), m.pixels.end(), [](uint8_t p) { return p > 0; });
}

// Rings around the middle, one pixel wide, one pixel apart, the outermost away from the frame.
Bitmap rings(int count) {
    const int side = 4 * count + 1;
    return drawn(side, side, [&](int x, int y) { return std::min({x, y, side - 1 - x, side - 1 - y}) % 2 == 1; });
}

// One pixel wide and one apart, from the corner inwards.
Bitmap spiral(int side) {
    Bitmap m = drawn(side, side, [](int, int) { return 0; });
    int x = 0, y = 0, dx = 1, dy = 0;
    m.pixels[0] = 1;
    const auto inside = [&](int i, int j) { return i >= 0 && j >= 0 && i < side && j < side; };
    const auto open = [&] {
        const int i = x + dx, j = y + dy;
        return inside(i, j) && !m.at(i, j) && !(inside(i + dx, j + dy) && m.at(i + dx, j + dy));
    };
    for (;;) {
        if (!open()) {
            std::swap(dx, dy);
            dx = -dx;
            if (!open()) return m;
        }
        x += dx, y += dy;
        m.pixels[size_t(y) * side + x] = 1;
    }
}

}  // namespace

TEST(contours_hard, rings_within_rings_need_no_stack) {
    const int count = kSlowBuild ? 200 : 4000;
    const Bitmap m = rings(count);
    on_small_stack([&] {
        Counter all;
        EXPECT_EQ(find_contours(&all, m, TARN_CONTOURS_OF_ONES), 0);
        EXPECT_EQ(all.outers, count);
        EXPECT_EQ(all.holes, count);
        EXPECT_EQ(all.tops, 1);
        EXPECT_EQ(all.inside, 2 * count - 1);
        EXPECT_EQ(all.twice_area, 2 * set_pixels(m));

        Counter both;
        EXPECT_EQ(find_contours(&both, m, TARN_CONTOURS_DIAGONAL_ONES), 0);
        EXPECT_EQ(both.outers, 2 * count);
        EXPECT_EQ(both.tops, 1);

        // The notice fails, when all hang in one another; and the last delivery.
        Counter top;
        top.fail_top = true;
        EXPECT_EQ(find_contours(&top, m, TARN_CONTOURS_OF_ONES), -9);
        EXPECT_EQ(top.released, 2 * count);
        for (uint32_t flags : {1u, 8u}) {
            Counter last;
            last.fail_at = 2 * count;
            EXPECT_EQ(find_contours(&last, m, flags), -8);
            EXPECT_EQ(last.released, 2 * count - 1);
        }
    });
}

TEST(contours_hard, pictures_made_to_be_hard) {
    const int n = kSlowBuild ? 64 : 1024, large = kSlowBuild ? 1024 : 16384;
    const auto checks = [](int x, int y) { return (x + y) % 2; };
    const struct {
        const char* name;
        Bitmap image;
        uint32_t flags;
        int64_t outers, holes;
    } rows[] = {
        {"checkerboard, parted", drawn(n, n, checks), 1, n * n / 2, 0},
        {"checkerboard, joined", drawn(n, n, checks), 9, 1, (n - 2) * (n - 2) / 2},
        {"checkerboard, zeros joined", drawn(n, n, checks), 6, 1, (n - 2) * (n - 2) / 2},
        {"spiral", spiral(n), 1, 1, 0},
        {"spiral between", spiral(n), 2, 1, 0},
        {"comb, teeth down", drawn(n, n, [](int x, int y) { return y == 0 || x % 2; }), 1, 1, 0},
        {"comb, teeth up", drawn(n, n, [&](int x, int y) { return y == n - 1 || x % 2; }), 1, 1, 0},
        {"grate", drawn(n, n, [&](int x, int y) { return y == 0 || y == n - 1 || x % 2; }), 1, 1, n / 2 - 1},
        {"lines", drawn(n, n, [](int, int y) { return y % 2; }), 1, n / 2, 0},
        {"columns", drawn(n, n, [](int x, int) { return x % 2; }), 1, n / 2, 0},
        {"dots", drawn(n, n, [](int x, int y) { return x % 2 && y % 2; }), 9, n * n / 4, 0},
        {"holes", drawn(n, n, [](int x, int y) { return !(x % 2 && y % 2); }), 2, n * n / 4, 0},
        {"all zeros", drawn(n, n, [](int, int) { return 0; }), 1, 0, 0},
        {"one row", drawn(100000, 1, checks), 1, 50000, 0},
        {"one column", drawn(1, 100000, checks), 1, 50000, 0},
        {"large", drawn(large, large, [](int x, int y) { return x / 32 % 2 && y / 32 % 2; }), 1,
         large / 64 * (large / 64), 0},
    };
    for (const auto& [name, image, flags, outers, holes] : rows)
        on_small_stack([&, name = name, &image = image, flags = flags, outers = outers, holes = holes] {
            Counter out;
            EXPECT_EQ(find_contours(&out, image, flags), 0) << name;
            EXPECT_EQ(out.outers, outers) << name;
            EXPECT_EQ(out.holes, holes) << name;
            const int64_t ones = set_pixels(image);
            EXPECT_EQ(out.twice_area, 2 * (flags & 1 ? ones : int64_t(image.width) * image.height - ones)) << name;
        });
    // All ones, and all zeros where they are wanted: the frame, which is not delivered.
    for (uint32_t flags : {1u, 2u, 0u}) {
        Counter out;
        EXPECT_EQ(find_contours(&out, drawn(n, n, [&](int, int) { return flags < 2; }), flags), 0);
        EXPECT_EQ(out.outers + out.holes + out.tops, 0);
    }
}

TEST(contours_hard, views_with_padding_upwards_and_empty) {
    for (bool upwards : {false, true}) {
        const Bitmap m = noise(93, 31, 0.4, 5);
        Array array(u8(1), m.width, m.height, 7, upwards);
        for (int y = 0; y < m.height; ++y)
            memcpy(array.row<uint8_t>(y), &m.pixels[size_t(y * m.width)], size_t(m.width));
        Collector from_array, from_bitmap;
        EXPECT_EQ(run<TarnContourFind>("tarn::contour::find", &from_array, &array, 0u), 0);
        EXPECT_EQ(find_contours(&from_bitmap, m, 0), 0);
        EXPECT_EQ(from_array.outlines(), from_bitmap.outlines());
        EXPECT_TRUE(array.intact());
    }
    for (const Bitmap& none : {Bitmap{0, 4, {}}, Bitmap{4, 0, {}}}) {
        Collector out;
        EXPECT_EQ(find_contours(&out, none, 0), 0);
        EXPECT_TRUE(out.nodes.empty());
    }
}

TEST(contours_hard, other_types_are_refused) {
    for (LumoELEMTYPE type : {u8(2), u8(3), u8(4), s16(1), s32(1), f32(1)}) {
        Array array(type, 4, 4);
        Collector out;
        QuelERR err = {};
        expect_error(call<TarnContourFind>("tarn::contour::find", &err, nullptr, &out, &array, 1u), err, QUEL_E_TYPE,
                     QUEL_C_ARGUMENT, "@arr(.elem-type, .nchannels)");
        EXPECT_TRUE(out.nodes.empty());
    }
}

TEST(contours_hard, when_memory_is_out_all_is_released) {
    const Bitmap m = noise(150, 40, 0.45, 9);
    for (uint32_t flags : {1u, 4u}) {
        const int allocations = each_allocation_failing(
            [&] {
                Collector out;
                const int64_t result = find_contours(&out, m, flags);
                EXPECT_TRUE(out.held.empty());
                return result;
            },
            [](int64_t result) { EXPECT_EQ(result, -1); });
        EXPECT_GT(allocations, 20);
    }
}

TEST(contours_hard, when_a_callback_fails_all_is_released_and_its_status_returned) {
    const Bitmap pictures[] = {rings(3), noise(30, 20, 0.45, 3), noise(20, 30, 0.6, 4)};
    Storage storage;
    for (const Bitmap& m : pictures)
        for (uint32_t flags : kContourFlags) {
            Collector whole;
            ASSERT_EQ(find_contours(&whole, m, flags, &storage), 0);
            for (int n = 1; n <= whole.calls; ++n) {
                Collector out;
                out.fail_at = n;
                const KaTESTLIVE before = KaTESTlive();
                EXPECT_EQ(find_contours(&out, m, flags, &storage), -77);
                EXPECT_EQ(out.calls, n);
                EXPECT_TRUE(out.held.empty()) << "callback " << n << " of " << whole.calls << ", flags " << flags;
                const KaTESTLIVE after = KaTESTlive();
                EXPECT_EQ(after.storages, before.storages);
                EXPECT_EQ(after.bytes, before.bytes);
            }
        }
}
