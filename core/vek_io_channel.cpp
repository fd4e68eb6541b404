#include "vek_io_channel.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <log/log.h>

namespace tarvo {

namespace {

constexpr useconds_t kRetryDelayUs = 10000;

bool IsTransient(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

int VekIoChannel::OpenChannel() {
    std::lock_guard<std::mutex> guard(lock_);
    if (file_) return 0;
    android::base::unique_fd fd(open(path_.c_str(), O_RDWR));
    ALOGI("Open IO channel, fd: %d channel: %s", fd.get(), path_.c_str());
    if (fd < 0) {
        ALOGE("Failed to open IO channel, fd: %d", fd.get());
        return -1;
    }
    file_ = std::make_shared<const android::base::unique_fd>(std::move(fd));
    return 0;
}

int VekIoChannel::CloseChannel() {
    SharedFd closed;
    {
        std::lock_guard<std::mutex> guard(lock_);
        closed = std::move(file_);
    }
    // The descriptor closes here, or when the last read or write that holds it ends.
    return 0;
}

VekIoChannel::SharedFd VekIoChannel::Current() const {
    std::lock_guard<std::mutex> guard(lock_);
    return file_;
}

int VekIoChannel::GetFd() const {
    const SharedFd file = Current();
    return file ? file->get() : -1;
}

int VekIoChannel::ReadFromChannel(char* buffer, int size) {
    const SharedFd file = Current();
    if (buffer == nullptr || !file) return -1;
    ssize_t n = read(file->get(), buffer, size);
    while (n < 0 && IsTransient(errno)) {
        usleep(kRetryDelayUs);
        n = read(file->get(), buffer, size);
    }
    return static_cast<int>(n);
}

int VekIoChannel::WriteToChannel(const char* data, int size) {
    const SharedFd file = Current();
    if (data == nullptr || !file) return -1;
    if (size < 1) return 0;
    int done = 0;
    while (done < size) {
        const ssize_t n = write(file->get(), data + done, size - done);
        if (n >= 0) {
            done += static_cast<int>(n);
            continue;
        }
        if (!IsTransient(errno)) return -1;
        usleep(kRetryDelayUs);
    }
    return 0;
}

bool VekIoChannel::SetChannel(std::string path) {
    std::lock_guard<std::mutex> guard(lock_);
    path_ = std::move(path);
    return true;
}

}  // namespace tarvo
