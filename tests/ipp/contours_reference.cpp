#include "ipp/contours_reference.h"

#include <algorithm>
#include <map>

namespace tarn::test {

namespace {

struct Loop {
    Points points;  // canonical
    int value;      // of the region whose boundary it is
    int region;
    int x, y;  // a pixel of it
    bool hole;
    int64_t area;
    int node = -1;
};

// True when the loop runs around a pixel: an odd number of its vertical sides lie to the pixel's left.
bool around(const Loop& loop, int x, int y) {
    bool odd = false;
    for (size_t i = 0; i < loop.points.size(); ++i) {
        const auto& [x1, y1] = loop.points[i];
        const auto& [x2, y2] = loop.points[i + 1 < loop.points.size() ? i + 1 : 0];
        odd ^= x1 == x2 && x1 <= x && std::min(y1, y2) <= y && y < std::max(y1, y2);
    }
    return odd;
}

// The regions of one value, numbered; -1 elsewhere.
std::vector<int> label(const Bitmap& m, int value, bool diagonal) {
    std::vector<int> labels(m.pixels.size(), -1);
    int count = 0;
    std::vector<int> todo;
    for (int start = 0; start < int(m.pixels.size()); ++start) {
        if (labels[size_t(start)] >= 0 || m.at(start % m.width, start / m.width) != value) continue;
        labels[size_t(start)] = count;
        todo.push_back(start);
        while (!todo.empty()) {
            const int x = todo.back() % m.width, y = todo.back() / m.width;
            todo.pop_back();
            for (int dy = -1; dy <= 1; ++dy)
                for (int dx = -1; dx <= 1; ++dx) {
                    const int nx = x + dx, ny = y + dy;
                    if ((dx && dy && !diagonal) || nx < 0 || ny < 0 || nx >= m.width || ny >= m.height) continue;
                    int& l = labels[size_t(ny) * m.width + nx];
                    if (l >= 0 || m.at(nx, ny) != value) continue;
                    l = count;
                    todo.push_back(ny * m.width + nx);
                }
        }
        ++count;
    }
    return labels;
}

// Side s of a pixel, travelled with the pixel to the right: 0 top (east), 1 right (south), 2 bottom (west), 3 left
// (north).
constexpr int kDx[] = {1, 0, -1, 0}, kDy[] = {0, 1, 0, -1};

// The boundary loops of the regions of one value.
void loops_of(const Bitmap& m, int value, bool diagonal, std::vector<Loop>& loops) {
    const std::vector<int> labels = label(m, value, diagonal);
    const auto region = [&](int x, int y) {
        return x < 0 || y < 0 || x >= m.width || y >= m.height ? -1 : labels[size_t(y) * m.width + x];
    };
    std::vector<uint8_t> used(m.pixels.size() * 4);
    // The pixel beyond side s.
    constexpr int kOutX[] = {0, 1, 0, -1}, kOutY[] = {-1, 0, 1, 0};
    for (int y = 0; y < m.height; ++y)
        for (int x = 0; x < m.width; ++x)
            for (int s = 0; s < 4; ++s) {
                const int r = region(x, y);
                if (r < 0 || region(x + kOutX[s], y + kOutY[s]) == r || used[(size_t(y) * m.width + x) * 4 + s])
                    continue;
                Points points;
                for (int px = x, py = y, ps = s;;) {
                    uint8_t& seen = used[(size_t(py) * m.width + px) * 4 + ps];
                    if (seen) break;
                    seen = 1;
                    // Where the side ends: the pixel straight on, and the one diagonally over.
                    const int ax = px + kDx[ps], ay = py + kDy[ps], ox = ax + kOutX[ps], oy = ay + kOutY[ps];
                    const bool ahead = region(ax, ay) == r, over = region(ox, oy) == r;
                    int nx = px, ny = py, ns;
                    if (over && (ahead || diagonal))
                        nx = ox, ny = oy, ns = (ps + 3) % 4;
                    else if (ahead)
                        nx = ax, ny = ay, ns = ps;
                    else
                        ns = (ps + 1) % 4;
                    if (ns != ps) {
                        const int end_x = px + (ps == 0 || ps == 1), end_y = py + (ps == 1 || ps == 2);
                        points.push_back({end_x, end_y});
                    }
                    px = nx, py = ny, ps = ns;
                }
                const int64_t twice = twice_area(points);
                loops.push_back({canonical(points), value, r, x, y, twice < 0, std::abs(twice) / 2});
            }
}

}  // namespace

int64_t twice_area(const Points& p) {
    int64_t sum = 0;
    for (size_t i = 0; i < p.size(); ++i) {
        const auto& [x1, y1] = p[i];
        const auto& [x2, y2] = p[(i + 1) % p.size()];
        sum += int64_t(x1) * y2 - int64_t(x2) * y1;
    }
    return sum;
}

Points canonical(Points p) {
    if (twice_area(p) < 0) std::reverse(p.begin(), p.end());
    const size_t n = p.size();
    size_t best = 0;
    for (size_t i = 1; i < n; ++i)
        for (size_t j = 0; j < n; ++j) {
            const auto &a = p[(i + j) % n], &b = p[(best + j) % n];
            if (a == b) continue;
            if (a < b) best = i;
            break;
        }
    std::rotate(p.begin(), p.begin() + std::ptrdiff_t(best), p.end());
    return p;
}

std::vector<Outline> reference_outlines(const Bitmap& m, uint32_t flags) {
    const bool ones = (flags & 1) || !(flags & 2), zeros = !(flags & 1);
    const bool diagonal[] = {(flags & 4) != 0, (flags & 8) != 0};
    const bool crossing = ones && zeros && diagonal[0] && diagonal[1];
    std::vector<Loop> loops;
    if (zeros) loops_of(m, 0, diagonal[0], loops);
    if (ones) loops_of(m, 1, diagonal[1], loops);

    // Loops of both sides of one boundary are one outline.
    const Points frame = canonical({{0, 0}, {m.width, 0}, {m.width, m.height}, {0, m.height}});
    std::map<Points, int> node_of;
    std::vector<int> parent;  // by node
    std::vector<Outline> outlines;
    std::map<std::pair<int, int>, int> outer_of;  // value and region: node of the outer outline, -1 for the frame
    for (Loop& l : loops) {
        if (!l.hole && l.points == frame) {
            outer_of[{l.value, l.region}] = -1;
            continue;
        }
        const auto [at, fresh] = node_of.insert({l.points, int(outlines.size())});
        if (fresh) outlines.push_back({l.points, l.hole ? 1 - l.value : l.value, l.hole, {}});
        if (!l.hole) outlines[size_t(at->second)].kind = 0;
        l.node = at->second;
        if (!l.hole) outer_of[{l.value, l.region}] = l.node;
    }
    parent.assign(outlines.size(), -1);
    // Outer outlines: the smallest hole that holds the region. Regions that may cross lie in holes of their own value.
    for (const Loop& l : loops) {
        if (l.hole || l.node < 0) continue;
        int64_t least = INT64_MAX;
        for (const Loop& h : loops)
            if (h.hole && h.area < least && (!crossing || h.value == l.value) && around(h, l.x, l.y)) {
                least = h.area;
                parent[size_t(l.node)] = h.node;
            }
    }
    // Holes lie in their region; that decides for outlines that are both.
    for (const Loop& l : loops)
        if (l.hole) parent[size_t(l.node)] = outer_of[{l.value, l.region}];
    for (size_t i = 0; i < outlines.size(); ++i)
        if (parent[i] >= 0) outlines[i].parent = outlines[size_t(parent[i])].points;
    std::sort(outlines.begin(), outlines.end());
    return outlines;
}

}  // namespace tarn::test
