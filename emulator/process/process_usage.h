#pragma once

#include <sys/types.h>

#include <cstddef>
#include <optional>

namespace tarvo_emu {

// What /proc shows of a process's hold on the machine.
struct ProcessUsage {
    size_t descriptors = 0;
    size_t threads = 0;
    long rss_kib = 0;
};

// The usage of `pid`, or nullopt when the process is gone (or /proc does not show it).
std::optional<ProcessUsage> ReadProcessUsage(pid_t pid);

}  // namespace tarvo_emu
