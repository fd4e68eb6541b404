#include "capture/capture_follower.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "capture/capture_reader.h"

using android::base::ErrnoError;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr size_t kReadSize = 64 * 1024;
// How often a file at its end is looked at again for more, as `tail -f` does.
constexpr int kGrowthPollMs = 100;

}  // namespace

Result<std::unique_ptr<CaptureFollower>> CaptureFollower::Create(StraceOptions options, Sink sink) {
    std::unique_ptr<CaptureFollower> follower(new CaptureFollower(options, std::move(sink)));
    if (!android::base::Pipe(&follower->stop_read_, &follower->stop_write_,
                             O_CLOEXEC | O_NONBLOCK)) {
        return ErrnoError() << "pipe";
    }
    return follower;
}

CaptureFollower::CaptureFollower(StraceOptions options, Sink sink)
    : options_(options), sink_(std::move(sink)), strace_(options) {
    strace_.SetSink(sink_);
}

void CaptureFollower::Stop() {
    const char byte = 1;
    if (write(stop_write_.get(), &byte, 1) < 0) {
        // A full pipe already holds a stop.
    }
}

Result<void> CaptureFollower::Line(std::string_view line) {
    if (form_ == Form::kUnknown) {
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) return {};
        form_ = IsTranscriptLine(line) || IsHexLine(line) ? Form::kOther : Form::kStrace;
    }
    if (form_ == Form::kStrace) return strace_.Line(line);
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
    if (form_ != Form::kOther) return strace_.Finish();
    std::istringstream lines(android::base::Join(other_lines_, '\n'));
    Result<Capture> capture = ReadCapture(lines, options_);
    if (!capture.ok()) return capture.error();
    // These forms have no dates: their events are stamped as they are handed on.
    for (const CaptureEvent& event : capture->events) sink_(event, UnixNow());
    return capture;
}

}  // namespace tarvo_emu
