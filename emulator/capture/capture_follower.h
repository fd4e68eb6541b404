#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "capture/capture.h"
#include "capture/strace_reader.h"

namespace tarvo_emu {

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
    enum class Form { kUnknown, kStrace, kOther } form_ = Form::kUnknown;
    StraceReader strace_;
    std::vector<std::string> other_lines_;
};

}  // namespace tarvo_emu
