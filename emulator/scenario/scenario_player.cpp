#include "scenario/scenario_player.h"

#include <fcntl.h>
#include <signal.h>

#include <cstring>
#include <map>
#include <random>
#include <regex>
#include <thread>

#include <google/protobuf/util/message_differencer.h>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "process/process_usage.h"
#include "process/wait_until.h"
#include "scenario/step_text.h"

using android::base::Error;
using android::base::Result;
using android::base::StringPrintf;
using std::chrono::milliseconds;
using tarvo_scenario::ExpectFile;
using tarvo_scenario::ExpectLog;
using tarvo_scenario::ExpectNoLog;
using tarvo_scenario::ExpectProperty;
using tarvo_scenario::Fault;
using tarvo_scenario::Scenario;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

std::string GeneratedBytes(const tarvo_scenario::Generated& generated) {
    std::string bytes;
    bytes.reserve(generated.size());
    if (generated.has_random_seed()) {
        std::mt19937_64 random(generated.random_seed());
        while (bytes.size() < generated.size()) {
            const uint64_t word = random();
            bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
        }
    } else if (generated.pattern().empty()) {
        bytes.assign(generated.size(), '\0');
    } else {
        const std::string& pattern = generated.pattern();
        const uint64_t run = std::max<uint64_t>(generated.has_run() ? generated.run() : 1, 1);
        if (run == 1) {
            // Whole patterns at a time: seed files of hundreds of MiB are made this way.
            while (bytes.size() < generated.size()) bytes += pattern;
        } else {
            for (size_t i = 0; bytes.size() < generated.size(); i = (i + 1) % pattern.size()) {
                bytes.append(std::min(run, generated.size() - bytes.size()), pattern[i]);
            }
        }
    }
    bytes.resize(generated.size());
    return bytes;
}

// `content` once, or repeated (zeros when empty) up to exactly `size` bytes.
std::string SeedContent(const tarvo_scenario::SeedFile& file) {
    if (!file.has_size()) return file.content();
    tarvo_scenario::Generated generated;
    generated.set_pattern(file.content());
    generated.set_size(file.size());
    return GeneratedBytes(generated);
}

// Where two contents first differ, for a failure that does not print megabytes.
std::string FirstDifference(const std::string& actual, const std::string& expected) {
    const auto [at, _] =
        std::mismatch(actual.begin(), actual.end(), expected.begin(), expected.end());
    const size_t offset = at - actual.begin();
    if (offset < actual.size() && offset < expected.size()) {
        return StringPrintf("byte %zu is 0x%02x, not 0x%02x", offset,
                            static_cast<unsigned char>(actual[offset]),
                            static_cast<unsigned char>(expected[offset]));
    }
    return StringPrintf("%zu bytes, not %zu, alike up to the shorter's end", actual.size(),
                        expected.size());
}

// The innermost message set in `message`: the request or indication that its payload holds.
google::protobuf::Message* InnermostPayload(google::protobuf::Message* message) {
    while (true) {
        const google::protobuf::Reflection* reflection = message->GetReflection();
        std::vector<const google::protobuf::FieldDescriptor*> fields;
        reflection->ListFields(*message, &fields);
        const auto nested = std::find_if(fields.begin(), fields.end(), [](const auto* field) {
            return field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_MESSAGE &&
                   !field->is_repeated();
        });
        if (nested == fields.end()) return message;
        message = reflection->MutableMessage(message, *nested);
    }
}

// What a mark records of the daemon.
struct Usage {
    pid_t pid = 0;
    size_t descriptors = 0;
    size_t threads = 0;
    long rss_kib = 0;
    size_t log_lines = 0;
};

Usage UsageOf(pid_t pid) {
    const ProcessUsage process = ReadProcessUsage(pid).value_or(ProcessUsage{});
    return {pid, process.descriptors, process.threads, process.rss_kib};
}

// How many of the nearest candidates a failure shows.
constexpr size_t kNearestShown = 3;
// Longer lines of a difference report are cut: a 64 KiB data field is not read whole.
constexpr size_t kLongestReportLine = 300;
// Texts longer than this are compared by their start only.
constexpr size_t kLongestCompared = 512;
// Log lines looked at for the nearest: the latest ones.
constexpr size_t kLogLinesCompared = 2000;
// Bytes of a file shown when an expectation on it failed.
constexpr size_t kFileBytesShown = 256;

// Each line of `report` indented, long lines cut.
std::string Indented(const std::string& report, const std::string& indent) {
    std::string indented;
    for (std::string line : android::base::Split(report, "\n")) {
        if (line.empty()) continue;
        if (line.size() > kLongestReportLine) line = line.substr(0, kLongestReportLine) + "...";
        indented += "\n" + indent + line;
    }
    return indented;
}

