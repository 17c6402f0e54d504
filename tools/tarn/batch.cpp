// A folder job: worker processes, each given a picture at a time over a socket. A picture that can't be read, or one
// that ends its worker, costs itself alone; memory does not grow with the number of pictures.
#include "batch.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <map>
#include <sstream>
#include <thread>

#include "error.h"
#include "progress.h"

namespace tarn::tool {
namespace {
namespace fs = std::filesystem;

// ---- What there is to do ------------------------------------------------------------------------------------------

struct Job {
    std::string input, output, page;
};

// Inputs, and of folders the pictures in them, in the order of their names.
std::vector<std::string> pictures_of(const std::vector<std::string>& inputs) {
    std::vector<std::string> all;
    for (const std::string& input : inputs) {
        if (input == "-") usage("-", "has no name to make an output's of", "leave --out-dir out and give -o");
        std::error_code failed;
        if (!fs::is_directory(input, failed)) {
            all.push_back(input);
            continue;
        }
        std::vector<std::string> found;
        fs::directory_iterator entry(input, failed);
        for (; !failed && entry != fs::directory_iterator(); entry.increment(failed)) {
            const fs::path& path = entry->path();
            if (path.filename().string()[0] != '.' && format_of_name(path.string())) found.push_back(path.string());
        }
        if (failed) fail(input, "can't be read: " + system_reason(failed.value()), "check its permissions");
        if (found.empty())
            fail(input, "holds no files named .png, .jpg, .tiff, .pnm or .pfm", "name a folder of pictures");
        std::sort(found.begin(), found.end());
        all.insert(all.end(), found.begin(), found.end());
    }
    return all;
}

std::string output_name(const Files& files, const fs::path& input, size_t number, const std::string& page) {
    std::string extension = input.extension().string();
    if (!extension.empty()) extension.erase(0, 1);
    if (!files.format.empty()) extension = files.format;
    const std::string pattern = !files.name.empty()   ? files.name
                                : files.page == "all" ? "{stem}-{page}.{ext}"
                                                      : "{stem}.{ext}";
    std::string name;
    for (size_t i = 0; i < pattern.size(); ++i) {
        const size_t end = pattern[i] == '{' ? pattern.find('}', i) : std::string::npos;
        if (end == std::string::npos) {
            name += pattern[i];
            continue;
        }
        const std::string field = pattern.substr(i + 1, end - i - 1);
        if (field != "stem" && field != "ext" && field != "number" && field != "page")
            usage("--name", "'{" + field + "}' is not known", "use {stem}, {ext}, {page} and {number}");
        name += field == "stem"   ? input.stem().string()
                : field == "ext"  ? extension
                : field == "page" ? page
                                  : std::to_string(number);
        i = end;
    }
    if (name.empty() || name.find('/') != std::string::npos)
        usage("--name", "'" + pattern + "' makes no file name", "give one without folders, as '{stem}-small.png'");
    return name;
}

// Whether a job was done before: outputs appear when they are whole.
bool is_done(const Job& job) {
    std::error_code no_output, no_input;
    const auto made = fs::last_write_time(job.output, no_output), changed = fs::last_write_time(job.input, no_input);
    return !no_output && !no_input && made >= changed;
}

std::vector<Job> plan(const Files& files) {
    std::vector<Job> jobs;
    std::map<std::string, std::string> taken;  // output -> input
    size_t number = 0;
    const auto add = [&](const std::string& input, const std::string& page) {
        const Job job{input, (fs::path(files.out_dir) / output_name(files, input, ++number, page)).string(), page};
        const auto [other, is_new] = taken.emplace(job.output, input);
        if (!is_new)
            usage(input, "and " + other->second + " would both become " + job.output,
                  "give --name '{number}-{stem}.{ext}'" +
                      std::string(files.page == "all" ? ", or have {page} in it" : ""));
        std::error_code none;
        if (fs::equivalent(input, job.output, none))
            usage(input, "would be overwritten by its own result", "give another --out-dir, or --name");
        if (!files.resume || !is_done(job)) jobs.push_back(job);
    };
    for (const std::string& input : pictures_of(files.inputs)) {
        const int pages = files.page == "all" ? count_pages(input) : 1;
        for (int page = 1; page <= pages; ++page) add(input, files.page == "all" ? std::to_string(page) : files.page);
    }
    return jobs;
}

// ---- Workers ------------------------------------------------------------------------------------------------------

// Sent back for every picture, followed by the error's line and by what the command printed.
struct Reply {
    int32_t status;
    uint32_t line_bytes, printed_bytes;
};

bool receive(int socket, void* to, size_t bytes) {
    for (size_t have = 0; have < bytes;) {
        const ssize_t got = read(socket, static_cast<char*>(to) + have, bytes - have);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        have += static_cast<size_t>(got);
    }
    return true;
}

bool deliver(int socket, const void* from, size_t bytes) {
    for (size_t sent = 0; sent < bytes;) {
        const ssize_t put = send(socket, static_cast<const char*>(from) + sent, bytes - sent, MSG_NOSIGNAL);
        if (put < 0 && errno == EINTR) continue;
        if (put < 0) return false;
        sent += static_cast<size_t>(put);
    }
    return true;
}

// A worker's life; it ends when the other side of the socket is closed.
[[noreturn]] void work(int socket, Files& files, const std::function<void()>& run, const std::vector<Job>& jobs) {
    Progress::silence();
    std::ostringstream printed;
    std::cout.rdbuf(printed.rdbuf());
    uint64_t at = 0;
    while (receive(socket, &at, sizeof at)) {
        files.inputs = {jobs[at].input};
        files.output = jobs[at].output;
        files.page = jobs[at].page;
        printed.str("");
        std::string line;
        const int status = status_of(run, line);
        const std::string text = printed.str();
        const Reply reply = {status, static_cast<uint32_t>(line.size()), static_cast<uint32_t>(text.size())};
        if (!deliver(socket, &reply, sizeof reply) || !deliver(socket, line.data(), line.size()) ||
            !deliver(socket, text.data(), text.size()))
            break;
    }
    _exit(0);
}

struct Worker {
    pid_t process = 0;
    int socket = -1;
    size_t job = 0;
};

// ---- The whole ----------------------------------------------------------------------------------------------------

// "tarn: [=====>    ] 451/1000, 38.2/s, 14 s left" on a terminal.
class Bar {
public:
    explicit Bar(size_t all) : all_(all) {}
    void show(size_t done) {
        const auto now = Clock::now();
        if (!on_ || (now < next_ && done < all_)) return;
        next_ = now + std::chrono::milliseconds(100);
        const double seconds = std::chrono::duration<double>(now - begin_).count();
        const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
        constexpr size_t kWidth = 24;
        const size_t filled = done * kWidth / all_;
        char left[40] = "";
        if (done) std::snprintf(left, sizeof left, ", %.0f s left", static_cast<double>(all_ - done) / rate);
        std::fprintf(stderr, "\rtarn: [%s%s] %zu/%zu, %.3g/s%s\033[K", std::string(filled, '=').c_str(),
                     std::string(kWidth - filled, ' ').c_str(), done, all_, rate, left);
    }
    void clear() const {
        if (on_) std::fprintf(stderr, "\r\033[K");
    }

private:
    using Clock = std::chrono::steady_clock;
    bool on_ = isatty(STDERR_FILENO);
    size_t all_;
    Clock::time_point begin_ = Clock::now(), next_ = begin_;
};

class Batch {
public:
    Batch(Files& files, const std::function<void()>& run, std::vector<Job> jobs)
        : files_(files), run_(run), jobs_(std::move(jobs)), bar_(jobs_.size()) {}

