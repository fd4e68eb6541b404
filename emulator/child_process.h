#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <android-base/unique_fd.h>

namespace tarvo_emu {

// A child process in a process group of its own, its stdout and stderr read line by line on a
// thread of ours. It dies with the thread that started it (PR_SET_PDEATHSIG), and the destructor
// kills the whole group and reaps it, so nothing outlives the rig, even when a test fails.
class ChildProcess {
  public:
    using LineHandler = std::function<void(const std::string& line)>;

    // Starts argv[0] (an absolute path) with `env`; stdin is /dev/null. `on_line` may be empty.
    static std::unique_ptr<ChildProcess> Start(const std::vector<std::string>& argv,
                                               const std::vector<std::string>& env,
                                               LineHandler on_line, std::string* error);
    ~ChildProcess();

    pid_t pid() const { return pid_; }
    // Sends SIGKILL to the process group.
    void Kill();
    // Waits for the exit and returns the status (the exit code, or 128 + signal number), or
    // nothing when it does not end in time.
    std::optional<int> Wait(std::chrono::milliseconds timeout);
    // Everything the process printed, once it has ended.
    std::string output();

  private:
    ChildProcess(pid_t pid, android::base::unique_fd pidfd, android::base::unique_fd out,
                 LineHandler on_line);
    void ReadOutput(android::base::unique_fd out);

    pid_t pid_;
    android::base::unique_fd pidfd_;
    std::optional<int> status_;
    LineHandler on_line_;
    std::mutex output_mutex_;
    std::string output_;
    std::thread reader_;
};

}  // namespace tarvo_emu
