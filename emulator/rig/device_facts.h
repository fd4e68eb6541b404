#pragma once

#include <chrono>
#include <cstdint>

#include "process/log_line.h"

namespace tarvo_emu {

// What the rig knows of the device and the daemon, stated here once. The daemon states the same
// facts in its own code, and the rig does not link it, so that a change on one side alone shows
// in a test instead of passing unnoticed on both.

// How long the rig waits by default for what the daemon does at once: a message, a log line, a
// file. Generous, so that a loaded machine does not fail a test.
inline constexpr std::chrono::milliseconds kDefaultWait{5000};

// Where the server writes its pid, for the clients to find it. It is created empty and written
// right after the server's start, and no log line follows: a wait for it polls.
inline constexpr char kPidFile[] = "/data/vendor/radio/tarvo_pid";

// The boot node's state of a modem that is up.
inline constexpr int kModemOnline = 4;

// The daemon logs under kDaemonTag (process/log_line.h, where a log line takes it as its default).
//
// The daemon's start-up ends when its modem state monitor runs: before that line its threads race
// each other, after it the daemon answers on its channel.
bool IsDaemonStarted(const LogLine& line);
// The monitor's report of a change to kModemOnline. It names the state it saw before, which it may
// not have read yet, so only the new state is compared.
bool IsOnlineReport(const LogLine& line);

// The uplink schedule of the daemon's throughput test: one opening write, then kWritesPerSize
// blocks of each size from kFirstBlockSize to kLastBlockSize, kBlockSizeStep apart.
struct UplinkSchedule {
    static constexpr uint64_t kOpeningWrite = 10;
    static constexpr uint64_t kFirstBlockSize = 1000;
    static constexpr uint64_t kBlockSizeStep = 1000;
    static constexpr uint64_t kLastBlockSize = 20000;
    static constexpr uint64_t kWritesPerSize = 10000;
};

}  // namespace tarvo_emu
