#include "modem_tput_monitor.h"

#include <errno.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>

#include <log/log.h>

#include "tarvo_test_handler.h"

namespace tarvo {

namespace {

constexpr useconds_t kReopenPauseUs = 20000;

}  // namespace

std::unique_ptr<ModemTputMonitor> ModemTputMonitor::MakeInstance(TarvoTestHandler* handler) {
    if (handler == nullptr) return nullptr;
    return std::unique_ptr<ModemTputMonitor>(new ModemTputMonitor(handler));
}

ModemTputMonitor::ModemTputMonitor(TarvoTestHandler* handler)
    : handler_(handler), exit_event_(eventfd(0, EFD_CLOEXEC)) {}

ModemTputMonitor::~ModemTputMonitor() {
    exiting_ = true;
    stop_requested_ = true;
    if (exit_event_.ok()) eventfd_write(exit_event_.get(), 1);
    thread_.reset();
}

int ModemTputMonitor::Start() {
    if (buffer_.empty()) buffer_.resize(kBufferSize);
    thread_ = std::make_unique<Thread>(this);
    return thread_->Start() < 0 ? -1 : 0;
}

void ModemTputMonitor::Run() {
    // Set once: select lowers it to the time that was left, and it is not reset between waits.
    timeval timeout = {kReadTimeoutSeconds, 0};
    if (!channel_) channel_ = std::make_unique<VekIoChannel>();
    if (!channel_->SetChannel(channel_name_)) {
        ALOGE("Failed to set IO channel");
        finished_ = true;
        return;
    }
    if (channel_->OpenChannel() < 0) {
        ALOGE("Failed to open IO channel");
        finished_ = true;
        return;
    }
    while (!stop_requested_) {
        if (ReadOnce(&timeout)) continue;
        if (exiting_) break;
        channel_->CloseChannel();
        usleep(kReopenPauseUs);
        channel_->OpenChannel();
    }
    channel_->CloseChannel();
    ALOGI("Stop tput monitoring");
    finished_ = true;
}

bool ModemTputMonitor::ReadOnce(timeval* timeout) {
    const int fd = channel_->GetFd();
    // A channel that could not be opened again is a failed wait.
    if (fd < 0) return false;
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    if (exit_event_.ok()) FD_SET(exit_event_.get(), &readable);
    const int ready =
        select(std::max(fd, exit_event_.get()) + 1, &readable, nullptr, nullptr, timeout);
    if (ready < 1 || !FD_ISSET(fd, &readable)) return false;

    memset(buffer_.data(), 0, buffer_.size());
    const int size = channel_->ReadFromChannel(buffer_.data(), kBufferSize);
    if (size >= 1) {
        handler_->OnReceiveTputPkt(size);
        received_bytes_ += static_cast<uint32_t>(size);
        return true;
    }
    const int error = errno;
    ALOGE("Read channel error, size:%d, errno:%d", size, error);
    return size < 0 && (error == EINTR || error == EAGAIN);
}

}  // namespace tarvo
