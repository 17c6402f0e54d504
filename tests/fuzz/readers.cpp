// What the program reads from others, for the coverage-guided fuzzer. FUZZ_READER chooses: a picture, an array, a
// command line.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <utility>

#include "error.h"
#include "image.h"
#include "npy.h"

using namespace tarn::tool;

int tarn_main(int argc, char** argv);  // the program's main, renamed

namespace {

// Runs it; the program's own errors are what it is to answer with, in one line.
template <class Fn>
void answered(Fn run) {
    try {
        run();
    } catch (const Error& error) {
        if (error.line.empty() || error.line.find('\n') != std::string::npos) abort();
    } catch (const std::bad_alloc&) {
    }
}

[[maybe_unused]] void picture(std::span<const uint8_t> bytes) {
    answered([&] {
        const Image image = decode_image(bytes, "picture");
        uint32_t sum = 0;  // every pixel has been written
        for (int y = 0; y < image.height(); ++y)
            for (size_t i = 0; i < image.row_bytes(); ++i) sum += image.row(y)[i];
        if (sum == 1) std::puts("");
    });
}

[[maybe_unused]] void array(std::span<const uint8_t> bytes) {
    static const int file = memfd_create("array", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) || pwrite(file, bytes.data(), bytes.size(), 0) != ssize_t(bytes.size())) abort();
    answered([] { read_npy(path); });
    answered([] { read_tensor(path); });
}

// Words end with a newline. The files that commands read and write are not there: each comes as far as that.
[[maybe_unused]] void command_line(std::span<const uint8_t> bytes) {
    std::vector<std::string> words(1, "tarn");
    std::string word;
    for (const uint8_t byte : bytes) {
        if (byte == '\n')
            words.push_back(std::exchange(word, {}));
        else if (byte)
            word += char(byte);
    }
    std::vector<char*> arguments;
    for (std::string& w : words) arguments.push_back(w.data());
    arguments.push_back(nullptr);
    std::ostringstream printed, told;
    std::streambuf *const out = std::cout.rdbuf(printed.rdbuf()), *const err = std::cerr.rdbuf(told.rdbuf());
    const int status = tarn_main(int(words.size()), arguments.data());
    std::cout.rdbuf(out);
    std::cerr.rdbuf(err);
    const std::string line = told.str();
    const bool fine = status ? line.starts_with("tarn: ") && line.find('\n') == line.size() - 1 : line.empty();
    if (!fine || status > kUsage || line.starts_with("tarn: internal error")) {
        std::cerr << "status " << status << ": " << line;
        abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Nothing is written: a folder that is gone takes no files.
    char folder[] = "/tmp/tarn-fuzz-XXXXXX";
    if (!mkdtemp(folder) || chdir(folder) || rmdir(folder)) abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FUZZ_READER({data, size});
    return 0;
}