    void run(size_t workers) {
        workers_.resize(std::min(workers, jobs_.size()));
        for (Worker& worker : workers_) start(worker);
        for (;;) {
            std::vector<pollfd> waiting;
            for (const Worker& worker : workers_)
                if (worker.socket >= 0) waiting.push_back({worker.socket, POLLIN, 0});
            if (waiting.empty()) break;
            bar_.show(finished_);
            if (poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR)
                fail("workers", "can't be waited for: " + system_reason(errno), "try it again with -j 1");
            for (const pollfd& ready : waiting)
                if (ready.revents)
                    answer(*std::find_if(workers_.begin(), workers_.end(),
                                         [&](const Worker& w) { return w.socket == ready.fd; }));
        }
        bar_.clear();
        if (!wrong_use_.empty()) throw Error(kUsage, wrong_use_);
        for (const auto& [job, line] : failures_) std::cerr << "tarn: " << line << "\n";
        if (!failures_.empty())
            fail(std::to_string(failures_.size()) + " of " + std::to_string(jobs_.size()) + " pictures",
                 "failed as told above, the others are done", "give --resume to do only those that are not");
    }

private:
    // Starts the worker with the next job, if there is one.
    void start(Worker& worker) {
        worker = {};
        if (next_ == jobs_.size()) return;
        int ends[2];
        std::cout.flush();
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0 || (worker.process = fork()) < 0)
            fail("workers", "can't be started: " + system_reason(errno), "give a smaller -j");
        if (worker.process == 0) {
            close(ends[0]);
            for (const Worker& other : workers_)  // else its socket would outlive the parent
                if (other.socket >= 0) close(other.socket);
            work(ends[1], files_, run_, jobs_);
        }
        close(ends[1]);
        worker.socket = ends[0];
        give(worker);
    }

