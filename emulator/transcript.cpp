#include "transcript.h"

#include <google/protobuf/stubs/strutil.h>
#include <google/protobuf/text_format.h>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

namespace tarvo_emu {

std::string ShortText(const google::protobuf::Message& message) {
    google::protobuf::TextFormat::Printer printer;
    printer.SetSingleLineMode(true);
    std::string text;
    printer.PrintToString(message, &text);
    return android::base::Trim(text);
}

void Transcript::Message(Direction direction, const tarvo_message::TarvoMessage& message) {
    Print(direction == Direction::kToDaemon ? "modem > tarvo" : "tarvo > modem",
          "{ " + ShortText(message) + " }");
}

void Transcript::Raw(Direction direction, const std::string& bytes) {
    constexpr size_t kShown = 48;
    std::string text = android::base::StringPrintf("raw %zu bytes \"", bytes.size()) +
                       google::protobuf::CEscape(bytes.substr(0, kShown)) + "\"";
    if (bytes.size() > kShown) text += "...";
    Print(direction == Direction::kToDaemon ? "modem > tarvo" : "tarvo > modem", text);
}

void Transcript::Log(const LogLine& line) { Print("log", line.ToString()); }

void Transcript::Output(const std::string& line) { Print("out", line); }

void Transcript::Note(const std::string& text) { Print("", text); }

void Transcript::Print(const std::string& label, const std::string& text) {
    if (out_ == nullptr) return;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::lock_guard<std::mutex> lock(mutex_);
    *out_ << android::base::StringPrintf("%8.3f  %-13s  ", seconds, label.c_str()) << text
          << std::endl;
}

}  // namespace tarvo_emu