// The message without its header: what an exact payload is compared on.
tarvo_message::TarvoMessage PayloadOnly(const tarvo_message::TarvoMessage& message) {
    tarvo_message::TarvoMessage payload = message;
    payload.clear_type();
    payload.clear_message_id();
    payload.clear_token();
    payload.clear_result();
    return payload;
}

// Field by field, how `actual` differs from what `expected` sets; the payloads compared whole
// when `exact_payload`.
std::string DifferenceReport(const tarvo_message::TarvoMessage& expected,
                             const tarvo_message::TarvoMessage& actual, bool exact_payload) {
    using google::protobuf::util::MessageDifferencer;
    std::string report;
    if (!exact_payload) {
        MessageDifferencer differencer;
        differencer.set_scope(MessageDifferencer::PARTIAL);
        differencer.ReportDifferencesToString(&report);
        differencer.Compare(expected, actual);
        return report;
    }
    tarvo_message::TarvoMessage expected_header = expected;
    tarvo_message::TarvoMessage actual_header = actual;
    expected_header.clear_payload();
    actual_header.clear_payload();
    MessageDifferencer header;
    header.set_scope(MessageDifferencer::PARTIAL);
    header.ReportDifferencesToString(&report);
    header.Compare(expected_header, actual_header);
    std::string payload_report;
    MessageDifferencer payload;
    payload.ReportDifferencesToString(&payload_report);
    payload.Compare(PayloadOnly(expected), PayloadOnly(actual));
    return report + payload_report;
}

// Bytes to change to turn one text into the other (Levenshtein), over their first bytes.
size_t EditDistance(const std::string& a_text, const std::string& b_text) {
    const std::string_view a = std::string_view(a_text).substr(0, kLongestCompared);
    const std::string_view b = std::string_view(b_text).substr(0, kLongestCompared);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

std::string PriorityName(int priority) {
    return tarvo_scenario::Priority_IsValid(priority)
               ? tarvo_scenario::Priority_Name(static_cast<tarvo_scenario::Priority>(priority))
               : std::to_string(priority);
}

// A file's size, mode and first bytes, for a failed expectation on it.
std::string Holdings(const std::string& content, std::optional<mode_t> mode) {
    std::string shown = google::protobuf::CEscape(content.substr(0, kFileBytesShown));
    if (content.size() > kFileBytesShown) shown += "...";
    return StringPrintf("the file holds %zu bytes, mode 0%o: \"", content.size(),
                        mode.value_or(0)) +
           shown + "\"";
}

// An ECMAScript regular expression; an unusable one is an error, not an exception.
Result<std::regex> Compiled(const std::string& regex) {
    try {
        return std::regex(regex, std::regex::ECMAScript);
    } catch (const std::regex_error& e) {
        return Error() << "bad regular expression \"" << regex << "\": " << e.what();
    }
}

// The payloads of both messages equal, field presence included; headers are not compared.
bool PayloadsEqual(const tarvo_message::TarvoMessage& a, const tarvo_message::TarvoMessage& b) {
    return google::protobuf::util::MessageDifferencer::Equals(PayloadOnly(a), PayloadOnly(b));
}

RigOptions OptionsOf(const tarvo_scenario::Scenario& scenario, std::ostream* transcript,
                     std::ostream* full_transcript) {
    RigOptions options;
    options.initial_state = scenario.initial_state();
    for (const tarvo_scenario::SeedFile& file : scenario.file()) {
        options.files.push_back({file.path(), SeedContent(file),
                                 static_cast<mode_t>(file.has_mode() ? file.mode() : 0664)});
    }
    for (const tarvo_scenario::Property& property : scenario.property()) {
        options.properties.emplace_back(property.name(), property.value());
    }
    options.remove.assign(scenario.remove().begin(), scenario.remove().end());
    options.ril.absent = scenario.ril().absent();
    options.ril.omit_symbol = scenario.ril().omit_symbol();
    options.ril.open_fails = scenario.ril().open_fails();
    if (scenario.has_tput()) {
        const tarvo_scenario::TputModem& tput = scenario.tput();
        if (tput.has_downlink_block_size()) {
            options.tput.downlink_block_size = tput.downlink_block_size();
        }
        options.tput.downlink_bytes_per_s = tput.downlink_bytes_per_s();
        options.tput.no_downlink = tput.no_downlink();
        options.tput.fail_writes.assign(tput.fail_write().begin(), tput.fail_write().end());
    }
    options.data_size_limit_kib = scenario.data_size_limit_kib();
    options.read_only.assign(scenario.read_only().begin(), scenario.read_only().end());
    options.transcript = transcript;
    options.full_transcript = full_transcript;
    return options;
}

milliseconds TimeoutOf(bool has_timeout, uint32_t timeout_ms) {
    return has_timeout ? milliseconds(timeout_ms) : kDefaultStepTimeout;
}

IpcFault FaultOf(Fault fault) {
    switch (fault) {
        case tarvo_scenario::READ_ERROR:
            return IpcFault::kReadError;
        case tarvo_scenario::WRITE_ERROR:
            return IpcFault::kWriteError;
        case tarvo_scenario::HANG_UP:
            return IpcFault::kHangUp;
        default:
            return IpcFault::kEndOfFile;
    }
}

std::string Quoted(const std::string& bytes) {
    return "\"" + google::protobuf::CEscape(bytes) + "\"";
}

// Plays one step; an empty result means it held.
}  // namespace

