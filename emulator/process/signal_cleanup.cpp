#include "process/signal_cleanup.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <android-base/errno_restorer.h>
#include <android-base/file.h>
#include <android-base/no_destructor.h>
#include <android-base/strings.h>
#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "process/file_tree.h"

namespace tarvo_emu {

namespace {

struct Registry {
    std::mutex mutex;
    std::set<std::string> trees GUARDED_BY(mutex);
    std::set<pid_t> groups GUARDED_BY(mutex);
    std::function<void()> hook GUARDED_BY(mutex);
};

// Never destroyed: a signal may end the process while other threads still register.
Registry& registry() {
    static android::base::NoDestructor<Registry> instance;
    return *instance;
}

// Those that end a process by default and that a user, a shell or a closed pipe sends.
constexpr int kCleanedUpSignals[] = {SIGHUP, SIGINT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2};

// How often the clean-up tries to remove a tree that something else writes into.
constexpr int kRemoveAttempts = 3;

// Written by the handler, read by the thread that cleans up.
int signal_pipe = -1;

void OnSignal(int signal_number) {
    // The interrupted code may look at errno right after the handler returns.
    android::base::ErrnoRestorer errno_restorer;
    const char byte = static_cast<char>(signal_number);
    // A full pipe holds a signal that the clean-up thread has yet to take.
    if (write(signal_pipe, &byte, 1) < 0 && errno != EAGAIN) _exit(128 + signal_number);
}

// Mount points under `dir` in this process's namespace, deepest first.
std::vector<std::string> MountsUnder(const std::string& dir) {
    std::string mountinfo;
    android::base::ReadFileToString("/proc/self/mountinfo", &mountinfo);
    std::vector<std::string> mounts;
    for (const std::string& line : android::base::Split(mountinfo, "\n")) {
        const std::vector<std::string> fields = android::base::Split(line, " ");
        if (fields.size() > 4 && android::base::StartsWith(fields[4], dir + "/")) {
            mounts.push_back(fields[4]);
        }
    }
    std::sort(mounts.rbegin(), mounts.rend());
    return mounts;
}

[[noreturn]] void CleanUpAndExit(int signal_number, const std::function<void(int)>& cleaned) {
    Registry& r = registry();
    // Held to the end, so that nothing registers or unregisters meanwhile.
    r.mutex.lock();
    if (r.hook) r.hook();
    for (pid_t group : r.groups) killpg(group, SIGKILL);
    for (pid_t group : r.groups) {
        siginfo_t info;
        // Waits for the end without reaping: the process's owner may be reaping it too.
        waitid(P_PID, static_cast<id_t>(group), &info, WEXITED | WNOWAIT);
    }
    for (const std::string& tree : r.trees) {
        for (const std::string& mount : MountsUnder(tree)) umount2(mount.c_str(), MNT_DETACH);
        // Again when a file appeared in a directory while it was being emptied: the rig's own
        // processes are gone, but one outside it may still be writing into the tree.
        for (int attempt = 0; attempt < kRemoveAttempts; ++attempt) {
            if (RemoveTree(tree).ok()) break;
        }
    }
    if (cleaned) cleaned(signal_number);
    _exit(128 + signal_number);
}

}  // namespace

android::base::Result<void> InstallSignalCleanup(std::function<void(int)> cleaned) {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return android::base::ErrnoError() << "pipe2";
    // A handler must never block: a writer to a closed pipe may be interrupted again and again
    // before the clean-up ends the process.
    if (fcntl(fds[1], F_SETFL, O_NONBLOCK) != 0) return android::base::ErrnoError() << "fcntl";
    signal_pipe = fds[1];
    std::thread([read_end = fds[0], cleaned = std::move(cleaned)] {
        char byte = 0;
        while (read(read_end, &byte, 1) < 0 && errno == EINTR) {
        }
        CleanUpAndExit(byte, cleaned);
    }).detach();
    struct sigaction action = {};
    action.sa_handler = OnSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    // SIGPIPE too: `tarvo-emu run FILE | head -1` ends the run at its next line. Caught, not
    // ignored, so that the processes started keep its default action (exec resets a handler).
    for (int signal_number : kCleanedUpSignals) sigaction(signal_number, &action, nullptr);
    return {};
}

void AddTemporaryTree(const std::string& dir) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().trees.insert(dir);
}

void RemoveTemporaryTree(const std::string& dir) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().trees.erase(dir);
}

void AddProcessGroup(pid_t group) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().groups.insert(group);
}

void RemoveProcessGroup(pid_t group) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().groups.erase(group);
}

void SetSignalCleanupHook(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(registry().mutex);
    registry().hook = std::move(hook);
}

}  // namespace tarvo_emu
