#include "capture/capture_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <sstream>

#include <android-base/file.h>
#include <android-base/strings.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr size_t kReadSize = 64 * 1024;
// How often a file at its end is looked at again for more, as `tail -f` does.
constexpr int kGrowthPollMs = 100;

using LineReader = std::function<Result<void>(std::string_view line, size_t number)>;

bool IsBlank(std::string_view line) {
    return line.find_first_not_of(" \t\r") == std::string_view::npos;
}

// The bytes that hex digits (spaces between them allowed) stand for.
std::optional<std::string> FromHex(std::string_view text) {
    std::string digits;
    for (const char c : text) {
        if (c != ' ' && c != '\t' && c != '\r') digits.push_back(c);
    }
    if (digits.empty() || digits.size() % 2 != 0 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    std::string bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(strtoul(digits.substr(i, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

// A direction label at the start of a hex line, taken off it.
bool FromDaemon(std::string_view* text) {
    while (!text->empty() && (text->front() == ' ' || text->front() == '\t'))
        text->remove_prefix(1);
    for (const char* label : {kToDaemonLabel, kFromDaemonLabel}) {
        if (android::base::StartsWith(*text, label)) {
            text->remove_prefix(strlen(label));
            return label == kFromDaemonLabel;
        }
    }
    return false;
}

Result<void> TranscriptLine(std::string_view text, size_t number, Capture* capture) {
    if (IsBlank(text)) return {};
    std::vector<CaptureEvent>& events = capture->events;
    // The rest of a log text that holds line feeds.
    if (!IsTranscriptLine(text) && !events.empty() &&
        events.back().kind == CaptureEvent::Kind::kLog) {
        events.back().log.text += "\n" + std::string(text);
        return {};
    }
    Result<CaptureEvent> event = ParseTranscriptLine(text);
    if (!event.ok()) return Error() << "line " << number << ": " << event.error().message();
    event->line = number;
    events.push_back(std::move(*event));
    return {};
}

Result<void> HexLine(std::string_view text, size_t number, Capture* capture) {
    if (IsBlank(text)) return {};
    const bool from_daemon = FromDaemon(&text);
    std::optional<std::string> bytes = FromHex(text);
    if (!bytes) return Error() << "line " << number << ": not hex digits, two a byte";
    CaptureEvent& event = capture->events.emplace_back();
    event.kind = from_daemon ? CaptureEvent::Kind::kFromDaemon : CaptureEvent::Kind::kToDaemon;
    event.bytes = std::move(*bytes);
    event.line = number;
    return {};
}

}  // namespace

bool IsHexLine(std::string_view line) {
    FromDaemon(&line);
    return FromHex(line).has_value();
}

Result<Capture> ReadCapture(std::istream& in, const StraceOptions& options) {
    std::string line;
    while (IsBlank(line)) {
        if (!std::getline(in, line)) return Capture();
    }
    Capture capture;
    StraceReader strace(options);
    const bool strace_form = !IsTranscriptLine(line) && !IsHexLine(line);
    LineReader read = [&strace](std::string_view text, size_t) { return strace.Line(text); };
    if (IsTranscriptLine(line)) {
        read = [&capture](std::string_view text, size_t number) {
            return TranscriptLine(text, number, &capture);
        };
    } else if (IsHexLine(line)) {
        read = [&capture](std::string_view text, size_t number) {
            return HexLine(text, number, &capture);
        };
    }
    // Lines are counted from the first that is not blank.
    size_t number = 0;
    do {
        if (Result<void> done = read(line, ++number); !done.ok()) return done.error();
    } while (std::getline(in, line));
    if (strace_form) return strace.Finish();
    return capture;
}

void PrintEvent(const CaptureEvent& event, std::ostream& out, bool full) {
    const auto [label, text] = DescribeEvent(event, full);
    out << LinePrefix(event.time, label) << text << '\n';
}

void PrintCapture(const Capture& capture, std::ostream& out, bool full) {
    for (const CaptureEvent& event : capture.events) PrintEvent(event, out, full);
    out.flush();
}

Result<std::unique_ptr<CaptureFollower>> CaptureFollower::Create(StraceOptions options, Sink sink) {
    std::unique_ptr<CaptureFollower> follower(new CaptureFollower(options, std::move(sink)));
    if (!android::base::Pipe(&follower->stop_read_, &follower->stop_write_,
                             O_CLOEXEC | O_NONBLOCK)) {
        return ErrnoError() << "pipe";
    }
    return follower;
}

CaptureFollower::CaptureFollower(StraceOptions options, Sink sink)
    : options_(options), sink_(std::move(sink)), strace_(options, sink_) {}

void CaptureFollower::Stop() {
    const char byte = 1;
    if (write(stop_write_.get(), &byte, 1) < 0) {
        // A full pipe already holds a stop.
    }
}

Result<void> CaptureFollower::Line(std::string_view line) {
    if (!strace_form_) {
        if (IsBlank(line)) return {};
        strace_form_ = !IsTranscriptLine(line) && !IsHexLine(line);
    }
    if (*strace_form_) return strace_.Line(line);
    other_lines_.emplace_back(line);
    return {};
}

Result<Capture> CaptureFollower::Follow(int fd) {
    struct stat status = {};
    const bool grows = fstat(fd, &status) == 0 && S_ISREG(status.st_mode);
    std::string buffer;
    char chunk[kReadSize];
    pollfd fds[2] = {{.fd = fd, .events = POLLIN, .revents = 0},
                     {.fd = stop_read_.get(), .events = POLLIN, .revents = 0}};
    while (true) {
        // A pipe is waited on together with Stop; a file is read until its end, then looked at
        // again after a while.
        if (!grows) {
            if (poll(fds, 2, -1) < 0) {
                if (errno == EINTR) continue;
                return ErrnoError() << "poll";
            }
            if ((fds[1].revents & POLLIN) != 0) break;
        }
        const ssize_t count = TEMP_FAILURE_RETRY(read(fd, chunk, sizeof(chunk)));
        if (count < 0) return ErrnoError() << "read";
        if (count == 0) {
            if (!grows) break;
            pollfd stop = fds[1];
            if (poll(&stop, 1, kGrowthPollMs) > 0) break;
            continue;
        }
        buffer.append(chunk, count);
        size_t start = 0;
        for (size_t end = buffer.find('\n'); end != std::string::npos;
             end = buffer.find('\n', start)) {
            if (Result<void> read = Line(std::string_view(buffer).substr(start, end - start));
                !read.ok()) {
                return read.error();
            }
            start = end + 1;
        }
        buffer.erase(0, start);
    }
    // The last line may lack its newline.
    if (!buffer.empty()) {
        if (Result<void> read = Line(buffer); !read.ok()) return read.error();
    }
    if (strace_form_.value_or(true)) return strace_.Finish();
    std::istringstream lines(android::base::Join(other_lines_, '\n'));
    Result<Capture> capture = ReadCapture(lines, options_);
    if (!capture.ok()) return capture.error();
    // These forms have no dates: their events are stamped as they are handed on.
    for (const CaptureEvent& event : capture->events) sink_(event, UnixNow());
    return capture;
}

}  // namespace tarvo_emu
