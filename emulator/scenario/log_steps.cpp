#include "scenario/step_handlers.h"

#include <chrono>
#include <functional>
#include <regex>
#include <string>

#include <android-base/result.h>

#include "scenario/near_miss.h"
#include "scenario/step_check.h"

using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// The lines that an expect_log or expect_no_log step looks for: of its priority (any, when not
// given) and tag, and its text, or whose whole text its regular expression matches.
template <typename Expect>
Result<EventList<LogLine>::Predicate> LineMatcher(const Expect& expect) {
    std::function<bool(const std::string&)> text_matches =
        [text = expect.text()](const std::string& actual) { return actual == text; };
    if (expect.has_text_regex()) {
        Result<std::regex> regex = CompiledRegex(expect.text_regex());
        if (!regex.ok()) return regex.error();
        text_matches = [regex = *regex](const std::string& actual) {
            return std::regex_match(actual, regex);
        };
    }
    return [priority = expect.priority(), tag = expect.has_tag() ? expect.tag() : kDaemonTag,
            text_matches](const LogLine& line) {
        return (priority == 0 || line.priority == priority) && line.tag == tag &&
               text_matches(line.text);
    };
}

}  // namespace

Result<void> PlayExpectLog(StepPlayer& player, const tarvo_scenario::Step& step) {
    const tarvo_scenario::ExpectLog& expect = step.expect_log();
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    size_t first = 0;
    if (!expect.since_mark().empty()) {
        const auto& marks = player.state().marks;
        const auto mark = marks.find(expect.since_mark());
        if (mark == marks.end()) return Error() << "no mark \"" << expect.since_mark() << "\"";
        first = mark->second.log_lines;
    }
    Result<EventList<LogLine>::Predicate> matches = LineMatcher(expect);
    if (!matches.ok()) return matches.error();
    EventList<LogLine>& logs = player.rig().log_events();
    if (expect.has_count()) {
        logs.WaitForCount(*matches, expect.count(), timeout, first);
        const size_t count = logs.TakeAll(*matches, first);
        if (count == expect.count()) return {};
        return Errorf("{} such log lines, not {}", count, expect.count());
    }
    if (player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
            return logs.Take(*matches, slice, first).has_value();
        })) {
        return {};
    }
    return Errorf("no such log line within {} ms", timeout.count()) << NearestLogLines(
               logs.Untaken(), expect.priority(), expect.has_tag() ? expect.tag() : kDaemonTag,
               expect.has_text_regex() ? expect.text_regex() : expect.text());
}

Result<void> PlayExpectNoLog(StepPlayer& player, const tarvo_scenario::Step& step) {
    Result<EventList<LogLine>::Predicate> matches = LineMatcher(step.expect_no_log());
    if (!matches.ok()) return matches.error();
    const size_t count = player.rig().log_events().Count(*matches);
    if (count == 0) return {};
    return Errorf("the line was printed {} time(s)", count);
}

}  // namespace tarvo_emu
