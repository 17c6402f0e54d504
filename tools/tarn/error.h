// Errors of the program: one line on standard error, "tarn: SUBJECT: what; what to do", and the exit status.
#ifndef TARN_TOOLS_ERROR_H
#define TARN_TOOLS_ERROR_H

#include <exception>
#include <functional>
#include <string>

namespace tarn::tool {

enum { kFailure = 1, kUsage = 2 };  // exit statuses

struct Error : std::exception {
    Error(int status, std::string line) : status(status), line(std::move(line)) {}
    const char* what() const noexcept override { return line.c_str(); }
    int status;
    std::string line;  // without the leading "tarn: "
};

// Throws an Error with exit status 1: the work could not be done.
//   subject  the file or option that is to blame
//   what     what is wrong with it
//   remedy   what the user can do; may be empty
[[noreturn]] void fail(const std::string& subject, const std::string& what, const std::string& remedy = {});
// The same with exit status 2: the command line itself is wrong.
[[noreturn]] void usage(const std::string& subject, const std::string& what, const std::string& remedy = {});

// Tells, on a line of its own, what the work goes on without.
void warn(const std::string& subject, const std::string& what);

// Does the work and returns its exit status; line is the error's, without the leading "tarn: ".
int status_of(const std::function<void()>& work, std::string& line);

// A file's failure as the system tells it: "No such file or directory" becomes "no such file or directory".
std::string system_reason(int error_number);

}  // namespace tarn::tool
#endif
