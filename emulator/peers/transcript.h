#pragma once

#include <google/protobuf/text_format.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <ostream>
#include <string>

#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// What happened, in order: every message both ways in protobuf text format, the RIL requests and
// answers, the log lines of the processes in the sandbox, and the steps of a scenario, each with
// the seconds since start.
// With no stream it records nothing.
class Transcript {
  public:
    enum class Direction { kToDaemon, kFromDaemon };

    // `out` gets long payloads shortened; `full`, when given, gets everything as it was.
    explicit Transcript(std::ostream* out, std::ostream* full = nullptr) : out_(out), full_(full) {}

    // Whether anything is recorded; callers skip formatting what nobody reads.
    bool enabled() const { return out_ != nullptr || full_ != nullptr; }

    void Message(Direction direction, const tarvo_message::TarvoMessage& message);
    // A request through the RIL client library, or the RIL's answer.
    void Ril(Direction direction, const std::string& text);
    // Unparsed bytes: their size and, escaped, the first of them.
    void Raw(Direction direction, const std::string& bytes);
    void Log(const LogLine& line);
    // A line of a process that is not a log line, such as the usage text.
    void Output(const std::string& line);
    void Note(const std::string& text);
    // A note that starts with a verdict ("ok", "FAILED"): in colour on `out` when asked for.
    void Verdict(bool passed, const std::string& verdict, const std::string& rest);
    // Verdicts on `out` in colour from now on: for a terminal.
    void SetColour(bool colour) { colour_ = colour; }

  private:
    void Print(const std::string& label, const std::string& text);
    void Print(const std::string& label, const std::string& text, const std::string& full_text);

    std::ostream* out_;
    std::ostream* full_;
    std::atomic<bool> colour_{false};
    std::mutex mutex_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Whether output on descriptor `fd` is shown in colour: a terminal, and no NO_COLOR set (see
// no-color.org).
bool WantsColour(int fd);

// Bytes as a scenario writes them, in quotes with text format's escapes: `",\001"`.
std::string QuotedBytes(const std::string& bytes);

// A log text on one line: line feeds, carriage returns, other control characters and bytes that
// are not UTF-8 escaped as in C.
std::string PrintableText(const std::string& text);

// One-line text format of messages: with `shorten`, bytes and strings of more than a few hundred
// bytes shown by their start and size; otherwise every byte, as text that parses back.
class OneLineText {
  public:
    explicit OneLineText(bool shorten);
    // Shows an unsigned field in octal, as permission bits are written.
    void ShowInOctal(const google::protobuf::FieldDescriptor* field);
    std::string operator()(const google::protobuf::Message& message) const;

  private:
    google::protobuf::TextFormat::Printer printer_;
};

// A message as the transcript shows it, shortened or whole.
std::string ShortText(const google::protobuf::Message& message);
std::string FullText(const google::protobuf::Message& message);

}  // namespace tarvo_emu
