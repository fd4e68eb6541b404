#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

#include <android-base/result.h>

namespace tarvo_emu {

// What a process that a signal ends leaves tidy: the process groups it started are killed, the
// mounts under its temporary trees are detached and the trees removed, then it exits with 128 +
// the signal's number, once `cleaned` has heard which signal it was. The signals are those that end
// a process by default and that a user, a shell or a closed pipe sends: SIGHUP, SIGINT, SIGPIPE,
// SIGALRM, SIGTERM, SIGUSR1 and SIGUSR2. Without InstallSignalCleanup the signals keep their
// default action and the registrations cost nothing but a lock.
android::base::Result<void> InstallSignalCleanup(std::function<void(int)> cleaned);

// Registered while they exist; each returns at once.
void AddTemporaryTree(const std::string& dir);
void RemoveTemporaryTree(const std::string& dir);
void AddProcessGroup(pid_t group);
void RemoveProcessGroup(pid_t group);
// Run first when a signal ends the process, e.g. to give the terminal its settings back.
void SetSignalCleanupHook(std::function<void()> hook);

}  // namespace tarvo_emu
