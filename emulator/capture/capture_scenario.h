#pragma once

#include <string>

#include "capture/capture.h"

namespace tarvo_emu {

// A capture as a scenario that replays against the host build, in the recorder's form: the
// modem's messages as `send` (or `send_raw`), the daemon's as `expect` with the exact payload
// (the tokens of its own requests left out), the modem's answers to those requests as
// `auto_reply` rules set before the step that led to them, read errors, end of file and hang-ups
// as `fault`, the boot node's states as `initial_state` and `modem_state`, the daemon's signals
// as `signal_daemon`, and the properties and files that its successful answers show as setup.
// Whatever cannot be replayed (log lines, notes, bytes it wrote that do not parse) is a comment,
// so that the file always plays. `source` names the capture in the header.
std::string CaptureScenarioText(const Capture& capture, const std::string& source);

}  // namespace tarvo_emu
