#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android-base/stringprintf.h>

using android::base::unique_fd;

namespace tarvo_emu {

namespace {

std::vector<char*> CStrings(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (const std::string& s : strings) result.push_back(const_cast<char*>(s.c_str()));
    result.push_back(nullptr);
    return result;
}

int DecodeStatus(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return -1;
}

}  // namespace

std::unique_ptr<ChildProcess> ChildProcess::Start(const std::vector<std::string>& argv,
                                                  const std::vector<std::string>& env,
                                                  LineHandler on_line, std::string* error) {
    int pipe_fds[2];
    if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
        *error = android::base::StringPrintf("pipe: %s", strerror(errno));
        return nullptr;
    }
    unique_fd read_end(pipe_fds[0]);
    unique_fd write_end(pipe_fds[1]);
    // Prepared before fork: the rig is multi-threaded, so the child may only make
    // async-signal-safe calls until it execs.
    std::vector<char*> c_argv = CStrings(argv);
    std::vector<char*> c_env = CStrings(env);
    const pid_t parent = getpid();

    const pid_t pid = fork();
    if (pid < 0) {
        *error = android::base::StringPrintf("fork: %s", strerror(errno));
        return nullptr;
    }
    if (pid == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) _exit(127);
        const int null_fd = open("/dev/null", O_RDONLY);
        dup2(null_fd, STDIN_FILENO);
        dup2(write_end.get(), STDOUT_FILENO);
        dup2(write_end.get(), STDERR_FILENO);
        execve(c_argv[0], c_argv.data(), c_env.data());
        _exit(127);
    }
    // Also set here, so that a kill right after Start reaches the group.
    setpgid(pid, pid);
    write_end.reset();
    unique_fd pidfd(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    return std::unique_ptr<ChildProcess>(
        new ChildProcess(pid, std::move(pidfd), std::move(read_end), std::move(on_line)));
}

ChildProcess::ChildProcess(pid_t pid, unique_fd pidfd, unique_fd out, LineHandler on_line)
    : pid_(pid), pidfd_(std::move(pidfd)), on_line_(std::move(on_line)) {
    reader_ = std::thread([this, fd = std::move(out)]() mutable { ReadOutput(std::move(fd)); });
}

ChildProcess::~ChildProcess() {
    if (!status_) {
        Kill();
        Wait(std::chrono::seconds(10));
    }
    // The group is gone, so the pipe's write end is closed and the reader sees its end.
    if (reader_.joinable()) reader_.join();
}

void ChildProcess::Kill() {
    if (status_) return;
    killpg(pid_, SIGKILL);
}

std::optional<int> ChildProcess::Wait(std::chrono::milliseconds timeout) {
    if (status_) return status_;
    pollfd pfd = {.fd = pidfd_.get(), .events = POLLIN, .revents = 0};
    if (pidfd_.ok() && poll(&pfd, 1, static_cast<int>(timeout.count())) == 0) return std::nullopt;
    // Whatever the process left behind in its group goes with it; the group id stays ours until
    // the process is reaped.
    killpg(pid_, SIGKILL);
    int status = 0;
    if (waitpid(pid_, &status, 0) != pid_) return std::nullopt;
    status_ = DecodeStatus(status);
    return status_;
}

std::string ChildProcess::output() {
    if (status_ && reader_.joinable()) reader_.join();
    std::lock_guard<std::mutex> lock(output_mutex_);
    return output_;
}

void ChildProcess::ReadOutput(unique_fd out) {
    std::string pending;
    char buffer[4096];
    while (true) {
        const ssize_t n = TEMP_FAILURE_RETRY(read(out.get(), buffer, sizeof(buffer)));
        if (n <= 0) break;
        pending.append(buffer, n);
        size_t end;
        while ((end = pending.find('\n')) != std::string::npos) {
            const std::string line = pending.substr(0, end);
            pending.erase(0, end + 1);
            {
                std::lock_guard<std::mutex> lock(output_mutex_);
                output_ += line + "\n";
            }
            if (on_line_) on_line_(line);
        }
    }
    if (pending.empty()) return;
    {
        std::lock_guard<std::mutex> lock(output_mutex_);
        output_ += pending;
    }
    if (on_line_) on_line_(pending);
}

}  // namespace tarvo_emu
