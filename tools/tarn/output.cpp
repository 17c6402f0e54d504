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

#include "error.h"

namespace tarn::tool {
namespace {
char temporary_name[PATH_MAX];
std::atomic<bool> temporary_exists = false;

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

OutputFile::OutputFile(const std::string& path) : path_(path), target_(path) {
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
    temporary_ = folder + ".tarn-XXXXXX";
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

void OutputFile::commit() {
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