class StepPlayer {
  public:
    StepPlayer(Rig* rig, const ScenarioOrigin* origin) : rig_(rig), origin_(origin) {}

    // Plays the steps in order; the first failure, naming its file, line and step, or empty when
    // all held. `places` are the steps' places in the file, when known.
    std::string PlayAll(const google::protobuf::RepeatedPtrField<Step>& steps,
                        const std::string& label, const std::vector<StepPlace>* places) {
        for (int i = 0; i < steps.size(); ++i) {
            const StepPlace* place =
                places != nullptr && i < static_cast<int>(places->size()) ? &(*places)[i] : nullptr;
            const std::string why = PlayNamed(steps[i], label + StringPrintf("step %d", i), place);
            if (!why.empty()) return why;
        }
        return {};
    }

    // Plays a step shown in the transcript as `name`; why it failed, naming it (with its file
    // and line when its `place` is known), or empty.
    std::string PlayNamed(const Step& step, const std::string& name, const StepPlace* place) {
        if (!step.note().empty()) rig_->transcript().Note("# " + step.note());
        if (step.action_case() == Step::ACTION_NOT_SET) return {};
        Step shown = step;
        shown.clear_note();
        const std::string text = step.has_repeat()
                                     ? StringPrintf("repeat %u times", step.repeat().times())
                                     : ShortStepText(shown);
        rig_->transcript().Note(name + ": " + text);
        const std::string why = Play(step, name, place);
        if (why.empty()) return {};
        // A failure inside a repeat names its own step.
        if (step.has_repeat()) return why;
        std::string where;
        if (origin_ != nullptr && place != nullptr) {
            where = StringPrintf("%s:%d: ", origin_->path.c_str(), place->line);
        }
        return where + name + " (" + text + ") failed: " + why;
    }

    // `name` and `place` are the step's, for the steps of a repeat.
    std::string Play(const Step& step, const std::string& name = {},
                     const StepPlace* place = nullptr) {
        switch (step.action_case()) {
            case Step::kModemState:
                rig_->SetModemState(step.modem_state());
                return {};
            case Step::kSend:
                rig_->Send(step.send());
                return {};
            case Step::kExpect:
                return Expect(step.expect());
            case Step::kExpectSilenceMs:
                return ExpectSilence(step.expect_silence_ms());
            case Step::kExpectLog:
                return ExpectLogLine(step.expect_log());
            case Step::kExpectNoLog:
                return ExpectNoLogLine(step.expect_no_log());
            case Step::kExpectFile:
                return ExpectFileState(step.expect_file());
            case Step::kExpectProperty:
                return ExpectPropertyValue(step.expect_property());
            case Step::kAutoReply:
                SetAutoReply(step.auto_reply());
                return {};
            case Step::kClient:
                return RunClient(step.client(), step.exit_status());
            case Step::kSleepMs:
                std::this_thread::sleep_for(milliseconds(step.sleep_ms()));
                return {};
            case Step::kSendRaw:
                rig_->modem().SendRaw(step.send_raw());
                return {};
            case Step::kRestartDaemon:
                return RestartDaemon(step.restart_daemon());
            case Step::kFault:
                if (step.fault() == tarvo_scenario::NO_FAULT) return "no fault named";
                rig_->InjectFault(FaultOf(step.fault()));
                return {};
            case Step::kExpectRil:
                return ExpectRilRequest(step.expect_ril());
            case Step::kRilReply:
                SetRilReply(step.ril_reply());
                return {};
            case Step::kExpectRilSilenceMs:
                return ExpectRilSilence(step.expect_ril_silence_ms());
            case Step::kExpectUplink:
                return ExpectUplinkCounters(step.expect_uplink());
            case Step::kRepeat:
                return Repeat(step.repeat(), name, place);
            case Step::kMark:
                return Mark(step.mark());
            case Step::kExpectUsage:
                return ExpectUsage(step.expect_usage());
            case Step::kWriteFile:
                if (rig_->WriteFile(step.write_file().path(), SeedContent(step.write_file()),
                                    step.write_file().has_mode() ? step.write_file().mode() : 0664)
                        .ok()) {
                    return {};
                }
                return "cannot write " + step.write_file().path();
            case Step::kRemoveFile:
                return rig_->RemoveFile(step.remove_file()).ok()
                           ? ""
                           : "cannot remove " + step.remove_file();
            case Step::kSendGenerated:
                return SendGenerated(step.send_generated());
            case Step::kExpectThermalWrites:
                return ExpectThermalWrites(step.expect_thermal_writes());
            case Step::kSignalDaemon:
                return SignalDaemon(step.signal_daemon());
            case Step::ACTION_NOT_SET:
                return {};
        }
        return "unknown step";
    }

