#include "capture/capture_reader.h"

#include <google/protobuf/stubs/strutil.h>

#include <string>

#include <android-base/stringprintf.h>

#include "capture/transcript_reader.h"
#include "peers/transcript.h"
#include "proto/tarvo_message.pb.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

// Raw bytes are shown by their start unless the whole is asked for.
constexpr size_t kRawShown = 48;

template <typename Reader>
Result<Capture> ReadAll(Reader reader, std::istream& in, const std::string& first) {
    if (Result<void> read = reader.Line(first); !read.ok()) return read.error();
    std::string line;
    while (std::getline(in, line)) {
        if (Result<void> read = reader.Line(line); !read.ok()) return read.error();
    }
    return reader.Finish();
}

}  // namespace

Result<Capture> ReadCapture(std::istream& in, const StraceOptions& options) {
    std::string first;
    while (first.find_first_not_of(" \t\r") == std::string::npos) {
        if (!std::getline(in, first)) return Capture();
    }
    if (IsTranscriptLine(first)) return ReadAll(TranscriptReader(), in, first);
    if (IsHexLine(first)) return ReadAll(HexReader(), in, first);
    StraceReader strace(options);
    if (Result<void> read = strace.Line(first); !read.ok()) return read.error();
    std::string line;
    while (std::getline(in, line)) {
        if (Result<void> read = strace.Line(line); !read.ok()) return read.error();
    }
    return strace.Finish();
}

std::pair<std::string, std::string> DescribeEvent(const CaptureEvent& event, bool full) {
    using Kind = CaptureEvent::Kind;
    switch (event.kind) {
        case Kind::kToDaemon:
        case Kind::kFromDaemon: {
            const std::string label =
                event.kind == Kind::kToDaemon ? "modem > tarvo" : "tarvo > modem";
            tarvo_message::TarvoMessage message;
            if (message.ParseFromString(event.bytes)) {
                return {label, "{ " + (full ? FullText(message) : ShortText(message)) + " }"};
            }
            const bool whole = full || event.bytes.size() <= kRawShown;
            return {label, android::base::StringPrintf("raw %zu bytes \"", event.bytes.size()) +
                               google::protobuf::CEscape(whole ? event.bytes
                                                               : event.bytes.substr(0, kRawShown)) +
                               (whole ? "\"" : "\"...")};
        }
        case Kind::kReadError:
            return {"", "fault on oem_ipc1: read error" +
                            (event.text == "EIO" ? "" : " (" + event.text + ")")};
        case Kind::kWriteError:
            return {"", "fault on oem_ipc1: write error" +
                            (event.text == "EIO" ? "" : " (" + event.text + ")")};
        case Kind::kEndOfFile:
            return {"", "fault on oem_ipc1: end of file"};
        case Kind::kHangUp:
            return {"", "fault on oem_ipc1: hang-up"};
        case Kind::kModemState:
            return {"", android::base::StringPrintf("modem state %d", event.state)};
        case Kind::kSignal:
            return {"", "signal " + event.text};
        case Kind::kLog:
            return {"log", std::string(1, PriorityLetter(event.log.priority)) + " " +
                               event.log.tag + ": " + event.log.text};
        case Kind::kNote:
            break;
    }
    return {"", event.text};
}

void PrintEvent(const CaptureEvent& event, std::ostream& out, bool full) {
    const auto [label, text] = DescribeEvent(event, full);
    const std::string seconds =
        event.time ? android::base::StringPrintf("%8.3f", *event.time) : "       -";
    out << seconds << "  " << android::base::StringPrintf("%-13s", label.c_str()) << "  " << text
        << '\n';
}

void PrintCapture(const Capture& capture, std::ostream& out, bool full) {
    for (const CaptureEvent& event : capture.events) PrintEvent(event, out, full);
    out.flush();
}

}  // namespace tarvo_emu
