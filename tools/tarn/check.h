// What modules of the interface promise, and how each promise is tried. Each trial runs in a process of its own: what a
// wrong module does there, it does to that alone.
#ifndef TARN_TOOLS_CHECK_H
#define TARN_TOOLS_CHECK_H

#include <functional>
#include <string>
#include <vector>

namespace tarn::tool {

// What a trial finds out; the trial's process tells it to the program through a pipe.
class Trial {
public:
    explicit Trial(int pipe) : pipe_(pipe) {}
    // What is done next: told of a module that ends the process.
    void step(const std::string& doing) { send('@', doing); }
    void fault(const std::string& what) { send('-', what); }
    // The promise can't be tried.
    void unknown(const std::string& why) { send('?', why); }
    // What was seen, of a promise that is kept.
    void seen(const std::string& what) { send('+', what); }

private:
    void send(char kind, std::string text);
    int pipe_;
};

struct Promise {
    std::string name;
    std::function<void(Trial&)> attempt;
    bool operation = false;  // of one operation, not of the module
};

// Of the library's file, its records, and the calls that a host makes before any operation.
std::vector<Promise> frame_promises(const std::string& path);

}  // namespace tarn::tool
#endif
