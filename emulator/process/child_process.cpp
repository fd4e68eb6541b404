#include "process/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android-base/unique_fd.h>

#include "process/signal_cleanup.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::unique_fd;

namespace tarvo_emu {

namespace {

constexpr int kLargePipe = 1 << 20;

std::vector<char*> CStrings(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (const std::string& s : strings) result.push_back(const_cast<char*>(s.c_str()));
    result.push_back(nullptr);
    return result;
}

// A status of waitpid without WUNTRACED: the process either exited or was killed.
int DecodeStatus(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Makes `target` a copy of `fd` that an exec hands on. Async-signal-safe, for a child between
// fork and exec. dup2 onto itself would keep `fd` close-on-exec (it is `target` already when the
// rig runs with that standard descriptor closed).
void HandOn(int fd, int target) {
    if (fd == target) {
        fcntl(fd, F_SETFD, 0);
        return;
    }
    dup2(fd, target);
}

}  // namespace

struct ChildProcess::Stream {
    unique_fd fd;
    std::string* sink;
    std::string pending = {};
};

Result<std::unique_ptr<ChildProcess>> ChildProcess::Start(const std::vector<std::string>& argv,
                                                          ChildOptions options) {
    // A process read at intervals gets a pipe that it does not fill meanwhile.
    const auto open_pipe = [&options](unique_fd* read_end, unique_fd* write_end) -> Result<void> {
        if (!android::base::Pipe(read_end, write_end)) return ErrnoError() << "pipe";
        if (options.read_interval.count() != 0 && fcntl(*read_end, F_SETPIPE_SZ, kLargePipe) < 0) {
            return ErrnoError() << "F_SETPIPE_SZ";
        }
        return {};
    };
    unique_fd out_read, out_write, err_read, err_write;
    if (Result<void> out = open_pipe(&out_read, &out_write); !out.ok()) return out.error();
    if (options.separate_stderr) {
        if (Result<void> err = open_pipe(&err_read, &err_write); !err.ok()) return err.error();
    }
    const int err_fd = options.separate_stderr ? err_write.get() : out_write.get();
    // Prepared before fork: the rig is multi-threaded, so the child may only make
    // async-signal-safe calls until it execs.
    std::vector<char*> c_argv = CStrings(argv);
    std::vector<char*> c_env = CStrings(options.env);
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid < 0) return ErrnoError() << "fork";
    if (pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The rig's threads block signals that the program started must receive.
        sigset_t none;
        sigemptyset(&none);
        sigprocmask(SIG_SETMASK, &none, nullptr);
        if (getppid() != parent) _exit(127);
        // Every descriptor here is close-on-exec; only the three standard ones are handed on.
        HandOn(open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
        HandOn(out_write.get(), STDOUT_FILENO);
        HandOn(err_fd, STDERR_FILENO);
        execve(c_argv[0], c_argv.data(), c_env.data());
        _exit(127);
    }
    // Also set here, so that a kill right after Start reaches the group.
    setpgid(pid, pid);
    AddProcessGroup(pid);
    out_write.reset();
    err_write.reset();
    unique_fd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (!pidfd.ok()) {
        // Without it the process could not be waited for with a timeout.
        const int error = errno;
        killpg(pid, SIGKILL);
        TEMP_FAILURE_RETRY(waitpid(pid, nullptr, 0));
        RemoveProcessGroup(pid);
        return Error(error) << "pidfd_open";
    }
    std::unique_ptr<ChildProcess> child(
        new ChildProcess(pid, std::move(pidfd), std::move(options)));
    child->reader_ = std::thread(
        [child = child.get(), out = std::move(out_read), err = std::move(err_read)]() mutable {
            child->ReadOutput(std::move(out), std::move(err));
        });
    return child;
}

ChildProcess::ChildProcess(pid_t pid, unique_fd pidfd, ChildOptions options)
    : pid_(pid),
      pidfd_(std::move(pidfd)),
      on_line_(std::move(options.on_line)),
      on_error_line_(std::move(options.on_error_line)),
      on_drained_(std::move(options.on_drained)),
      keep_output_(options.keep_output),
      read_interval_(options.read_interval) {}

ChildProcess::~ChildProcess() {
    if (!status_) {
        Kill();
        Wait(std::chrono::seconds(10));
    }
    // The group is gone, so the pipes' write ends are closed and the reader sees their end.
    if (reader_.joinable()) reader_.join();
}

void ChildProcess::Kill() {
    if (status_) return;
    killpg(pid_, SIGKILL);
}

Result<std::optional<int>> ChildProcess::Wait(std::chrono::milliseconds timeout) {
    if (status_) return status_;
    pollfd pfd = {.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    const int ready = poll(&pfd, 1, static_cast<int>(timeout.count()));
    if (ready < 0) return ErrnoError() << "poll on the pidfd of " << pid_;
    if (ready == 0) return std::nullopt;
    // Whatever the process left behind in its group goes with it; the group id stays ours until
    // the process is reaped.
    killpg(pid_, SIGKILL);
    int status = 0;
    if (TEMP_FAILURE_RETRY(waitpid(pid_, &status, 0)) != pid_) {
        return ErrnoError() << "waitpid " << pid_;
    }
    RemoveProcessGroup(pid_);
    status_ = DecodeStatus(status);
    return status_;
}

std::string ChildProcess::Kept(std::string ChildProcess::*sink) {
    if (status_ && reader_.joinable()) reader_.join();
    std::lock_guard<std::mutex> lock(output_mutex_);
    return this->*sink;
}

void ChildProcess::ReadOutput(unique_fd out, unique_fd err) {
    Stream streams[] = {{std::move(out), &output_}, {std::move(err), &errors_}};
    // Read at intervals, one read takes all that a busy process printed meanwhile.
    std::vector<char> buffer(read_interval_.count() != 0 ? kLargePipe : 4096);
    while (true) {
        pollfd fds[2];
        nfds_t count = 0;
        for (Stream& stream : streams) {
            if (stream.fd.ok())
                fds[count++] = {.fd = stream.fd.get(), .events = POLLIN, .revents = 0};
        }
        if (count == 0) return;
        if (TEMP_FAILURE_RETRY(poll(fds, count, -1)) < 0) return;
        if (read_interval_.count() != 0) std::this_thread::sleep_for(read_interval_);
        for (nfds_t i = 0; i < count; ++i) {
            if (fds[i].revents == 0) continue;
            Stream& stream = fds[i].fd == streams[0].fd.get() ? streams[0] : streams[1];
            const ssize_t n =
                TEMP_FAILURE_RETRY(read(stream.fd.get(), buffer.data(), buffer.size()));
            if (n > 0) stream.pending.append(buffer.data(), n);
            TakeLines(&stream, n <= 0);
            // A read that did not fill the buffer emptied the pipe.
            if (on_drained_ && n < static_cast<ssize_t>(buffer.size())) on_drained_();
            if (n <= 0) stream.fd.reset();
        }
    }
}

void ChildProcess::TakeLines(Stream* stream, bool at_end) {
    size_t end;
    while ((end = stream->pending.find('\n')) != std::string::npos || at_end) {
        if (end == std::string::npos && stream->pending.empty()) return;
        const bool whole = end != std::string::npos;
        const std::string line = stream->pending.substr(0, end);
        stream->pending.erase(0, whole ? end + 1 : std::string::npos);
        if (keep_output_) {
            std::lock_guard<std::mutex> lock(output_mutex_);
            *stream->sink += whole ? line + "\n" : line;
        }
        const auto& handler =
            stream->sink == &errors_ && on_error_line_ ? on_error_line_ : on_line_;
        if (handler) handler(line);
    }
}

Result<ProcessResult> RunProcess(const std::vector<std::string>& argv, ChildOptions options,
                                 std::chrono::milliseconds timeout) {
    ProcessResult result;
    Result<std::unique_ptr<ChildProcess>> process = ChildProcess::Start(argv, std::move(options));
    if (!process.ok()) return Error() << argv[0] << ": " << process.error();
    Result<std::optional<int>> status = (*process)->Wait(timeout);
    if (status.ok() && !status->has_value()) {
        result.timed_out = true;
        (*process)->Kill();
        status = (*process)->Wait(std::chrono::seconds(10));
    }
    if (!status.ok()) return Error() << argv[0] << ": " << status.error();
    if (!status->has_value()) return Error() << argv[0] << " still runs after SIGKILL";
    result.status = **status;
    result.output = (*process)->output();
    result.errors = (*process)->errors();
    return result;
}

std::vector<std::pair<std::string, std::string>> BuildToolEnvironment() {
    std::vector<std::pair<std::string, std::string>> set;
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LSAN_OPTIONS",
                             "GCOV_PREFIX", "GCOV_PREFIX_STRIP"}) {
        if (const char* value = getenv(name); value != nullptr) set.emplace_back(name, value);
    }
    return set;
}

}  // namespace tarvo_emu
