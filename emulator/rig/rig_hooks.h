#pragma once

#include <chrono>
#include <functional>
#include <string_view>

#include "nodes/ipc_node.h"
#include "process/log_line.h"

namespace tarvo_emu {

// How the rig itself works where benchmarks and coverage runs need it to work otherwise; nothing
// here changes what the daemon sees. Apart from RigOptions, which say what the daemon runs in.
struct RigHooks {
    // Sees each message that the daemon writes on oem_ipc1 before the modem side does, on the
    // filesystem's thread. Returning true keeps the message from the modem side: no parse, no
    // record, no reply. For benchmarks, which would otherwise time the modem side's bookkeeping.
    std::function<bool(std::string_view bytes)> uplink_tap = {};
    // Whether the daemon's output and log lines, and the writes to the thermal driver's file, are
    // kept for AwaitLog and the like. A long run that reads none of them turns this off, so that
    // the rig's memory stays flat.
    bool keep_logs = true;
    // How long a daemon that the rig ends is given to end on SIGTERM before it is killed; 0 kills
    // it at once. A coverage build's daemon writes its counters on SIGTERM: by default it gets the
    // time when the counters have somewhere to go (GCOV_PREFIX is set).
    std::chrono::milliseconds terminate_grace = DefaultTerminateGrace();
    // Sees the traffic of oem_ipc1 as the daemon reads and writes it (for a capture of the
    // session); it must outlive the rig. Null for none.
    IpcObserver* ipc_observer = nullptr;
    // Sees every log line of the processes in the sandbox as the rig reads it, kept or not.
    std::function<void(const LogLine& line)> log_sink = {};

    static std::chrono::milliseconds DefaultTerminateGrace();
};

}  // namespace tarvo_emu
