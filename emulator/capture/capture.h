#pragma once

#include <optional>
#include <string>
#include <vector>

#include "process/log_line.h"

namespace tarvo_emu {

// One thing that happened on the modem's nodes, as a capture saw it.
struct CaptureEvent {
    enum class Kind {
        kToDaemon,    // the daemon read `bytes` from /dev/oem_ipc1
        kFromDaemon,  // the daemon wrote `bytes` to /dev/oem_ipc1
        kReadError,   // a read failed; `text` names the errno
        kWriteError,  // a write failed; `text` names the errno
        kEndOfFile,   // a read returned 0
        kHangUp,      // the node hung up: reads return 0 and writes fail until it is reopened
        kModemState,  // the boot node's status ioctl returned a new `state`
        kSignal,      // the daemon got signal `state`, named `text`
        kLog,         // a log line of a process in the sandbox
        kNote,        // anything else worth showing, as `text`
    };

    Kind kind;
    // Seconds since the capture's first time stamp; none when the capture has no times.
    std::optional<double> time;
    std::string bytes;
    std::string text;
    int state = 0;
    LogLine log = {};
    // The capture's line the event comes from, for messages about it.
    size_t line = 0;
};

struct Capture {
    std::vector<CaptureEvent> events;
    // The Unix time of the capture's time 0, when its time stamps tell it (strace's -ttt).
    std::optional<double> epoch;
};

}  // namespace tarvo_emu
