#include "capture/capture_reader.h"

#include <string>

#include "capture/transcript_reader.h"

using android::base::Result;

namespace tarvo_emu {

namespace {

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
    return ReadAll(StraceReader(options), in, first);
}

void PrintEvent(const CaptureEvent& event, std::ostream& out, bool full) {
    const auto [label, text] = DescribeEvent(event, full);
    out << LinePrefix(event.time, label) << text << '\n';
}

void PrintCapture(const Capture& capture, std::ostream& out, bool full) {
    for (const CaptureEvent& event : capture.events) PrintEvent(event, out, full);
    out.flush();
}

}  // namespace tarvo_emu
