#pragma once

#include <sys/types.h>

#include <cstddef>

#include <android-base/result.h>

namespace tarvo_emu {

// What /proc shows of a process's hold on the machine.
struct ProcessUsage {
    size_t descriptors = 0;
    size_t threads = 0;
    long rss_kib = 0;
};

// The usage of `pid`; an error when the process is gone (or /proc does not show it).
android::base::Result<ProcessUsage> ReadProcessUsage(pid_t pid);

}  // namespace tarvo_emu
