#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "peers/transcript_codec.h"

namespace tarvo_emu {

// One thing that happened on the modem's nodes, as a capture saw it.
using CaptureEvent = TranscriptEvent;

struct Capture {
    std::vector<CaptureEvent> events;
    // The Unix time of the capture's time 0, when its time stamps tell it (strace's -ttt).
    std::optional<double> epoch;
};

// The time now in Unix seconds, for events stamped as they are read.
inline double UnixNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace tarvo_emu
