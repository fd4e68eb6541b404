#pragma once

#include <string_view>

#include <android-base/result.h>

#include "capture/capture.h"

namespace tarvo_emu {

// Reads the rig's own transcript, as `tarvo-emu run --transcript OUT` writes it (every payload
// whole): the messages both ways, raw bytes, the faults, the boot node's states and the log
// lines. A line that is none of these (a step, a note, a RIL request) is kept as a note.
class TranscriptReader {
  public:
    android::base::Result<void> Line(std::string_view line);
    Capture Finish() { return std::move(capture_); }

  private:
    size_t line_ = 0;
    Capture capture_;
};

// Reads plain hex, one message a line, from the modem to the daemon unless the line starts
// with the transcript's "tarvo > modem".
class HexReader {
  public:
    android::base::Result<void> Line(std::string_view line);
    Capture Finish() { return std::move(capture_); }

  private:
    size_t line_ = 0;
    Capture capture_;
};

// Whether a line is plain hex (spaces allowed), with or without a transcript label.
bool IsHexLine(std::string_view line);

}  // namespace tarvo_emu
