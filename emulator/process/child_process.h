#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

namespace tarvo_emu {

struct ChildOptions {
    // The whole environment of the process, "NAME=value" each.
    std::vector<std::string> env = {};
    // Called with each line the process prints, on the reading thread; may be empty.
    std::function<void(const std::string& line)> on_line = {};
    // With separate_stderr, called with each line of stderr instead of on_line; may be empty.
    std::function<void(const std::string& line)> on_error_line = {};
    // Called on the reading thread after a read that emptied a pipe, so that what the process
    // wrote there in one piece was handed on whole; may be empty.
    std::function<void()> on_drained = {};
    // Keeps stderr apart from stdout (see ChildProcess::errors()) instead of interleaving them.
    bool separate_stderr = false;
    // Whether output() and errors() keep what was printed; a long run that only watches the lines
    // as they come turns this off.
    bool keep_output = true;
    // When not zero, what the process prints is taken at most this often, so that a process that
    // prints a line per event does not wake the reader for every one. Its pipe is made large
    // enough that the process never waits for the reader meanwhile.
    std::chrono::milliseconds read_interval{0};
};

// A child process in a process group of its own, its stdout and stderr read line by line on a
// thread of ours. It dies with the thread that started it (PR_SET_PDEATHSIG), and the destructor
// kills the whole group and reaps it, so nothing outlives the rig, even when a test fails.
class ChildProcess {
  public:
    // Starts argv[0] (an absolute path); stdin is /dev/null.
    static android::base::Result<std::unique_ptr<ChildProcess>> Start(
        const std::vector<std::string>& argv, ChildOptions options = {});
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    // Sends SIGKILL to the process group.
    void Kill();
    // Waits for the exit and returns the status (the exit code, or 128 + signal number), or
    // nothing when it does not end in time; an error when it cannot be waited for.
    android::base::Result<std::optional<int>> Wait(std::chrono::milliseconds timeout);
    // Everything the process printed (on stdout only, with separate_stderr), once it has ended.
    std::string output() { return Kept(&ChildProcess::output_); }
    // What it printed on stderr with separate_stderr, once it has ended.
    std::string errors() { return Kept(&ChildProcess::errors_); }

  private:
    struct Stream;

    ChildProcess(pid_t pid, android::base::unique_fd pidfd, ChildOptions options);
    void ReadOutput(android::base::unique_fd out, android::base::unique_fd err);
    // Hands the complete lines at the front of `stream`'s pending bytes on; all of them at the end.
    void TakeLines(Stream* stream, bool at_end);
    std::string Kept(std::string ChildProcess::*sink);

    pid_t pid_;
    android::base::unique_fd pidfd_;
    std::optional<int> status_;
    std::function<void(const std::string& line)> on_line_;
    std::function<void(const std::string& line)> on_error_line_;
    std::function<void()> on_drained_;
    const bool keep_output_;
    const std::chrono::milliseconds read_interval_;
    std::mutex output_mutex_;
    std::string output_ GUARDED_BY(output_mutex_);
    std::string errors_ GUARDED_BY(output_mutex_);
    std::thread reader_;
};

struct ProcessResult {
    int status = 0;  // exit code, or 128 + signal number
    bool timed_out = false;
    std::string output;  // stdout (with stderr, unless kept apart)
    std::string errors;  // stderr, when kept apart
};

// Runs `argv` to its end, killing it after `timeout`; an error when it could not be started, or
// not be reaped after the kill.
android::base::Result<ProcessResult> RunProcess(const std::vector<std::string>& argv,
                                                ChildOptions options,
                                                std::chrono::milliseconds timeout);

// What a build's own instrumentation reads from this process's environment, as name and value:
// the sanitizers' options, which make the first report end the process, and where a coverage
// build writes its counters. For a child that otherwise starts with a cleared environment.
std::vector<std::pair<std::string, std::string>> BuildToolEnvironment();

}  // namespace tarvo_emu
