#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include <android-base/result.h>

#include "device/fault.h"
#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// The labels of the transcript's lines that carry the modem's messages.
inline constexpr char kToDaemonLabel[] = "modem > tarvo";
inline constexpr char kFromDaemonLabel[] = "tarvo > modem";

// One thing that the transcript shows, as a line is written from it and read back into it.
struct TranscriptEvent {
    enum class Kind {
        kToDaemon,    // the daemon read `bytes` from the IPC node
        kFromDaemon,  // the daemon wrote `bytes` to the IPC node
        kFault,       // `fault` on the IPC node; `text` names a failed call's errno
        kModemState,  // the boot node's status ioctl returned a new `state`
        kSignal,      // the daemon got signal `state`, named `text` (read back as a note)
        kLog,         // a log line of a process in the sandbox
        kNote,        // anything else worth showing, as `text`
    };

    Kind kind = Kind::kNote;
    // Seconds since the start; none when not known.
    std::optional<double> time;
    std::string bytes;
    std::string text;
    Fault fault = Fault::kEndOfFile;
    int state = 0;
    LogLine log = {};
    // The line of the file that the event was read from, for messages about it.
    size_t line = 0;
};

// The texts of the transcript's lines.
std::string MessageText(const tarvo_message::TarvoMessage& message, bool full);
// Bytes that do not parse: their size and, escaped, the first of them unless `whole`.
std::string RawText(const std::string& bytes, bool whole);
std::string LogText(const LogLine& line);
std::string FaultNote(Fault fault, const std::string& error);
std::string ModemStateNote(int state);

// An event's label and text; with `full` every payload whole.
std::pair<std::string, std::string> DescribeEvent(const TranscriptEvent& event, bool full);

// The start of a line: the seconds (a dash when unknown) and the label, in their columns.
std::string LinePrefix(std::optional<double> seconds, std::string_view label);

// Whether a line starts as the transcript's do: seconds with three decimals, then a label.
bool IsTranscriptLine(std::string_view line);
// The event a transcript line shows; the error says what is wrong with it. A line that is
// none of the kinds above (a step, a RIL request, a note) is read as a note holding its label.
android::base::Result<TranscriptEvent> ParseTranscriptLine(std::string_view line);

}  // namespace tarvo_emu
