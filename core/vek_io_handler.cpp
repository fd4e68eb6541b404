#include "vek_io_handler.h"

#include <errno.h>
#include <string.h>
#include <sys/select.h>
#include <unistd.h>

#include <log/log.h>

#include "tarvo_message_handler.h"

namespace tarvo {

namespace {

constexpr unsigned int kOfflineRecheckSeconds = 2;
constexpr useconds_t kReopenDelayUs = 20000;

}  // namespace

VekIoHandler::VekIoHandler(TarvoMessageHandler* handler)
    : handler_(handler), channel_(std::make_unique<VekIoChannel>()) {}

VekIoHandler::~VekIoHandler() { thread_.reset(); }

bool VekIoHandler::Start() {
    if (!channel_) {
        ALOGE("IO channel is not initialized.");
        return false;
    }
    if (!buffer_) buffer_ = std::make_unique<char[]>(kBufferSize);
    thread_ = std::make_unique<Thread>(this);
    if (thread_->Start() < 0) {
        ALOGE("Thread is not initialized successfully.");
        return false;
    }
    ALOGI("IO handler started");
    return true;
}

void VekIoHandler::Run() {
    if (!channel_) {
        ALOGE("IO channel is not initialized");
        return;
    }
    if (channel_->OpenChannel() < 0) {
        ALOGE("Failed to open IO channel");
        return;
    }

    while (true) {
        if (!handler_->IsModemOnline()) {
            sleep(kOfflineRecheckSeconds);
            continue;
        }

        const int fd = channel_->GetFd();
        fd_set read_set;
        FD_ZERO(&read_set);
        if (fd >= 0) FD_SET(fd, &read_set);
        // A closed channel has no descriptor to wait on, which select reports as an error.
        const int ready = fd >= 0 ? select(fd + 1, &read_set, nullptr, nullptr, nullptr) : -1;
        if (ready < 1) break;
        if (!FD_ISSET(fd, &read_set)) continue;

        memset(buffer_.get(), 0, kBufferSize);
        // An end of file sets no errno: the line shows whatever the thread saw last.
        const int n = channel_->ReadFromChannel(buffer_.get(), kBufferSize);
        if (n >= 1) {
            handler_->ProcessReceivedMessage(buffer_.get(), n);
            continue;
        }
        const int error = errno;
        ALOGE("Read channel error, size:%d, errno:%d", n, error);
        if (n < 0 && (error == EINTR || error == EAGAIN)) continue;
        channel_->CloseChannel();
        usleep(kReopenDelayUs);
        channel_->OpenChannel();
    }

    ALOGE("IO handler timeout");
    channel_->CloseChannel();
    ALOGE("IO handler thread stopped");
}

int VekIoHandler::SendData(const char* data, int size) {
    if (!channel_) {
        ALOGE("IO channel is not initialized");
        return 0;
    }
    channel_->OpenChannel();
    return channel_->WriteToChannel(data, size);
}

}  // namespace tarvo
