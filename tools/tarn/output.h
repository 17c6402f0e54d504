// Output files that are whole or absent: written under a temporary name in the same folder, renamed when complete.
#ifndef TARN_TOOLS_OUTPUT_H
#define TARN_TOOLS_OUTPUT_H

#include <cstdio>
#include <string>

namespace tarn::tool {

// Opened before the work begins, so that a folder that can't be written is told at once and not after the work. One at
// a time: the name of the temporary is kept where the handler of signals finds it.
class OutputFile {
public:
    // Makes the temporary file; throws when that fails or when path is a folder or a read-only file. "-" is standard
    // output, which gets all of it at the end; what is printed goes to standard error from now on.
    explicit OutputFile(const std::string& path);
    ~OutputFile();  // removes the temporary unless commit was called
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    std::FILE* stream() { return stream_; }
    const std::string& path() const { return path_; }  // as messages name it
    // Flushes, closes and gives the file its final name; throws when any of it fails.
    void commit();
    // Throws the error of a write that failed with this errno.
    [[noreturn]] void write_failed(int error_number) const;

private:
    void commit_to_standard_output();
    std::string path_, target_, temporary_;
    std::FILE* stream_ = nullptr;
};

// Removes what a process that was killed has left in the folder of its outputs.
void remove_temporaries(const std::string& folder, int process);

// Interrupt, termination and hang-up remove the temporary before they end the program; a file size limit is an error
// like a full disk. Call once at the start.
void install_signal_handlers();

}  // namespace tarn::tool
#endif
