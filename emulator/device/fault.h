#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <android-base/result.h>

namespace tarvo_emu {

// What can go wrong around the daemon, as the rig plays it and a capture shows it. The node's
// faults have the numbers that the scenario schema's Fault gives them.
enum class Fault {
    kEndOfFile = 1,   // the daemon's next read of the IPC node returns 0
    kReadError = 2,   // the daemon's next read of the IPC node fails
    kWriteError = 3,  // the daemon's next write to the IPC node fails
    kHangUp = 4,      // the IPC node hangs up: reads return 0, writes fail until it is reopened
    kOffline,         // the modem goes offline and comes back
    kRestart,         // the daemon is restarted
    kFull,            // /data fills up (no page left beyond those its files hold) and frees again
    kReadOnly,        // the replay directory turns read-only and back
};

// How the transcript names a fault: "end of file", "hang-up".
std::string_view FaultText(Fault fault);
std::optional<Fault> FaultOfText(std::string_view text);
// How the soak's list names a fault: "eof", "hangup".
std::string_view FaultSoakName(Fault fault);

// Parses a comma-separated list of the soak's fault names ("eof,read,write,hangup,offline,
// restart,full,readonly", "all" or "none"); the error names the first unknown one.
android::base::Result<std::set<Fault>> ParseSoakFaults(const std::string& list);

}  // namespace tarvo_emu
