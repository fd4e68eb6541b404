#include "scenario/step_handlers.h"

#include <chrono>
#include <regex>

#include <android-base/result.h>

#include "scenario/near_miss.h"
#include "scenario/step_regex.h"

using android::base::Error;
using android::base::Result;
using std::chrono::milliseconds;

namespace tarvo_emu {

namespace {

// Lines of this priority (any, when not given) and tag whose whole text `regex` matches.
EventList<LogLine>::Predicate LineMatcher(int priority, const std::string& tag,
                                          const std::regex& regex) {
    return [=](const LogLine& line) {
        return (priority == 0 || line.priority == priority) && line.tag == tag &&
               std::regex_match(line.text, regex);
    };
}

}  // namespace

Result<void> PlayExpectLog(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::ExpectLog& expect = call.step.expect_log();
    const milliseconds timeout = StepTimeout(expect.has_timeout_ms(), expect.timeout_ms());
    const std::string tag = expect.has_tag() ? expect.tag() : kDaemonTag;
    size_t first = 0;
    if (!expect.since_mark().empty()) {
        const auto& marks = player.state().marks;
        const auto mark = marks.find(expect.since_mark());
        if (mark == marks.end()) return Error() << "no mark \"" << expect.since_mark() << "\"";
        first = mark->second.log_lines;
    }
    EventList<LogLine>::Predicate matches;
    if (expect.has_text_regex()) {
        Result<std::regex> regex = CompiledRegex(expect.text_regex());
        if (!regex.ok()) return regex.error();
        matches = LineMatcher(expect.priority(), tag, *regex);
    } else {
        matches = [priority = expect.priority(), tag, text = expect.text()](const LogLine& line) {
            return (priority == 0 || line.priority == priority) && line.tag == tag &&
                   line.text == text;
        };
    }
    EventList<LogLine>& logs = player.rig().log_events();
    if (expect.has_count()) {
        logs.WaitForCount(matches, expect.count(), timeout, first);
        const size_t count = logs.TakeAll(matches, first);
        if (count == expect.count()) return {};
        return Errorf("{} such log lines, not {}", count, expect.count());
    }
    if (player.WaitUnlessCancelled(timeout, [&](milliseconds slice) {
            return logs.Take(matches, slice, first).has_value();
        })) {
        return {};
    }
    return Errorf("no such log line within {} ms", timeout.count())
           << NearestLogLines(logs.Untaken(), expect.priority(), tag,
                              expect.has_text_regex() ? expect.text_regex() : expect.text());
}

Result<void> PlayExpectNoLog(StepPlayer& player, const StepCall& call) {
    const tarvo_scenario::ExpectNoLog& expect = call.step.expect_no_log();
    const std::string tag = expect.has_tag() ? expect.tag() : kDaemonTag;
    size_t count = 0;
    if (expect.has_text_regex()) {
        Result<std::regex> regex = CompiledRegex(expect.text_regex());
        if (!regex.ok()) return regex.error();
        count = player.rig().log_events().Count(LineMatcher(expect.priority(), tag, *regex));
    } else {
        count = player.rig().CountLog(expect.priority(), expect.text(), tag);
    }
    if (count == 0) return {};
    return Errorf("the line was printed {} time(s)", count);
}

}  // namespace tarvo_emu
