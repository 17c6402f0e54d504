#include "plot.h"

#include <algorithm>
#include <cmath>
#include <fstream>

namespace tarn::bench {

namespace {

constexpr double kWidth = 1000, kHeight = 560, kLeft = 70, kRight = 250, kTop = 50, kBottom = 60;

// An axis: values from low to high at pixels from begin to end.
struct Axis {
    double low, high, begin, end;
    bool logarithmic = true;
    double at(double v) const {
        const double part = logarithmic ? std::log(v / low) / std::log(high / low) : (v - low) / (high - low);
        return begin + (end - begin) * part;
    }
};

std::string text(double x, double y, const std::string& anchor, const std::string& what, const char* more = "") {
    return "<text x='" + std::to_string(x) + "' y='" + std::to_string(y) + "' text-anchor='" + anchor + "' " + more +
           ">" + what + "</text>\n";
}
std::string line(double x1, double y1, double x2, double y2, const std::string& style) {
    return "<line x1='" + std::to_string(x1) + "' y1='" + std::to_string(y1) + "' x2='" + std::to_string(x2) +
           "' y2='" + std::to_string(y2) + "' " + style + "/>\n";
}
std::string figure(double v) {
    char s[32];
    snprintf(s, sizeof s, "%g", v);
    return s;
}

}  // namespace

void write_plot(const std::string& file, const std::string& title, const std::string& x_axis, const std::string& y_axis,
                const std::vector<Series>& series, bool logarithmic_x) {
    double least = 1e300, most = 0;
    for (const Series& s : series)
        for (const auto& [x, y] : s.points) least = std::min(least, y), most = std::max(most, y);
    const auto& ticks = series.front().points;
    const Axis x{ticks.front().first, ticks.back().first, kLeft, kWidth - kRight, logarithmic_x};
    const Axis y{least / 1.3, most * 1.3, kHeight - kBottom, kTop};

    std::ofstream out(file);
    out << "<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 " << kWidth << ' ' << kHeight
        << "' font-family='sans-serif' font-size='13'>\n<rect width='100%' height='100%' fill='white'/>\n"
        << text(kLeft, 28, "start", title, "font-size='17'")
        << text((kLeft + kWidth - kRight) / 2, kHeight - 16, "middle", x_axis) << text(kLeft - 52, 44, "start", y_axis);
    double taken = -100;  // labels of x leave room for each other
    for (const auto& [value, unused] : ticks) {
        out << line(x.at(value), y.begin, x.at(value), y.begin + 5, "stroke='black'");
        if (x.at(value) < taken + 24) continue;
        taken = x.at(value);
        out << text(taken, y.begin + 20, "middle", figure(value));
    }
    for (double ten = std::pow(10, std::floor(std::log10(y.low))); ten < y.high; ten *= 10)
        for (const double v : {ten, 2 * ten, 5 * ten})
            if (v >= y.low && v <= y.high)
                out << line(x.begin, y.at(v), x.end, y.at(v), "stroke='#ddd'")
                    << text(kLeft - 8, y.at(v) + 4, "end", figure(v));
    double label = kTop + 10;
    for (const Series& s : series) {
        const std::string style =
            "stroke='" + s.colour + "' stroke-width='2' fill='none'" + (s.dashed ? " stroke-dasharray='6 4'" : "");
        out << "<polyline " << style << " points='";
        for (const auto& [px, py] : s.points) out << x.at(px) << ',' << y.at(py) << ' ';
        out << "'/>\n" << line(x.end + 16, label - 4, x.end + 46, label - 4, style);
        out << text(x.end + 54, label, "start", s.name);
        label += 20;
    }
    out << "</svg>\n";
}

}  // namespace tarn::bench
