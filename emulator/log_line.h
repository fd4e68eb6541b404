#pragma once

#include <sys/types.h>

#include <optional>
#include <ostream>
#include <string>

namespace tarvo_emu {

// The tag the daemon logs under.
inline constexpr const char kDaemonTag[] = "tarvo";

// One log line: printed by liblog on a host, e.g. "tarvo I 11-21 23:17:09  5883  5885 IO handler
// started", or captured in-process, where there is no pid and tid. Priorities are Android's
// numbers: 2 verbose, 3 debug, 4 info, 5 warn, 6 error, 7 fatal.
struct LogLine {
    int priority = 0;
    std::string text;
    std::string tag = kDaemonTag;
    pid_t pid = 0;
    pid_t tid = 0;

    // "I tarvo: IO handler started"
    std::string ToString() const;
    bool operator==(const LogLine& other) const;
};

std::ostream& operator<<(std::ostream& out, const LogLine& line);

std::optional<LogLine> ParseLogLine(const std::string& line);
char PriorityLetter(int priority);

}  // namespace tarvo_emu