    void give(Worker& worker) {
        worker.job = next_;
        if (next_ < jobs_.size()) {
            const uint64_t at = next_++;
            deliver(worker.socket, &at, sizeof at);  // a worker that is gone is noticed when it is asked
        } else {
            close(worker.socket);
            worker.socket = -1;
            waitpid(worker.process, nullptr, 0);
        }
    }

    void answer(Worker& worker) {
        const Job& job = jobs_[worker.job];
        Reply reply = {};
        std::string line, printed;
        const auto text = [&](std::string& to, size_t bytes) {
            to.resize(bytes);
            return receive(worker.socket, to.data(), bytes);
        };
        const bool alive = receive(worker.socket, &reply, sizeof reply) && text(line, reply.line_bytes) &&
                           text(printed, reply.printed_bytes);
        if (!alive) {
            close(worker.socket);
            int how = 0;
            waitpid(worker.process, &how, 0);
            remove_temporaries(files_.out_dir, worker.process);
            failures_[worker.job] =
                job.input + ": its worker was ended" +
                (WIFSIGNALED(how) ? std::string(" by signal ") + std::to_string(WTERMSIG(how)) : std::string());
        } else if (reply.status != 0) {
            // What is wrong with the first picture's command line is wrong with them all.
            if (reply.status == kUsage && finished_ == failures_.size()) {
                wrong_use_ = line;
                next_ = jobs_.size();
            }
            failures_[worker.job] = line.starts_with(job.input) ? line : job.input + ": " + line;
        }
        ++finished_;
        if (!printed.empty()) {
            bar_.clear();
            std::istringstream lines(printed);
            for (std::string each; std::getline(lines, each);) std::cout << job.input << ": " << each << "\n";
        }
        if (alive)
            give(worker);
        else
            start(worker);
    }

    Files& files_;
    const std::function<void()>& run_;
    std::vector<Job> jobs_;
    std::vector<Worker> workers_;
    std::map<size_t, std::string> failures_;
    std::string wrong_use_;
    size_t next_ = 0, finished_ = 0;
    Bar bar_;
};

void run_batch(Files& files, const std::function<void()>& run) {
    if (!files.output.empty()) usage("--output", "can't go with --out-dir", "give --name for the names in the folder");
    auto workers = static_cast<size_t>(parse_integer(files.jobs.empty() ? "1" : files.jobs, "--jobs", 0, 1024));
    if (!workers) workers = std::max(1u, std::thread::hardware_concurrency());
    std::vector<Job> jobs = plan(files);
    std::error_code failed;
    fs::create_directory(files.out_dir, failed);
    if (failed) fail(files.out_dir, "can't be made: " + system_reason(failed.value()), "name another folder");
    if (!fs::is_directory(files.out_dir, failed)) fail(files.out_dir, "is no folder", "name a folder");
    if (!jobs.empty()) Batch(files, run, std::move(jobs)).run(workers);
}
}  // namespace

void add_batch(CLI::App& app, Files& files) {
    add_option(app, "--out-dir", files.out_dir,
               "folder for the results of several pictures, or of a folder of them; made when missing")
        .type_name("DIR");
    add_option(app, "--name", files.name,
               "names in that folder: {stem}, {ext}, {page} and {number} are the input's (default: {stem}.{ext})")
        .type_name("PATTERN");
    add_option(app, "-j,--jobs", files.jobs, "worker processes (default 1; 0: as many as processors)").type_name("N");
    add_flag(app, "--resume", files.resume, "leave pictures out whose result is there and no older than they are");
}

void add_pictures(CLI::App& app, Files& files) {
    add_inputs(app, files, 1, 0);
    add_image_output(app, files).required(false);
    add_batch(app, files);
}

Run each_picture(Files& files, std::function<void()> one) {
    const auto work = [&files, one] {
        if (!files.out_dir.empty()) return run_batch(files, one);
        if (files.inputs.size() > 1)
            usage("--out-dir", "is missing, and " + std::to_string(files.inputs.size()) + " pictures are given",
                  "name the folder for the results");
        for (const auto& [option, given] :
             {std::pair{"--name", !files.name.empty()}, {"--jobs", !files.jobs.empty()}, {"--resume", files.resume}})
            if (given) usage(option, "goes with --out-dir", "give both");
        one();
    };
    return Run(work, files, one);
}

}  // namespace tarn::tool
