#pragma once

#include <istream>
#include <ostream>
#include <string_view>

#include <android-base/result.h>

#include "capture/capture.h"
#include "capture/strace_reader.h"

namespace tarvo_emu {

// Reads a capture in whichever form it is, told by its first line: the rig's transcript as
// `tarvo-emu run --transcript OUT` writes it (a line that is no event, a step or a RIL request,
// is kept as a note), plain hex (one message a line, from the modem to the daemon unless the line
// starts with the transcript's "tarvo > modem"), or strace's output.
android::base::Result<Capture> ReadCapture(std::istream& in, const StraceOptions& options);

// Whether a line is plain hex (spaces allowed), with or without a transcript label.
bool IsHexLine(std::string_view line);

// Prints a capture as the transcript shows a session: seconds, direction, message in text
// format (or its bytes, when they do not parse), and the events between messages. With `full`
// every payload is shown whole.
void PrintCapture(const Capture& capture, std::ostream& out, bool full);
// Prints one event of a capture as PrintCapture does, unflushed.
void PrintEvent(const CaptureEvent& event, std::ostream& out, bool full);

}  // namespace tarvo_emu