  private:
    std::string RestartDaemon(bool restart) {
        if (!restart) return {};
        Result<void> restarted = rig_->RestartDaemon();
        return restarted.ok() ? std::string() : "restart: " + restarted.error().message();
    }

    std::string Expect(const tarvo_scenario::Expect& expect) {
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        if (expect.exact_payload()) {
            tarvo_message::TarvoMessage header = expect.message();
            header.clear_payload();
            const auto matches = [&](const tarvo_message::TarvoMessage& message) {
                return PartiallyMatches(header, message) &&
                       PayloadsEqual(expect.message(), message);
            };
            if (rig_->modem().Await(matches, timeout)) return {};
        } else if (rig_->AwaitMessage(expect.message(), timeout)) {
            return {};
        }
        return StringPrintf("no such message from the daemon within %lld ms",
                            static_cast<long long>(timeout.count())) +
               NearestMessages(expect.message(), expect.exact_payload());
    }

    // The daemon's messages that no step took, nearest first, each with how it differs.
    std::string NearestMessages(const tarvo_message::TarvoMessage& expected, bool exact_payload) {
        const std::vector<tarvo_message::TarvoMessage> untaken = rig_->modem().untaken();
        if (untaken.empty()) return "; every message of the daemon was taken by an earlier step";
        std::vector<std::pair<size_t, std::string>> nearest;
        for (const tarvo_message::TarvoMessage& message : untaken) {
            const std::string report = DifferenceReport(expected, message, exact_payload);
            nearest.emplace_back(std::count(report.begin(), report.end(), '\n'),
                                 "\n  { " + ShortText(message) + " }" + Indented(report, "    "));
        }
        std::stable_sort(nearest.begin(), nearest.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::string shown =
            StringPrintf("; nearest of the %zu messages that no step took:", untaken.size());
        for (size_t i = 0; i < std::min(kNearestShown, nearest.size()); ++i) {
            shown += nearest[i].second;
        }
        return shown;
    }

    // The log lines that no step took, nearest by tag, priority and text first.
    std::string NearestLogLines(int priority, const std::string& tag, const std::string& text) {
        std::vector<LogLine> untaken = rig_->log_events().Untaken();
        if (untaken.empty()) return "; every log line was taken by an earlier step";
        const size_t count = untaken.size();
        if (untaken.size() > kLogLinesCompared) {
            untaken.erase(untaken.begin(), untaken.end() - kLogLinesCompared);
        }
        // Another tag or priority counts as a few bytes of text more.
        constexpr size_t kOtherTag = 8;
        constexpr size_t kOtherPriority = 4;
        std::vector<std::pair<size_t, const LogLine*>> nearest;
        for (const LogLine& line : untaken) {
            size_t distance = EditDistance(text, line.text);
            if (line.tag != tag) distance += kOtherTag;
            if (priority != 0 && line.priority != priority) distance += kOtherPriority;
            nearest.emplace_back(distance, &line);
        }
        std::stable_sort(nearest.begin(), nearest.end(),
                         [](const auto& a, const auto& b) { return a.first < b.first; });
        std::string shown =
            StringPrintf("; nearest of the %zu log lines that no step took:", count);
        for (size_t i = 0; i < std::min(kNearestShown, nearest.size()); ++i) {
            const LogLine& line = *nearest[i].second;
            shown += "\n  " + std::string(1, PriorityLetter(line.priority)) + " " + line.tag +
                     ": " + PrintableText(line.text);
            std::vector<std::string> differences;
            if (line.tag != tag) differences.push_back("tag " + line.tag + ", not " + tag);
            if (priority != 0 && line.priority != priority) {
                differences.push_back("priority " + PriorityName(line.priority) + ", not " +
                                      PriorityName(priority));
            }
            if (line.text != text) {
                const auto [at, _] =
                    std::mismatch(line.text.begin(), line.text.end(), text.begin(), text.end());
                differences.push_back(StringPrintf("text differs from byte %zu",
                                                   static_cast<size_t>(at - line.text.begin())));
            }
            shown += "\n    " + android::base::Join(differences, "; ");
        }
        return shown;
    }

    std::string ExpectSilence(uint32_t ms) {
        std::optional<tarvo_message::TarvoMessage> message =
            rig_->modem().NextNew(milliseconds(ms));
        if (!message) return {};
        return "the daemon sent { " + ShortText(*message) + " }";
    }

    std::string ExpectLogLine(const ExpectLog& expect) {
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        const std::string tag = expect.has_tag() ? expect.tag() : kDaemonTag;
        size_t first = 0;
        if (!expect.since_mark().empty()) {
            const auto mark = marks_.find(expect.since_mark());
            if (mark == marks_.end()) return "no mark \"" + expect.since_mark() + "\"";
            first = mark->second.log_lines;
        }
        EventList<LogLine>::Predicate matches;
        if (expect.has_text_regex()) {
            Result<std::regex> regex = Compiled(expect.text_regex());
            if (!regex.ok()) return regex.error().message();
            matches = LineMatcher(expect.priority(), tag, *regex);
        } else {
            matches = [priority = expect.priority(), tag,
                       text = expect.text()](const LogLine& line) {
                return (priority == 0 || line.priority == priority) && line.tag == tag &&
                       line.text == text;
            };
        }
        EventList<LogLine>& logs = rig_->log_events();
        if (expect.has_count()) {
            logs.WaitForCount(matches, expect.count(), timeout, first);
            const size_t count = logs.TakeAll(matches, first);
            if (count == expect.count()) return {};
            return StringPrintf("%zu such log lines, not %u", count, expect.count());
        }
        if (logs.Take(matches, timeout, first)) return {};
        return StringPrintf("no such log line within %lld ms",
                            static_cast<long long>(timeout.count())) +
               NearestLogLines(expect.priority(), tag,
                               expect.has_text_regex() ? expect.text_regex() : expect.text());
    }

    std::string ExpectNoLogLine(const ExpectNoLog& expect) {
        const std::string tag = expect.has_tag() ? expect.tag() : kDaemonTag;
        size_t count = 0;
        if (expect.has_text_regex()) {
            Result<std::regex> regex = Compiled(expect.text_regex());
            if (!regex.ok()) return regex.error().message();
            count = rig_->log_events().Count(LineMatcher(expect.priority(), tag, *regex));
        } else {
            count = rig_->CountLog(expect.priority(), expect.text(), tag);
        }
        if (count == 0) return {};
        return StringPrintf("the line was printed %zu time(s)", count);
    }

    // Lines of this priority (any, when not given) and tag whose whole text `regex` matches.
    static EventList<LogLine>::Predicate LineMatcher(int priority, const std::string& tag,
                                                     const std::regex& regex) {
        return [=](const LogLine& line) {
            return (priority == 0 || line.priority == priority) && line.tag == tag &&
                   std::regex_match(line.text, regex);
        };
    }

    // Files that the daemon writes without a log line after them (the pid file) are checked
    // again until they hold or the step's time is up.
    std::string ExpectFileState(const ExpectFile& expect) {
        std::string why;
        WaitUntil([&] { return (why = CheckFile(expect)).empty(); },
                  milliseconds(expect.timeout_ms()));
        return why;
    }

    std::string CheckFile(const ExpectFile& expect) {
        const Result<std::string> content = rig_->ReadFile(expect.path());
        if (!content.ok()) return expect.absent() ? "" : "no such file";
        std::optional<mode_t> mode;
        if (Result<mode_t> bits = rig_->FileMode(expect.path()); bits.ok()) mode = *bits;
        const std::string why = WhyFileDiffers(expect, *content, mode);
        return why.empty() ? why : why + "; " + Holdings(*content, mode);
    }

    static std::string WhyFileDiffers(const ExpectFile& expect, const std::string& content,
                                      std::optional<mode_t> mode) {
        if (expect.absent()) return "the file exists";
        if (expect.has_content() && content != expect.content()) {
            return "content differs: " + FirstDifference(content, expect.content());
        }
        if (expect.has_content_regex()) {
            Result<std::regex> regex = Compiled(expect.content_regex());
            if (!regex.ok()) return regex.error().message();
            if (!std::regex_match(content, *regex)) return "content does not match";
        }
        if (expect.has_generated_content()) {
            const std::string generated = GeneratedBytes(expect.generated_content());
            if (content != generated) {
                return "content differs from the generated bytes: " +
                       FirstDifference(content, generated);
            }
        }
        if (expect.has_size() && content.size() != expect.size()) return "size differs";
        if (expect.has_mode() && mode != expect.mode()) {
            return StringPrintf("mode is 0%o, not 0%o", mode.value_or(0), expect.mode());
        }
        return {};
    }

    std::string ExpectPropertyValue(const ExpectProperty& expect) {
        const std::optional<std::string> value = rig_->Property(expect.name());
        if (!expect.has_value()) return value ? "the property is " + Quoted(*value) : "";
        if (!value) return "the property is not set";
        if (*value != expect.value()) return "the property is " + Quoted(*value);
        return {};
    }

    std::string ExpectUplinkCounters(const tarvo_scenario::ExpectUplink& expect) {
        const auto holds = [&expect](const TestNode::Uplink& uplink) {
            if (expect.has_writes() && uplink.writes != expect.writes()) return false;
            if (expect.has_bytes() && uplink.bytes != expect.bytes()) return false;
            if (expect.has_failed() && uplink.failed != expect.failed()) return false;
            for (const auto& [size, writes] : expect.writes_by_size()) {
                const auto it = uplink.writes_by_size.find(size);
                if ((it == uplink.writes_by_size.end() ? 0 : it->second) != writes) return false;
            }
            return true;
        };
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        TestNode& node = rig_->emulator().test();
        if (node.WaitForUplink(holds, timeout)) return {};
        const TestNode::Uplink uplink = node.uplink();
        std::string sizes;
        for (const auto& [size, writes] : uplink.writes_by_size) {
            sizes += StringPrintf(" %zu:%llu", size, static_cast<unsigned long long>(writes));
        }
        return StringPrintf("after %lld ms: writes %llu, bytes %llu, failed %llu, by size {%s }",
                            static_cast<long long>(timeout.count()),
                            static_cast<unsigned long long>(uplink.writes),
                            static_cast<unsigned long long>(uplink.bytes),
                            static_cast<unsigned long long>(uplink.failed), sizes.c_str());
    }

    void SetAutoReply(const tarvo_scenario::AutoReply& step) {
        tarvo_emu::AutoReply rule;
        rule.no_reply = step.no_reply();
        rule.result = step.result();
        if (step.has_delay_ms()) rule.delay = milliseconds(step.delay_ms());
        rule.overrides = step.reply();
        rig_->SetAutoReply(step.payload_case(), std::move(rule));
    }

    std::string ExpectRilRequest(const tarvo_scenario::ExpectRil& expect) {
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        std::optional<std::string> data;
        if (expect.has_data()) data = expect.data();
        if (rig_->AwaitRil(expect.request(), data, timeout)) return {};
        return StringPrintf("no such RIL request within %lld ms",
                            static_cast<long long>(timeout.count()));
    }

    std::string ExpectRilSilence(uint32_t ms) {
        std::optional<RilRequest> request = rig_->ril().NextNew(milliseconds(ms));
        if (!request) return {};
        return StringPrintf("the daemon sent RIL request %u", request->request);
    }

    void SetRilReply(const tarvo_scenario::RilReply& step) {
        RilReplyRule rule;
        rule.error = step.error();
        if (step.has_delay_ms()) rule.delay = milliseconds(step.delay_ms());
        rule.no_reply = step.no_reply();
        if (step.has_count()) rule.count = step.count();
        rig_->SetRilReply(step.request(), rule);
    }

    std::string RunClient(const std::string& args, int exit_status) {
        std::vector<std::string> argv;
        for (const std::string& arg : android::base::Split(args, " ")) {
            if (!arg.empty()) argv.push_back(arg);
        }
        AwaitServerPid();
        const Result<ProcessResult> result = rig_->RunClient(argv);
        if (!result.ok()) return result.error().message();
        if (result->timed_out) return "the client did not end within 10 s";
        if (result->status != exit_status) {
            return StringPrintf("the client exited with %d, not %d", result->status, exit_status);
        }
        return {};
    }

    std::string Repeat(const tarvo_scenario::Repeat& repeat, const std::string& name,
                       const StepPlace* place) {
        for (uint32_t round = 1; round <= repeat.times(); ++round) {
            std::string why = PlayAll(repeat.step(), name + StringPrintf(", round %u, ", round),
                                      place != nullptr ? &place->steps : nullptr);
            if (!why.empty()) return why;
        }
        return {};
    }

    std::string Mark(const std::string& name) {
        const pid_t pid = AwaitDaemonPid();
        if (pid == 0) return "the daemon's pid is not known";
        Usage usage = UsageOf(pid);
        usage.log_lines = rig_->log_events().size();
        rig_->transcript().Note(
            StringPrintf("mark %s: pid %d, %zu descriptors, %zu threads, %ld KiB", name.c_str(),
                         pid, usage.descriptors, usage.threads, usage.rss_kib));
        marks_[name] = usage;
        return {};
    }

    std::string ExpectUsage(const tarvo_scenario::ExpectUsage& expect) {
        const auto mark = marks_.find(expect.mark());
        if (mark == marks_.end()) return "no mark \"" + expect.mark() + "\"";
        const Usage& before = mark->second;
        const auto deadline = std::chrono::steady_clock::now() +
                              TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        while (true) {
            if (rig_->daemon_pid() != before.pid) {
                return StringPrintf("the daemon is pid %d, not %d as at the mark",
                                    rig_->daemon_pid(), before.pid);
            }
            const Usage now = UsageOf(before.pid);
            std::string why;
            const auto differs = [](size_t a, size_t b, uint32_t tolerance) {
                return (a > b ? a - b : b - a) > tolerance;
            };
            if (differs(now.descriptors, before.descriptors, expect.descriptors_tolerance()) ||
                differs(now.threads, before.threads, expect.threads_tolerance())) {
                why =
                    StringPrintf("%zu descriptors and %zu threads, %zu and %zu at the mark",
                                 now.descriptors, now.threads, before.descriptors, before.threads);
            }
#ifndef TARVO_SANITIZED
            if (why.empty() && expect.has_rss_growth_below_kib() &&
                now.rss_kib - before.rss_kib >= expect.rss_growth_below_kib()) {
                why = StringPrintf("resident memory grew from %ld KiB to %ld KiB", before.rss_kib,
                                   now.rss_kib);
            }
#endif
            if (why.empty() || std::chrono::steady_clock::now() >= deadline) return why;
            std::this_thread::sleep_for(milliseconds(50));
        }
    }

    std::string SendGenerated(const tarvo_scenario::GeneratedSend& send) {
        using google::protobuf::FieldDescriptor;
        const std::string data = GeneratedBytes(send.data());
        tarvo_message::TarvoMessage message = send.message();
        google::protobuf::Message* payload = InnermostPayload(&message);
        const FieldDescriptor* data_field = payload->GetDescriptor()->FindFieldByName("data");
        if (data_field == nullptr || data_field->type() != FieldDescriptor::TYPE_BYTES) {
            return payload->GetDescriptor()->name() + " has no data field";
        }
        const google::protobuf::Reflection* reflection = payload->GetReflection();
        if (!send.has_block_size()) {
            reflection->SetString(payload, data_field, data);
            rig_->Send(message);
            return {};
        }
        if (send.block_size() == 0) return "block_size 0";
        const FieldDescriptor* offset_field = payload->GetDescriptor()->FindFieldByName("offset");
        if (offset_field == nullptr || offset_field->type() != FieldDescriptor::TYPE_UINT32) {
            return payload->GetDescriptor()->name() + " has no offset field";
        }
        const uint32_t first_offset = reflection->GetUInt32(*payload, offset_field);
        const milliseconds timeout = TimeoutOf(send.has_timeout_ms(), send.timeout_ms());
        const uint32_t first_token = message.token();
        for (size_t start = 0, block = 0; start < data.size();
             start += send.block_size(), ++block) {
            const uint32_t token = first_token + block;
            message.set_token(token);
            reflection->SetUInt32(payload, offset_field, first_offset + start);
            reflection->SetString(payload, data_field, data.substr(start, send.block_size()));
            rig_->Send(message);
            const auto answers = [token](const tarvo_message::TarvoMessage& response) {
                return response.type() == tarvo_message::RESPONSE && response.token() == token;
            };
            if (!rig_->modem().WaitFor(answers, timeout)) {
                return StringPrintf("no response to the block at %zu (token %u) within %lld ms",
                                    start, token, static_cast<long long>(timeout.count()));
            }
            const auto succeeded = [&answers](const tarvo_message::TarvoMessage& response) {
                return answers(response) && response.result() == 0;
            };
            if (!rig_->modem().Await(succeeded, milliseconds(0))) {
                rig_->transcript().Note(
                    StringPrintf("the block at %zu was not a success: transfer ended", start));
                return {};
            }
        }
        return {};
    }

    std::string ExpectThermalWrites(const tarvo_scenario::ExpectThermalWrites& expect) {
        const std::vector<std::string> expected(expect.write().begin(), expect.write().end());
        const auto deadline = std::chrono::steady_clock::now() +
                              TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        std::vector<std::string> writes;
        while (true) {
            const std::vector<std::string> all = rig_->emulator().temp().writes();
            writes.assign(all.begin() + std::min(thermal_writes_seen_, all.size()), all.end());
            if (writes.size() >= expected.size() || std::chrono::steady_clock::now() >= deadline) {
                thermal_writes_seen_ = all.size();
                break;
            }
            std::this_thread::sleep_for(milliseconds(10));
        }
        if (writes == expected) return {};
        std::string seen;
        for (const std::string& write : writes) seen += " " + Quoted(write);
        return StringPrintf("%zu writes:", writes.size()) + seen;
    }

    std::string SignalDaemon(uint32_t signal) {
        const pid_t pid = AwaitDaemonPid();
        if (pid == 0) return "the daemon's pid is not known";
        if (kill(pid, static_cast<int>(signal)) != 0) {
            return StringPrintf("kill %d: %s", pid, strerror(errno));
        }
        return {};
    }

    // A client finds the server by its pid file, which the server writes only once it has
    // started: the client is run once the file holds a pid, or when the step's time is up, as on
    // a device whose server never wrote it.
    void AwaitServerPid() {
        if (Result<pid_t> pid = rig_->AwaitPidFile(); !pid.ok()) {
            rig_->transcript().Note(pid.error().message() + ": the client runs anyway");
        }
    }

    // The daemon's pid, known from its first log line; 0 when none came within the step time.
    pid_t AwaitDaemonPid() { return rig_->AwaitDaemonPid(kDefaultStepTimeout); }

    Rig* rig_;
    const ScenarioOrigin* origin_;
    std::map<std::string, Usage> marks_;
    size_t thermal_writes_seen_ = 0;
};

ScenarioSession::ScenarioSession(const Scenario& setup, std::ostream* transcript,
                                 const ScenarioOrigin* origin, std::ostream* full_transcript)
    : rig_(OptionsOf(setup, transcript, full_transcript)),
      player_(std::make_unique<StepPlayer>(&rig_, origin)),
      origin_(origin) {}

std::string ScenarioSession::Source() const {
    return origin_ != nullptr ? origin_->path + ": " : "";
}

ScenarioSession::~ScenarioSession() = default;

Result<void> ScenarioSession::Start() {
    if (Result<void> started = rig_.Start(); !started.ok()) {
        return Error() << Source() << "the rig did not start: " << started.error();
    }
    return {};
}

Result<void> ScenarioSession::Play(const Step& step, int index) {
    if (recorder_ != nullptr) recorder_->BeforeStep(step, rig_);
    const StepPlace* place = origin_ != nullptr && index < static_cast<int>(origin_->steps.size())
                                 ? &origin_->steps[index]
                                 : nullptr;
    const std::string why = player_->PlayNamed(step, StringPrintf("step %d", index), place);
    if (why.empty()) return {};
    if (recorder_ != nullptr) recorder_->StepFailed();
    Result<void> health = rig_.CheckHealth();
    return Error() << why << (health.ok() ? "" : "; " + health.error().message());
}

Result<void> PlayScenario(const Scenario& scenario, std::ostream* transcript,
                          const std::string& record, const ScenarioOrigin* origin,
                          std::ostream* full_transcript) {
    ScenarioSession session(scenario, transcript, origin, full_transcript);
    if (Result<void> started = session.Start(); !started.ok()) return started.error();
    ScenarioRecorder recorder(scenario);
    if (!record.empty()) session.Record(&recorder);
    Result<void> played;
    for (int i = 0; i < scenario.step_size() && played.ok(); ++i) {
        played = session.Play(scenario.step(i), i);
    }
    if (played.ok()) {
        if (Result<void> health = session.rig().CheckHealth(); !health.ok()) {
            played = Error() << session.Source() << health.error();
        }
    }
    if (!record.empty()) {
        if (Result<void> written = recorder.Write(record, session.rig()); !written.ok()) {
            return written.error();
        }
    }
    return played;
}

}  // namespace tarvo_emu
