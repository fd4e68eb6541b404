#include "peers/transcript.h"

#include <google/protobuf/stubs/strutil.h>
#include <google/protobuf/text_format.h>

#include <unistd.h>

#include <cstdlib>
#include <memory>

#include <android-base/stringprintf.h>
#include <android-base/strings.h>

#include "peers/transcript_codec.h"

namespace tarvo_emu {

namespace {

// How many bytes the UTF-8 sequence at `at` has, or 0 when it is not one.
size_t Utf8Length(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(at);
    size_t length = 0;
    if (lead >= 0xc2 && lead <= 0xdf) length = 2;
    if (lead >= 0xe0 && lead <= 0xef) length = 3;
    if (lead >= 0xf0 && lead <= 0xf4) length = 4;
    if (length == 0 || at + length > text.size()) return 0;
    for (size_t i = at + 1; i < at + length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    return length;
}

// Colours of the verdicts on a terminal.
constexpr char kGreen[] = "\033[32m";
constexpr char kRed[] = "\033[1;31m";
constexpr char kPlain[] = "\033[0m";

}  // namespace

bool WantsColour(int fd) {
    const char* no_colour = getenv("NO_COLOR");
    return isatty(fd) != 0 && (no_colour == nullptr || *no_colour == '\0');
}

std::string QuotedBytes(const std::string& bytes) {
    return "\"" + google::protobuf::CEscape(bytes) + "\"";
}

std::string PrintableText(const std::string& text) {
    std::string printable;
    for (size_t i = 0; i < text.size();) {
        const unsigned char c = text[i];
        if (c == '\n' || c == '\r') {
            printable += c == '\n' ? "\\n" : "\\r";
        } else if ((c < 0x20 && c != '\t') || c == 0x7f) {
            printable += android::base::StringPrintf("\\x%02x", c);
        } else if (c >= 0x80) {
            const size_t length = Utf8Length(text, i);
            if (length == 0) {
                printable += android::base::StringPrintf("\\x%02x", c);
            } else {
                printable.append(text, i, length);
                i += length;
                continue;
            }
        } else {
            printable += static_cast<char>(c);
        }
        ++i;
    }
    return printable;
}

namespace {

using google::protobuf::TextFormat;

// Longer bytes and strings are shown by their start and size.
constexpr size_t kLongestShown = 300;
constexpr size_t kStartShown = 64;

class ShorteningPrinter : public TextFormat::FastFieldValuePrinter {
  public:
    void PrintBytes(const std::string& value,
                    TextFormat::BaseTextGenerator* generator) const override {
        if (!PrintShortened(value, generator)) {
            TextFormat::FastFieldValuePrinter::PrintBytes(value, generator);
        }
    }
    void PrintString(const std::string& value,
                     TextFormat::BaseTextGenerator* generator) const override {
        if (!PrintShortened(value, generator)) {
            TextFormat::FastFieldValuePrinter::PrintString(value, generator);
        }
    }

  private:
    // False for a value short enough to be shown whole.
    static bool PrintShortened(const std::string& value, TextFormat::BaseTextGenerator* generator) {
        if (value.size() <= kLongestShown) return false;
        generator->PrintString("\"" + google::protobuf::CEscape(value.substr(0, kStartShown)) +
                               android::base::StringPrintf("\"... (%zu bytes)", value.size()));
        return true;
    }
};

// Permission bits, as they are written: `mode: 0664`.
class OctalPrinter : public TextFormat::FastFieldValuePrinter {
  public:
    void PrintUInt32(uint32_t value, TextFormat::BaseTextGenerator* generator) const override {
        generator->PrintString(android::base::StringPrintf("0%o", value));
    }
};

}  // namespace

OneLineText::OneLineText(bool shorten) {
    printer_.SetSingleLineMode(true);
    if (shorten) printer_.SetDefaultFieldValuePrinter(new ShorteningPrinter);
}

void OneLineText::ShowInOctal(const google::protobuf::FieldDescriptor* field) {
    printer_.RegisterFieldValuePrinter(field, new OctalPrinter);
}

std::string OneLineText::operator()(const google::protobuf::Message& message) const {
    std::string text;
    printer_.PrintToString(message, &text);
    return android::base::Trim(text);
}

std::string ShortText(const google::protobuf::Message& message) {
    static const OneLineText text(true);
    return text(message);
}

std::string FullText(const google::protobuf::Message& message) {
    static const OneLineText text(false);
    return text(message);
}

void Transcript::Message(Direction direction, const tarvo_message::TarvoMessage& message) {
    // Text format of a 64 KiB block costs more than the daemon's whole handling of it.
    if (!enabled()) return;
    Print(direction == Direction::kToDaemon ? kToDaemonLabel : kFromDaemonLabel,
          out_ != nullptr ? MessageText(message, false) : "",
          full_ != nullptr ? MessageText(message, true) : "");
}

void Transcript::Ril(Direction direction, const std::string& text) {
    Print(direction == Direction::kToDaemon ? "ril > tarvo" : "tarvo > ril", text);
}

void Transcript::Raw(Direction direction, const std::string& bytes) {
    if (!enabled()) return;
    Print(direction == Direction::kToDaemon ? kToDaemonLabel : kFromDaemonLabel,
          RawText(bytes, false));
}

void Transcript::Log(const LogLine& line) {
    if (!enabled()) return;
    LogLine printable = line;
    printable.text = PrintableText(line.text);
    Print("log", LogText(printable));
}

void Transcript::Output(const std::string& line) { Print("out", line); }

void Transcript::Note(const std::string& text) { Print("", text); }

void Transcript::Verdict(bool passed, const std::string& verdict, const std::string& rest) {
    const std::string plain = verdict + rest;
    if (!colour_) {
        Print("", plain);
        return;
    }
    Print("", (passed ? kGreen : kRed) + verdict + kPlain + rest, plain);
}

void Transcript::Print(const std::string& label, const std::string& text) {
    Print(label, text, text);
}

void Transcript::Print(const std::string& label, const std::string& text,
                       const std::string& full_text) {
    if (!enabled()) return;
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const std::string prefix = LinePrefix(seconds, label);
    std::lock_guard<std::mutex> lock(mutex_);
    if (out_ != nullptr) *out_ << prefix << text << std::endl;
    if (full_ != nullptr) *full_ << prefix << full_text << std::endl;
}

}  // namespace tarvo_emu
