#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace tarvo_emu {

// One line that liblog printed on a host, e.g. "tarvo I 11-21 23:17:09  5883  5885 IO handler
// started". Priorities are Android's numbers: 2 verbose, 3 debug, 4 info, 5 warn, 6 error, 7 fatal.
struct LogLine {
    std::string tag;
    int priority = 0;
    pid_t pid = 0;
    pid_t tid = 0;
    std::string text;

    // "I tarvo: IO handler started"
    std::string ToString() const;
};

std::optional<LogLine> ParseLogLine(const std::string& line);
char PriorityLetter(int priority);

}  // namespace tarvo_emu
