#include "progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>

namespace tarn::tool {
namespace {
bool silent = false;
}

Progress::Progress(std::string step) {
    if (!silent && isatty(STDERR_FILENO)) thread_ = std::thread([this, step = std::move(step)] { show(step); });
}

Progress::~Progress() {
    if (!thread_.joinable()) return;
    {
        std::lock_guard lock(mutex_);
        done_ = true;
    }
    wake_.notify_one();
    thread_.join();
}

void Progress::silence() { silent = true; }

void Progress::show(const std::string& step) {
    std::unique_lock lock(mutex_);
    int seconds = 0;
    while (!wake_.wait_for(lock, std::chrono::seconds(1), [this] { return done_; }))
        std::fprintf(stderr, "\rtarn: %s ... %d s", step.c_str(), ++seconds);
    if (seconds) std::fprintf(stderr, "\r\033[K");
}

}  // namespace tarn::tool
