#pragma once

#include <sys/types.h>

#include <functional>
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

// A line that starts with liblog's header; nothing for any other line.
std::optional<LogLine> ParseLogLine(const std::string& line);

// Puts a process's log lines back together. liblog prints a text that holds line feeds as it
// stands, after one header, in one write: the lines without a header that follow a log line in
// the same write are the rest of its text. A log line is held until the next one starts or the
// reader has taken everything printed so far, and then handed to the sink whole.
class LogLineJoiner {
  public:
    explicit LogLineJoiner(std::function<void(LogLine)> sink) : sink_(std::move(sink)) {}

    void Start(LogLine line);
    // Appends a line without a header to the held log line; false when none is held.
    bool Continue(const std::string& line);
    void Flush();

  private:
    std::function<void(LogLine)> sink_;
    std::optional<LogLine> held_;
};

// The letter that liblog prints for an Android priority; '?' for a number that names none.
char PriorityLetter(int priority);

}  // namespace tarvo_emu
