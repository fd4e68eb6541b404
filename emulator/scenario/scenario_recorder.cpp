#include "scenario/scenario_recorder.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>

#include <android-base/strings.h>

#include "peers/transcript.h"
#include "scenario/scenario_text.h"

using android::base::Result;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Hex digits after "0x" from which a number is taken for an address.
constexpr size_t kAddressDigits = 8;

// Whether the text holds something that differs between two runs of the same steps: one of the
// pids, a descriptor, an address, a clock time ("12:34:56") or a fraction.
bool Varies(const std::string& text, const std::set<std::string>& pids) {
    for (size_t i = 0; i < text.size();) {
        if (!IsDigit(text[i])) {
            ++i;
            continue;
        }
        size_t end = i;
        if (text.compare(i, 2, "0x") == 0) {
            for (end += 2; end < text.size() && IsHexDigit(text[end]); ++end) {
            }
            if (end - i - 2 >= kAddressDigits) return true;
            i = end;
            continue;
        }
        while (end < text.size() && IsDigit(text[end])) ++end;
        if (pids.count(text.substr(i, end - i)) != 0) return true;
        // Descriptor numbers follow the order in which the daemon's threads open their nodes.
        const std::string before = text.substr(0, i);
        for (const char* label : {"fd: ", "fd:", "fd="}) {
            if (android::base::EndsWith(before, label)) return true;
        }
        if (end + 1 < text.size() && (text[end] == '.' || text[end] == ':') &&
            IsDigit(text[end + 1])) {
            return true;
        }
        i = end;
    }
    return false;
}

// A regular expression matching `text` with any number (decimal, or hex after "0x") in its place.
std::string LooseRegex(const std::string& text) {
    static const std::string kSpecial = "\\^$.|?*+()[]{}";
    std::string regex;
    for (size_t i = 0; i < text.size();) {
        if (text.compare(i, 2, "0x") == 0 && i + 2 < text.size() && IsHexDigit(text[i + 2])) {
            regex += "0x[0-9a-fA-F]+";
            for (i += 2; i < text.size() && IsHexDigit(text[i]); ++i) {
            }
        } else if (IsDigit(text[i])) {
            regex += "[0-9]+";
            while (i < text.size() && IsDigit(text[i])) ++i;
        } else {
            if (kSpecial.find(text[i]) != std::string::npos) regex += '\\';
            regex += text[i++];
        }
    }
    return regex;
}

}  // namespace

ScenarioRecorder::ScenarioRecorder(const tarvo_scenario::Scenario& setup) : setup_(setup) {
    setup_.clear_step();
}

void ScenarioRecorder::BeforeStep(const Step& step, Rig& rig) {
    BeforeStep(step, {rig.modem().received_events().size(), rig.ril().received_events().size(),
                      rig.log_events().size(), Clock::now()});
}

void ScenarioRecorder::BeforeStep(const Step& step, const Mark& mark) {
    steps_.push_back(step);
    marks_.push_back(mark);
    failed_.push_back(false);
}

ScenarioFile ScenarioRecorder::File(const Seen& seen, Clock::time_point end) const {
    std::set<std::string> pids;
    // Where each daemon's start-up ends: before its monitor holds the boot node, its threads race
    // (a reader may find the node not yet open), so what it prints then differs between runs.
    std::map<pid_t, size_t> started;
    for (size_t i = 0; i < seen.log_lines.size(); ++i) {
        const LogLine& line = seen.log_lines[i].event;
        pids.insert(std::to_string(line.pid));
        if (IsDaemonStarted(line)) started.emplace(line.pid, i);
    }

    using Timeout = std::optional<std::chrono::milliseconds>;
    // What the daemon did between two marks that no step took, in the order it happened, each as
    // the step that expects it given its wait.
    const auto untaken = [&](const Mark& from, const Mark& to) {
        std::vector<std::pair<Clock::time_point, std::function<Step(Timeout)>>> events;
        // Each untaken message or RIL request, as the step that expects it.
        const auto add = [&events](const auto& recorded, size_t first, size_t last) {
            for (size_t i = first; i < last; ++i) {
                const auto& entry = recorded[i];
                if (entry.taken) continue;
                events.emplace_back(entry.arrived, [&entry](Timeout timeout) {
                    return ExpectStep(entry.event, timeout);
                });
            }
        };
        add(seen.messages, from.messages, to.messages);
        add(seen.ril_requests, from.ril_requests, to.ril_requests);
        for (size_t i = from.log_lines; i < to.log_lines; ++i) {
            const LogLine& line = seen.log_lines[i].event;
            const auto start = started.find(line.pid);
            if (seen.log_lines[i].taken || (start != started.end() && i < start->second)) continue;
            std::optional<std::string> regex;
            if (Varies(line.text, pids)) regex = LooseRegex(line.text);
            events.emplace_back(seen.log_lines[i].arrived, [&line, regex](Timeout timeout) {
                return ExpectStep(line, regex, timeout);
            });
        }
        std::stable_sort(events.begin(), events.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        // A line the daemon prints by the clock comes as late when played back.
        std::vector<Step> steps;
        Clock::time_point previous = from.time;
        for (const auto& [arrived, step] : events) {
            steps.push_back(step(ReplayTimeout(
                std::chrono::duration_cast<std::chrono::milliseconds>(arrived - previous))));
            previous = arrived;
        }
        return steps;
    };

    ScenarioFile file(
        "Recorded by tarvo-emu: the setup, each step played and after it, as expectations,\n"
        "what the daemon did that no step took (but the lines of its start-up, whose order\n"
        "its threads decide). Play it with `tarvo-emu run FILE`.",
        setup_);
    std::vector<Mark> marks = {{0, 0, 0, start_}};
    marks.insert(marks.end(), marks_.begin(), marks_.end());
    marks.push_back({seen.messages.size(), seen.ril_requests.size(), seen.log_lines.size(), end});
    for (size_t i = 0; i + 1 < marks.size(); ++i) {
        if (i > 0 && failed_[i - 1]) file.AddFailedStep(steps_[i - 1]);
        if (i > 0 && !failed_[i - 1]) file.AddStep(steps_[i - 1]);
        for (const Step& step : untaken(marks[i], marks[i + 1])) file.AddStep(step);
    }
    return file;
}

Result<void> ScenarioRecorder::Write(const std::string& path, Rig& rig) const {
    const Seen seen = {rig.modem().received_events().Snapshot(),
                       rig.ril().received_events().Snapshot(), rig.log_events().Snapshot()};
    return File(seen, Clock::now()).Write(path);
}

}  // namespace tarvo_emu
