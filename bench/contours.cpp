// Contour find beside OpenCV's contour follower (whole tree, straight runs joined) and its labelling alone, on whole
// pictures.
#include <random>

#include "bench.h"
#include "image.h"
#include "kernels/contour/contour.h"
#include "peer_opencv.h"
#include "quel/host.h"
#include "tarn.h"

namespace tarn::bench {
namespace {

constexpr int kWidth = 1920, kHeight = 1080;

// A photograph, brought to this size and cut at Otsu's threshold.
std::vector<uint8_t> photograph(const std::string& name) {
    const tool::Image sample = tool::read_image(TARN_SAMPLES "/" + name);
    const cv::Mat colour(sample.height(), sample.width(), CV_8UC3, const_cast<uint8_t*>(sample.row(0)),
                         size_t(sample.stride));
    cv::Mat grey, large, ones;
    cv::cvtColor(colour, grey, cv::COLOR_RGB2GRAY);
    cv::resize(grey, large, {kWidth, kHeight}, 0, 0, cv::INTER_CUBIC);
    cv::threshold(large, ones, 0, 255, cv::THRESH_OTSU);
    return {ones.data, ones.data + kWidth * kHeight};
}

std::vector<uint8_t> noise() {
    std::mt19937 rng(4);
    std::vector<uint8_t> image(kWidth * kHeight);
    for (uint8_t& p : image) p = rng() & 1 ? 255 : 0;
    return image;
}

// Lines of small strokes and rings, about as dense as a page of ten-point print.
std::vector<uint8_t> text() {
    cv::Mat page(kHeight, kWidth, CV_8UC1, cv::Scalar(0));
    std::mt19937 rng(5);
    const std::string letters = "eeeetttaaooiinnsshhrrddllccuummwwffggyyppbbvvkkABDRST,.;8049";
    for (int y = 34; y < kHeight - 10; y += 36) {
        std::string line;
        while (line.size() < 110) line += rng() % 6 ? letters[rng() % letters.size()] : ' ';
        cv::putText(page, line, {16, y}, cv::FONT_HERSHEY_COMPLEX, 0.8, cv::Scalar(255), 1, cv::LINE_8);
    }
    return {page.data, page.data + kWidth * kHeight};
}

int64_t take(TarnCONTOURS*, TarnCONTOUR*, void**, QuelERR*) { return 0; }
int64_t take_top(TarnCONTOURS*, int32_t, void*, QuelERR*) { return 0; }
void drop(TarnCONTOURS*, void*) {}

// Keeps what OpenCV's result holds: all vertices, where each polygon's begin, and each one's parent.
struct Polygons : TarnCONTOURS {
    Polygons() : TarnCONTOURS{drop, deliver, take_top} {}
    std::vector<cv::Point> points;
    std::vector<size_t> starts;
    std::vector<intptr_t> parents;
    static int64_t deliver(TarnCONTOURS* self, TarnCONTOUR* c, void** handle, QuelERR*) {
        Polygons& out = *static_cast<Polygons*>(self);
        const size_t index = out.starts.size(), at = out.points.size();
        out.starts.push_back(at);
        out.parents.push_back(-1);
        out.points.resize(at + c->points.count);
        cv::Point* to = &out.points[at];
        for (const TarnPOINT* p = c->points.head; p; p = p->next) *to++ = {p->x, p->y};
        for (const TarnCONTOURLIST& list : c->children)
            for (const TarnCONTOUR* child = list.head; child; child = child->next)
                out.parents[size_t(child->handle)] = intptr_t(index);
        *handle = reinterpret_cast<void*>(index);
        return 0;
    }
};

void run(Bench& b) {
    QuelHOST* host = QuelHOSTopen(nullptr);
    QuelOP op;
    if (QuelHOSTload(host, TARN_MODULE_FILE, nullptr) < 0 ||
        QuelHOSTfind(host, "tarn::contour::find", &op, nullptr) < 0)
        return;
    const auto find = reinterpret_cast<TarnContourFind>(op.entry);
    const struct {
        const char* name;
        std::vector<uint8_t> image;
    } pictures[] = {{"contours rocket", photograph("rocket.jpg")},
                    {"contours coffee", photograph("coffee.png")},
                    {"contours text", text()},
                    {"contours noise", noise()}};
    for (const auto& [name, image] : pictures) {
        const LumoMAT mat = {nullptr, LUMO_U8 | LUMO_CHANNELS(1),        kWidth, kHeight,
                             kWidth,  const_cast<uint8_t*>(image.data())};
        const cv::Mat peer(kHeight, kWidth, CV_8UC1, const_cast<uint8_t*>(image.data()));
        const uint32_t flags = TARN_CONTOURS_OF_ONES | TARN_CONTOURS_DIAGONAL_ONES;
        KaSMEMSTG storage;
        KaSMEMSTGopen(&storage, nullptr, 0, nullptr);
        cv::Mat labels;
        std::vector<Contender> contenders = {{"ours",
                                              [&] {
                                                  TarnCONTOURS out = {drop, take, take_top};
                                                  find(&op.call, nullptr, &storage, &out, &mat, flags);
                                              }},
                                             {"ours, kept",
                                              [&] {
                                                  Polygons out;
                                                  find(&op.call, nullptr, &storage, &out, &mat, flags);
                                              }},
                                             {"ours both values",
                                              [&] {
                                                  TarnCONTOURS out = {drop, take, take_top};
                                                  find(&op.call, nullptr, &storage, &out, &mat,
                                                       TARN_CONTOURS_DIAGONAL_ONES);
                                              }},
                                             {"labelling", [&] { cv::connectedComponents(peer, labels, 8, CV_32S); }}};
        // The tree of a noise picture takes the follower two seconds: it is measured without nesting there.
        const bool noisy = std::string(name) == "contours noise";
        contenders.push_back({noisy ? "OpenCV list" : "OpenCV tree", [&, noisy] {
                                  std::vector<std::vector<cv::Point>> polygons;
                                  std::vector<cv::Vec4i> tree;
                                  cv::findContours(peer, polygons, tree, noisy ? cv::RETR_LIST : cv::RETR_TREE,
                                                   cv::CHAIN_APPROX_SIMPLE);
                              }});
        b.row(name, "1920 x 1080, ms", 1e6, contenders);
        KaMEMSTGdestroy(&storage.base);
    }
    QuelHOSTclose(host);
}

const Family family{"contours", run};

}  // namespace
}  // namespace tarn::bench
