#include "output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <vector>

#include "error.h"

namespace tarn::tool {
namespace {
char temporary_name[PATH_MAX];
std::atomic<bool> temporary_exists = false;

std::string temporary_prefix(int process) { return ".tarn-" + std::to_string(process) + "-"; }

void remove_and_end(int signal_number) {
    if (temporary_exists.load()) unlink(temporary_name);
    signal(signal_number, SIG_DFL);
    raise(signal_number);
}
}  // namespace

void install_signal_handlers() {
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        if (signal(number, remove_and_end) == SIG_IGN) signal(number, SIG_IGN);  // as nohup asked
    signal(SIGXFSZ, SIG_IGN);
}

void remove_temporaries(const std::string& folder, int process) {
    std::error_code failed;
    std::filesystem::directory_iterator entry(folder, failed);
    for (; !failed && entry != std::filesystem::directory_iterator(); entry.increment(failed))
        if (entry->path().filename().string().starts_with(temporary_prefix(process))) unlink(entry->path().c_str());
}

OutputFile::OutputFile(const std::string& path) : path_(path), target_(path) {
    if (path == "-") {
        path_ = "standard output";
        if (isatty(STDOUT_FILENO)) fail(path_, "is a terminal", "redirect it, or name a file");
        stream_ = std::tmpfile();  // TIFF is not written from front to back
        if (!stream_) write_failed(errno);
        std::cout.rdbuf(std::cerr.rdbuf());
        return;
    }
    struct stat old = {};
    const bool exists = stat(path.c_str(), &old) == 0;
    if (exists) {
        if (!S_ISREG(old.st_mode)) fail(path, "is not a regular file", "name a file to write");
        if (access(path.c_str(), W_OK) != 0)
            fail(path, "can't be written: " + system_reason(errno), "name another output");
        // Through a symbolic link the file that it names is replaced, not the link.
        if (char* real = realpath(path.c_str(), nullptr)) {
            target_ = real;
            std::free(real);
        }
    }
    const size_t slash = target_.rfind('/');
    const std::string folder = slash == std::string::npos ? "" : target_.substr(0, slash + 1);
    temporary_ = folder + temporary_prefix(getpid()) + "XXXXXX";
    if (temporary_.size() >= sizeof temporary_name)
        fail(path.substr(0, 60) + "...", "name is too long", "name another output");
    const int file = mkostemp(temporary_.data(), O_CLOEXEC);
    if (file < 0)
        fail(path, "can't be written: " + system_reason(errno), "name an output in a folder that can be written");
    std::memcpy(temporary_name, temporary_.c_str(), temporary_.size() + 1);
    temporary_exists = true;
    // mkostemp makes a private file; the output gets the mode of the file it replaces, or that of any new file.
    const mode_t mask = umask(0);
    umask(mask);
    const bool mode_set = fchmod(file, exists ? old.st_mode & 07777 : 0666 & ~mask) == 0;
    stream_ = mode_set ? fdopen(file, "w+b") : nullptr;
    if (!stream_) {
        const int error_number = errno;
        close(file);
        unlink(temporary_name);
        temporary_exists = false;
        write_failed(error_number);
    }
}

OutputFile::~OutputFile() {
    if (stream_) std::fclose(stream_);
    if (temporary_.empty()) return;
    unlink(temporary_.c_str());
    temporary_exists = false;
}

void OutputFile::write_failed(int error_number) const {
    fail(path_, "can't be written: " + system_reason(error_number),
         "nothing was left there; make room or name another output");
}

void OutputFile::commit_to_standard_output() {
    std::vector<char> block(1 << 16);
    errno = 0;
    if (std::fflush(stream_) != 0 || std::ferror(stream_)) write_failed(errno);
    std::rewind(stream_);
    while (const size_t count = std::fread(block.data(), 1, block.size(), stream_))
        for (size_t written = 0; written < count;) {
            const ssize_t put = write(STDOUT_FILENO, block.data() + written, count - written);
            if (put < 0 && errno != EINTR)
                fail(path_, "can't be written: " + system_reason(errno), "make room or redirect it elsewhere");
            if (put > 0) written += size_t(put);
        }
    if (std::ferror(stream_)) write_failed(errno);
}

void OutputFile::commit() {
    if (target_ == "-") return commit_to_standard_output();
    errno = 0;
    const bool good = std::fflush(stream_) == 0 && !std::ferror(stream_);
    int error_number = good ? 0 : errno;
    if (std::fclose(stream_) != 0 && !error_number) error_number = errno;
    stream_ = nullptr;
    if (!good || error_number) write_failed(error_number ? error_number : EIO);
    if (std::rename(temporary_.c_str(), target_.c_str()) != 0) write_failed(errno);
    temporary_.clear();
    temporary_exists = false;
}

}  // namespace tarn::tool
