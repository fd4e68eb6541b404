#include "scenario/scenario_recorder.h"

#include <algorithm>
#include <map>
#include <set>

#include <google/protobuf/text_format.h>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "peers/transcript.h"
#include "scenario/step_text.h"
#include "scenario/step_wait.h"

using android::base::ErrnoError;
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

ScenarioRecorder::Mark ScenarioRecorder::MarkOf(Rig& rig) {
    return {rig.modem().received_events().size(), rig.ril().received_events().size(),
            rig.log_events().size(), std::chrono::steady_clock::now()};
}

void ScenarioRecorder::BeforeStep(const Step& step, Rig& rig) {
    steps_.push_back(step);
    marks_.push_back(MarkOf(rig));
    failed_.push_back(false);
}

std::string ScenarioRecorder::Text(Rig& rig) const {
    const auto messages = rig.modem().received_events().Snapshot();
    const auto ril_requests = rig.ril().received_events().Snapshot();
    const auto log_lines = rig.log_events().Snapshot();
    std::set<std::string> pids;
    // Where each daemon's start-up ends: before its monitor holds the boot node, its threads race
    // (a reader may find the node not yet open), so what it prints then differs between runs.
    std::map<pid_t, size_t> started;
    for (size_t i = 0; i < log_lines.size(); ++i) {
        const LogLine& line = log_lines[i].event;
        pids.insert(std::to_string(line.pid));
        if (IsDaemonStarted(line)) started.emplace(line.pid, i);
    }

    using Clock = std::chrono::steady_clock;
    // What the daemon did between two marks that no step took, as steps in the order it happened.
    const auto untaken = [&](const Mark& from, const Mark& to) {
        std::vector<std::pair<Clock::time_point, Step>> steps;
        for (size_t i = from.messages; i < to.messages; ++i) {
            if (messages[i].taken) continue;
            Step& step = steps.emplace_back(messages[i].arrived, Step()).second;
            tarvo_scenario::Expect* expect = step.mutable_expect();
            *expect->mutable_message() = messages[i].event;
            // The daemon numbers its own requests.
            if (messages[i].event.type() == tarvo_message::REQUEST) {
                expect->mutable_message()->clear_token();
            }
            expect->set_exact_payload(true);
        }
        for (size_t i = from.ril_requests; i < to.ril_requests; ++i) {
            if (ril_requests[i].taken) continue;
            Step& step = steps.emplace_back(ril_requests[i].arrived, Step()).second;
            step.mutable_expect_ril()->set_request(ril_requests[i].event.request);
            step.mutable_expect_ril()->set_data(ril_requests[i].event.data);
        }
        for (size_t i = from.log_lines; i < to.log_lines; ++i) {
            const LogLine& line = log_lines[i].event;
            const auto start = started.find(line.pid);
            if (log_lines[i].taken || (start != started.end() && i < start->second)) continue;
            Step& step = steps.emplace_back(log_lines[i].arrived, Step()).second;
            tarvo_scenario::ExpectLog* expect = step.mutable_expect_log();
            expect->set_priority(static_cast<tarvo_scenario::Priority>(line.priority));
            if (line.tag != kDaemonTag) expect->set_tag(line.tag);
            if (Varies(line.text, pids)) {
                expect->set_text_regex(LooseRegex(line.text));
            } else {
                expect->set_text(line.text);
            }
        }
        std::stable_sort(steps.begin(), steps.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        // A line the daemon prints by the clock comes as late when played back: twice the wait
        // it took, when that is more than a step waits by default.
        Clock::time_point previous = from.time;
        for (auto& [arrived, step] : steps) {
            const auto twice =
                2 * std::chrono::duration_cast<std::chrono::milliseconds>(arrived - previous);
            previous = arrived;
            if (twice <= kDefaultStepTimeout) continue;
            const uint32_t timeout_ms = static_cast<uint32_t>(twice.count());
            if (step.has_expect()) step.mutable_expect()->set_timeout_ms(timeout_ms);
            if (step.has_expect_ril()) step.mutable_expect_ril()->set_timeout_ms(timeout_ms);
            if (step.has_expect_log()) step.mutable_expect_log()->set_timeout_ms(timeout_ms);
        }
        return steps;
    };

    std::string recorded;
    const auto add = [&recorded](const Step& step, const char* prefix) {
        recorded += prefix + ("step { " + FullStepText(step) + " }\n");
    };
    std::vector<Mark> marks = {{0, 0, 0, start_}};
    marks.insert(marks.end(), marks_.begin(), marks_.end());
    marks.push_back({messages.size(), ril_requests.size(), log_lines.size(), Clock::now()});
    for (size_t i = 0; i + 1 < marks.size(); ++i) {
        if (i > 0) add(steps_[i - 1], failed_[i - 1] ? "# failed: " : "");
        for (const auto& [arrived, step] : untaken(marks[i], marks[i + 1])) add(step, "");
    }

    std::string setup;
    google::protobuf::TextFormat::PrintToString(setup_, &setup);
    return "# Recorded by tarvo-emu: the setup, each step played and after it, as expectations,\n"
           "# what the daemon did that no step took (but the lines of its start-up, whose order\n"
           "# its threads decide). Play it with `tarvo-emu run FILE`.\n" +
           setup + recorded;
}

Result<void> ScenarioRecorder::Write(const std::string& path, Rig& rig) const {
    if (!android::base::WriteStringToFile(Text(rig), path)) {
        return ErrnoError() << "cannot write " << path;
    }
    return {};
}

}  // namespace tarvo_emu
