// How the commands of the element-wise operations bring pictures into the samples that operations take.
#ifndef TARN_TOOLS_ELEMENTWISE_H
#define TARN_TOOLS_ELEMENTWISE_H

#include <string>
#include <vector>

#include "image.h"

namespace tarn::tool {

// What a u16 sample must be in memory: its own bits, anything in the same order, or a float of its value, since the
// module's 16-bit arithmetic is signed. The floats are exact: products and sums below 2^24 are, larger ones saturate.
enum class Wide { bits, order, value };

// How an operation gets its samples.
struct Takes {
    const char* command;
    Wide wide;
    std::vector<Sample> brought = {Sample::u16};  // to kinds that it takes
};

// The picture in the form that the operation needs. Throws when the command does not take its samples.
Image take_samples(Image image, const std::string& name, const Takes& takes);

}  // namespace tarn::tool
#endif
