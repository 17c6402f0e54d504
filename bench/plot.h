// Line plots as SVG.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tarn::bench {

// One line: its points in the order of x, all above zero where their axis is logarithmic.
struct Series {
    std::string name;
    std::string colour;
    bool dashed = false;
    std::vector<std::pair<double, double>> points;
};

// Ticks stand at the x of the first series, and at 1, 2 and 5 times powers of ten of y, which is logarithmic.
void write_plot(const std::string& file, const std::string& title, const std::string& x_axis, const std::string& y_axis,
                const std::vector<Series>& series, bool logarithmic_x = true);

}  // namespace tarn::bench
