#include "capture/transcript_reader.h"

#include <string>

#include <android-base/strings.h>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// The bytes that hex digits (spaces between them allowed) stand for.
std::optional<std::string> FromHex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ' && c != '\t' && c != '\r') digits.push_back(c);
    }
    if (digits.empty() || digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

// A direction label at the start of a hex line, taken off it.
bool FromDaemon(std::string_view* text) {
    while (!text->empty() && (text->front() == ' ' || text->front() == '\t'))
        text->remove_prefix(1);
    for (const char* label : {kToDaemonLabel, kFromDaemonLabel}) {
        if (android::base::StartsWith(*text, label)) {
            text->remove_prefix(strlen(label));
            return label == kFromDaemonLabel;
        }
    }
    return false;
}

}  // namespace

bool IsHexLine(std::string_view line) {
    FromDaemon(&line);
    return FromHex(line).has_value();
}

Result<void> TranscriptReader::Line(std::string_view text) {
    ++line_;
    if (text.find_first_not_of(" \t\r") == std::string_view::npos) return {};
    // The rest of a log text that holds line feeds.
    if (!IsTranscriptLine(text) && !capture_.events.empty() &&
        capture_.events.back().kind == CaptureEvent::Kind::kLog) {
        capture_.events.back().log.text += "\n" + std::string(text);
        return {};
    }
    Result<CaptureEvent> event = ParseTranscriptLine(text);
    if (!event.ok()) return Error() << "line " << line_ << ": " << event.error().message();
    event->line = line_;
    capture_.events.push_back(std::move(*event));
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
