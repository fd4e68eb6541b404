#include "process/log_line.h"

#include <regex>
#include <tuple>
#include <utility>

#include <android-base/parseint.h>

namespace tarvo_emu {

namespace {
constexpr const char kLetters[] = "??VDIWEF";
}  // namespace

char PriorityLetter(int priority) {
    if (priority < 0 || priority > 7) return '?';
    return kLetters[priority];
}

std::string LogLine::ToString() const {
    return std::string(1, PriorityLetter(priority)) + " " + tag + ": " + text;
}

bool LogLine::operator==(const LogLine& other) const {
    return std::tie(priority, text, tag, pid, tid) ==
           std::tie(other.priority, other.text, other.tag, other.pid, other.tid);
}

std::ostream& operator<<(std::ostream& out, const LogLine& line) { return out << line.ToString(); }

std::optional<LogLine> ParseLogLine(const std::string& line) {
    // Tag, priority letter, date, time, pid, tid, then the text as the caller formatted it, any
    // bytes at all: `.` would stop at a carriage return.
    static const std::regex kFormat(
        R"(^(\S+) ([VDIWEF]) \d\d-\d\d \d\d:\d\d:\d\d +(\d+) +(\d+) ([\s\S]*)$)");
    std::smatch match;
    if (!std::regex_match(line, match, kFormat)) return std::nullopt;
    LogLine parsed;
    parsed.tag = match[1];
    parsed.priority = static_cast<int>(std::string(kLetters).find(match[2].str()[0]));
    if (!android::base::ParseInt(match[3].str(), &parsed.pid) ||
        !android::base::ParseInt(match[4].str(), &parsed.tid)) {
        return std::nullopt;
    }
    parsed.text = match[5];
    return parsed;
}

void LogLineJoiner::Start(LogLine line) {
    Flush();
    held_ = std::move(line);
}

bool LogLineJoiner::Continue(const std::string& line) {
    if (!held_) return false;
    held_->text += "\n" + line;
    return true;
}

void LogLineJoiner::Flush() {
    if (!held_) return;
    sink_(*std::exchange(held_, std::nullopt));
}

}  // namespace tarvo_emu
