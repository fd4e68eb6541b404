#pragma once

#include <istream>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

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

// Reads a capture while it is being written: strace's output from a pipe (a device command,
// `adb shell strace ... |`) or from a file that grows, each event handed on as soon as the
// strace call it comes from is complete. The rig's transcript and plain hex are read too, their
// events handed on at the end.
class CaptureFollower {
  public:
    using Sink = StraceReader::Sink;

    static android::base::Result<std::unique_ptr<CaptureFollower>> Create(StraceOptions options,
                                                                          Sink sink);

    // Reads `fd` to its end: a pipe's end of input; a regular file has none, and is waited on for
    // more, as `tail -f` does, until Stop. Returns the whole capture, or the first line's error.
    android::base::Result<Capture> Follow(int fd);
    // Ends Follow after the lines read so far; callable from a signal handler.
    void Stop();

  private:
    CaptureFollower(StraceOptions options, Sink sink);
    // Hands one line to the reader that the first line chose.
    android::base::Result<void> Line(std::string_view line);

    StraceOptions options_;
    Sink sink_;
    android::base::unique_fd stop_read_;
    android::base::unique_fd stop_write_;
    // Whether the capture is strace's, once its first line told it.
    std::optional<bool> strace_form_;
    StraceReader strace_;
    std::vector<std::string> other_lines_;
};

}  // namespace tarvo_emu
