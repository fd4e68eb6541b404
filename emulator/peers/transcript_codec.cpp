#include "peers/transcript_codec.h"

#include <google/protobuf/stubs/strutil.h>
#include <google/protobuf/text_format.h>

#include <android/log.h>

#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "device/device_facts.h"
#include "peers/transcript.h"

using android::base::EndsWith;
using android::base::Error;
using android::base::Result;
using android::base::StartsWith;

namespace tarvo_emu {

namespace {

// The columns: seconds, two spaces, a label padded to kLabelWidth, two spaces.
constexpr size_t kLabelWidth = 13;
constexpr char kLogLabel[] = "log";
constexpr char kRawPrefix[] = "raw ";
constexpr char kModemStatePrefix[] = "modem state ";
// Raw bytes are shown by their start unless the whole is asked for.
constexpr size_t kRawShown = 48;
// The errno of the node's injected faults, left out of their notes.
constexpr char kInjectedError[] = "EIO";

std::string FaultPrefix() { return fmt::format("fault on {}: ", kIpcNode); }

struct SplitLine {
    double time;
    std::string_view label;
    std::string_view text;
};

std::optional<SplitLine> Split(std::string_view line) {
    const size_t at = line.find_first_not_of(' ');
    if (at == std::string_view::npos) return std::nullopt;
    const size_t end = line.find(' ', at);
    const std::string_view seconds = line.substr(at, end - at);
    const size_t dot = seconds.find('.');
    if (end == std::string_view::npos || dot == std::string_view::npos ||
        seconds.size() - dot != 4 ||
        seconds.find_first_not_of("0123456789.") != std::string_view::npos) {
        return std::nullopt;
    }
    if (line.size() < end + 2 + kLabelWidth + 2 || line.compare(end, 2, "  ") != 0) {
        return std::nullopt;
    }
    std::string_view label = line.substr(end + 2, kLabelWidth);
    while (!label.empty() && label.back() == ' ') label.remove_suffix(1);
    return SplitLine{strtod(std::string(seconds).c_str(), nullptr), label,
                     line.substr(end + 2 + kLabelWidth + 2)};
}

// "raw 3 bytes \"abc\"": the bytes, or nothing when the transcript kept only their start.
Result<std::optional<std::string>> ParseRaw(std::string_view text) {
    size_t size = 0;
    const size_t quote = text.find(" bytes \"");
    if (quote == std::string_view::npos ||
        !android::base::ParseUint(std::string(text.substr(strlen(kRawPrefix), quote - 4)), &size)) {
        return Error() << "raw bytes without their size";
    }
    if (EndsWith(text, "\"...")) return std::nullopt;
    const size_t start = quote + strlen(" bytes \"");
    if (!EndsWith(text, "\"") || text.size() <= start) return Error() << "raw bytes unquoted";
    std::string bytes;
    if (!google::protobuf::UnescapeCEscapeString(
            std::string(text.substr(start, text.size() - start - 1)), &bytes) ||
        bytes.size() != size) {
        return Error() << "raw bytes that are not the " << size << " they say";
    }
    return bytes;
}

Result<LogLine> ParseLog(std::string_view text) {
    const size_t colon = text.find(": ");
    if (colon == std::string_view::npos || colon < 3 || text[1] != ' ') {
        return Error() << "a log line without its priority and tag";
    }
    LogLine log;
    for (int priority = ANDROID_LOG_VERBOSE; priority <= ANDROID_LOG_FATAL; ++priority) {
        if (PriorityLetter(priority) == text[0]) log.priority = priority;
    }
    if (log.priority == 0) return Error() << "a log line without its priority and tag";
    log.tag = std::string(text.substr(2, colon - 2));
    log.text = std::string(text.substr(colon + 2));
    return log;
}

}  // namespace

std::string MessageText(const tarvo_message::TarvoMessage& message, bool full) {
    return "{ " + (full ? FullText(message) : ShortText(message)) + " }";
}

std::string RawText(const std::string& bytes, bool whole) {
    const bool cut = !whole && bytes.size() > kRawShown;
    return fmt::format("{}{} bytes \"{}\"{}", kRawPrefix, bytes.size(),
                       google::protobuf::CEscape(cut ? bytes.substr(0, kRawShown) : bytes),
                       cut ? "..." : "");
}

std::string LogText(const LogLine& line) {
    return std::string(1, PriorityLetter(line.priority)) + " " + line.tag + ": " + line.text;
}

std::string FaultNote(Fault fault, const std::string& error) {
    const bool failed_call = fault == Fault::kReadError || fault == Fault::kWriteError;
    const bool named = failed_call && !error.empty() && error != kInjectedError;
    return FaultPrefix() + std::string(FaultText(fault)) + (named ? " (" + error + ")" : "");
}

std::string ModemStateNote(int state) { return kModemStatePrefix + std::to_string(state); }

std::pair<std::string, std::string> DescribeEvent(const TranscriptEvent& event, bool full) {
    using Kind = TranscriptEvent::Kind;
    switch (event.kind) {
        case Kind::kToDaemon:
        case Kind::kFromDaemon: {
            const std::string label =
                event.kind == Kind::kToDaemon ? kToDaemonLabel : kFromDaemonLabel;
            tarvo_message::TarvoMessage message;
            if (message.ParseFromString(event.bytes)) return {label, MessageText(message, full)};
            return {label, RawText(event.bytes, full)};
        }
        case Kind::kFault:
            return {"", FaultNote(event.fault, event.text)};
        case Kind::kModemState:
            return {"", ModemStateNote(event.state)};
        case Kind::kSignal:
            return {"", "signal " + event.text};
        case Kind::kLog:
            return {kLogLabel, LogText(event.log)};
        case Kind::kNote:
            break;
    }
    return {"", event.text};
}

std::string LinePrefix(std::optional<double> seconds, std::string_view label) {
    return (seconds ? fmt::format("{:8.3f}", *seconds) : "       -") +
           fmt::format("  {:<{}}  ", label, kLabelWidth);
}

bool IsTranscriptLine(std::string_view line) { return Split(line).has_value(); }

Result<TranscriptEvent> ParseTranscriptLine(std::string_view text) {
    const std::optional<SplitLine> line = Split(text);
    if (!line) return Error() << "not a line of the rig's transcript";
    TranscriptEvent event;
    event.time = line->time;
    const bool to_daemon = line->label == kToDaemonLabel;
    if (to_daemon || line->label == kFromDaemonLabel) {
        event.kind =
            to_daemon ? TranscriptEvent::Kind::kToDaemon : TranscriptEvent::Kind::kFromDaemon;
        if (StartsWith(line->text, kRawPrefix)) {
            Result<std::optional<std::string>> bytes = ParseRaw(line->text);
            if (!bytes.ok()) return bytes.error();
            if (!*bytes) {
                event.kind = TranscriptEvent::Kind::kNote;
                event.text = fmt::format("{}: {} (the transcript keeps only their start)",
                                         line->label, line->text);
                return event;
            }
            event.bytes = std::move(**bytes);
            return event;
        }
        std::string_view body = line->text;
        if (StartsWith(body, "{") && EndsWith(body, "}")) body = body.substr(1, body.size() - 2);
        tarvo_message::TarvoMessage message;
        if (!google::protobuf::TextFormat::ParseFromString(std::string(body), &message)) {
            return Error() << "a message that does not parse back (shortened?): decode the file "
                              "that `tarvo-emu run --transcript OUT` writes";
        }
        event.bytes = message.SerializeAsString();
        return event;
    }
    if (line->label == kLogLabel) {
        Result<LogLine> log = ParseLog(line->text);
        if (!log.ok()) return log.error();
        event.kind = TranscriptEvent::Kind::kLog;
        event.log = std::move(*log);
        return event;
    }
    const std::string note(line->text);
    if (line->label.empty() && StartsWith(note, kModemStatePrefix) &&
        android::base::ParseInt(note.substr(strlen(kModemStatePrefix)), &event.state)) {
        event.kind = TranscriptEvent::Kind::kModemState;
        return event;
    }
    if (line->label.empty() && StartsWith(note, FaultPrefix())) {
        std::string name = note.substr(FaultPrefix().size());
        event.text = kInjectedError;
        if (const size_t open = name.find(" ("); open != std::string::npos && EndsWith(name, ")")) {
            event.text = name.substr(open + 2, name.size() - open - 3);
            name.resize(open);
        }
        if (const std::optional<Fault> fault = FaultOfText(name)) {
            event.kind = TranscriptEvent::Kind::kFault;
            event.fault = *fault;
            return event;
        }
    }
    event.text = line->label.empty() ? note : fmt::format("{}: {}", line->label, note);
    return event;
}

}  // namespace tarvo_emu
