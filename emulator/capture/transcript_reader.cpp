#include "capture/transcript_reader.h"

#include <google/protobuf/text_format.h>

#include <string>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "capture/strace_string.h"
#include "proto/tarvo_message.pb.h"

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// The transcript's columns: seconds, two spaces, a label padded to 13, two spaces.
constexpr size_t kLabelWidth = 13;
constexpr char kToDaemon[] = "modem > tarvo";
constexpr char kFromDaemon[] = "tarvo > modem";
constexpr char kModemState[] = "modem state ";
constexpr char kFault[] = "fault on oem_ipc1: ";
constexpr char kPriorityLetters[] = "??VDIWEF";

struct TranscriptLine {
    double time;
    std::string_view label;
    std::string_view text;
};

std::optional<TranscriptLine> SplitLine(std::string_view line) {
    size_t at = line.find_first_not_of(' ');
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
    return TranscriptLine{strtod(std::string(seconds).c_str(), nullptr), label,
                          line.substr(end + 2 + kLabelWidth + 2)};
}

void Add(Capture* capture, CaptureEvent::Kind kind, double time, size_t line,
         std::string bytes = {}, std::string text = {}, int state = 0) {
    CaptureEvent& event = capture->events.emplace_back();
    event.kind = kind;
    event.time = time;
    event.bytes = std::move(bytes);
    event.text = std::move(text);
    event.state = state;
    event.line = line;
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// The bytes that hex digits (spaces between them allowed) stand for.
std::optional<std::string> FromHex(std::string_view text) {
    std::string bytes;
    int high = -1;
    for (const char c : text) {
        if (c == ' ' || c == '\t' || c == '\r') continue;
        const int value = HexValue(c);
        if (value < 0) return std::nullopt;
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<char>(high << 4 | value));
            high = -1;
        }
    }
    if (high >= 0 || bytes.empty()) return std::nullopt;
    return bytes;
}

// A direction label at the start of a hex line, taken off it.
bool FromDaemon(std::string_view* text) {
    while (!text->empty() && (text->front() == ' ' || text->front() == '\t'))
        text->remove_prefix(1);
    for (const char* label : {kToDaemon, kFromDaemon}) {
        if (android::base::StartsWith(*text, label)) {
            text->remove_prefix(strlen(label));
            return label == kFromDaemon;
        }
    }
    return false;
}

}  // namespace

bool IsTranscriptLine(std::string_view line) { return SplitLine(line).has_value(); }

bool IsHexLine(std::string_view line) {
    FromDaemon(&line);
    return FromHex(line).has_value();
}

Result<void> TranscriptReader::Line(std::string_view text) {
    ++line_;
    if (text.find_first_not_of(" \t\r") == std::string_view::npos) return {};
    const std::optional<TranscriptLine> line = SplitLine(text);
    if (!line) {
        // The rest of a log text that holds line feeds.
        if (!capture_.events.empty() && capture_.events.back().kind == CaptureEvent::Kind::kLog) {
            capture_.events.back().log.text += "\n" + std::string(text);
            return {};
        }
        return Error() << "line " << line_ << ": not a line of the rig's transcript";
    }
    const bool to_daemon = line->label == kToDaemon;
    if (to_daemon || line->label == kFromDaemon) {
        const CaptureEvent::Kind kind =
            to_daemon ? CaptureEvent::Kind::kToDaemon : CaptureEvent::Kind::kFromDaemon;
        if (android::base::StartsWith(line->text, "raw ")) {
            const size_t quote = line->text.find('"');
            size_t end = 0;
            Result<std::string> bytes = quote == std::string_view::npos
                                            ? Result<std::string>(Error() << "no bytes")
                                            : UnquoteStraceString(line->text.substr(quote), &end);
            if (!bytes.ok() || quote + end < line->text.size()) {
                Add(&capture_, CaptureEvent::Kind::kNote, line->time, line_, {},
                    std::string(line->label) + ": " + std::string(line->text) +
                        " (the transcript keeps only their start)");
                return {};
            }
            Add(&capture_, kind, line->time, line_, std::move(*bytes));
            return {};
        }
        tarvo_message::TarvoMessage message;
        std::string body(line->text);
        if (android::base::StartsWith(body, "{") && android::base::EndsWith(body, "}")) {
            body = body.substr(1, body.size() - 2);
        }
        if (!google::protobuf::TextFormat::ParseFromString(body, &message)) {
            return Error() << "line " << line_
                           << ": a message that does not parse back (shortened?): decode the "
                              "file that `tarvo-emu run --transcript OUT` writes";
        }
        Add(&capture_, kind, line->time, line_, message.SerializeAsString());
        return {};
    }
    if (line->label == "log") {
        const size_t colon = line->text.find(": ");
        const char* letter =
            line->text.empty() ? nullptr : strchr(kPriorityLetters + 2, line->text[0]);
        if (colon == std::string_view::npos || letter == nullptr || line->text.size() < 2 ||
            line->text[1] != ' ') {
            return Error() << "line " << line_ << ": a log line without its priority and tag";
        }
        Add(&capture_, CaptureEvent::Kind::kLog, line->time, line_);
        LogLine& log = capture_.events.back().log;
        log.priority = static_cast<int>(letter - kPriorityLetters);
        log.tag = std::string(line->text.substr(2, colon - 2));
        log.text = std::string(line->text.substr(colon + 2));
        return {};
    }
    const std::string note(line->text);
    int state = 0;
    if (line->label.empty() && android::base::StartsWith(note, kModemState) &&
        android::base::ParseInt(note.substr(strlen(kModemState)), &state)) {
        Add(&capture_, CaptureEvent::Kind::kModemState, line->time, line_, {}, {}, state);
        return {};
    }
    if (line->label.empty() && android::base::StartsWith(note, kFault)) {
        static const std::pair<const char*, CaptureEvent::Kind> kFaults[] = {
            {"end of file", CaptureEvent::Kind::kEndOfFile},
            {"read error", CaptureEvent::Kind::kReadError},
            {"write error", CaptureEvent::Kind::kWriteError},
            {"hang-up", CaptureEvent::Kind::kHangUp},
        };
        for (const auto& [name, kind] : kFaults) {
            if (note.substr(strlen(kFault)) == name) {
                Add(&capture_, kind, line->time, line_, {}, "EIO");
                return {};
            }
        }
    }
    Add(&capture_, CaptureEvent::Kind::kNote, line->time, line_, {},
        line->label.empty() ? note : std::string(line->label) + ": " + note);
    return {};
}

Result<void> HexReader::Line(std::string_view text) {
    ++line_;
    if (text.find_first_not_of(" \t\r") == std::string_view::npos) return {};
    const bool from_daemon = FromDaemon(&text);
    std::optional<std::string> bytes = FromHex(text);
    if (!bytes) return Error() << "line " << line_ << ": not hex digits, two a byte";
    CaptureEvent& event = capture_.events.emplace_back();
    event.kind = from_daemon ? CaptureEvent::Kind::kFromDaemon : CaptureEvent::Kind::kToDaemon;
    event.bytes = std::move(*bytes);
    event.line = line_;
    return {};
}

}  // namespace tarvo_emu
