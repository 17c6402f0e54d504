// A line on the terminal for steps that take longer than a second: "tarn: reading big.tiff ... 3 s". Nothing is
// written, and no thread started, when standard error is not a terminal.
#ifndef TARN_TOOLS_PROGRESS_H
#define TARN_TOOLS_PROGRESS_H

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace tarn::tool {

class Progress {
public:
    explicit Progress(std::string step);
    ~Progress();            // takes the line away
    static void silence();  // in this process none is shown from now on

private:
    void show(const std::string& step);
    std::mutex mutex_;
    std::condition_variable wake_;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace tarn::tool
#endif
