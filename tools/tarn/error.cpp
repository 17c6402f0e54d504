#include "error.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>

namespace tarn::tool {
namespace {
// Names of files and messages of libraries may hold line ends and control characters; the error stays one line.
std::string one_line(std::string text) {
    for (char& c : text)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = ' ';
    while (!text.empty() && (text.back() == ' ' || text.back() == '.')) text.pop_back();
    return text;
}

[[noreturn]] void raise(int status, const std::string& subject, const std::string& what, const std::string& remedy) {
    throw Error(status, one_line(subject + ": " + what + (remedy.empty() ? "" : "; " + remedy)));
}
}  // namespace

void fail(const std::string& subject, const std::string& what, const std::string& remedy) {
    raise(kFailure, subject, what, remedy);
}
void usage(const std::string& subject, const std::string& what, const std::string& remedy) {
    raise(kUsage, subject, what, remedy);
}

void warn(const std::string& subject, const std::string& what) {
    std::fprintf(stderr, "tarn: %s\n", one_line(subject + ": " + what).c_str());
}

int status_of(const std::function<void()>& work, std::string& line) {
    try {
        work();
        return 0;
    } catch (const Error& error) {
        line = error.line;
        return error.status;
    } catch (const std::bad_alloc&) {
        line = "memory: is out; choose a smaller picture";
    } catch (const std::exception& error) {
        line = std::string("internal error: ") + error.what() + "; please report it";
    }
    return kFailure;
}

std::string system_reason(int error_number) {
    std::string reason = std::strerror(error_number);
    if (reason.size() > 1 && std::islower(static_cast<unsigned char>(reason[1])))
        reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
    return reason;
}

}  // namespace tarn::tool
