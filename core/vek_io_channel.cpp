#include "vek_io_channel.h"

#include <errno.h>
#include <fcntl.h>
#include <unistd.h>

#include <log/log.h>

namespace {

constexpr useconds_t kRetryDelayUs = 10000;

bool IsTransient(int error) { return error == EAGAIN || error == EINTR; }

}  // namespace

VekIoChannel::~VekIoChannel() { CloseChannel(); }

int VekIoChannel::OpenChannel() {
    if (fd_ >= 0) return 0;
    const int fd = open(path_.c_str(), O_RDWR);
    fd_ = fd;
    ALOGI("Open IO channel, fd: %d channel: %s", fd, path_.c_str());
    if (fd < 0) {
        ALOGE("Failed to open IO channel, fd: %d", fd);
        return -1;
    }
    return 0;
}

int VekIoChannel::CloseChannel() {
    const int fd = fd_.exchange(-1);
    if (fd >= 0) close(fd);
    return 0;
}

int VekIoChannel::ReadFromChannel(char* buffer, int size) {
    if (buffer == nullptr || fd_ < 0) return -1;
    ssize_t n = read(fd_.load(), buffer, size);
    while (n < 0 && IsTransient(errno)) {
        usleep(kRetryDelayUs);
        n = read(fd_.load(), buffer, size);
    }
    return static_cast<int>(n);
}

int VekIoChannel::WriteToChannel(const char* data, int size) {
    if (data == nullptr || fd_ < 0) return -1;
    if (size < 1) return 0;
    int done = 0;
    while (done < size) {
        const ssize_t n = write(fd_.load(), data + done, size - done);
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
    path_ = std::move(path);
    return true;
}
