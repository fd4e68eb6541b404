#include "modem_tput_handler.h"

#include <unistd.h>

#include <log/log.h>

namespace tarvo {

namespace {

constexpr useconds_t kPauseUs = 100000;

}  // namespace

std::unique_ptr<ModemTputHandler> ModemTputHandler::MakeInstance() {
    return std::unique_ptr<ModemTputHandler>(new ModemTputHandler());
}

int ModemTputHandler::Start() {
    thread_ = std::make_unique<Thread>(this);
    if (thread_->Start() < 0) return -1;
    thread_->Stop();
    return 0;
}

void ModemTputHandler::Run() {
    channel_ = std::make_unique<VekIoChannel>();
    if (!channel_->SetChannel(channel_name_)) {
        ALOGE("Failed to set IO channel");
        return;
    }
    if (channel_->OpenChannel() < 0) {
        ALOGE("Failed to open IO channel");
        return;
    }
    if (buffer_.size() < kBufferSize) {
        channel_->CloseChannel();
        return;
    }

    channel_->WriteToChannel(buffer_.data(), kOpeningWriteSize);
    usleep(kPauseUs);

    int size = kFirstBlockSize;
    int failures = 0;
    while (size <= kLastBlockSize) {
        const int written = WriteBlocks(size);
        if (written == kWritesPerSize) {
            size += kBlockSizeStep;
            continue;
        }
        ALOGE("Failed to write to IO channel #%d", written);
        channel_->CloseChannel();
        usleep(kPauseUs);
        channel_->OpenChannel();
        if (++failures >= kMaxFailures) break;
    }
    channel_->CloseChannel();
}

int ModemTputHandler::WriteBlocks(int size) {
    for (int i = 0; i < kWritesPerSize; ++i) {
        if (channel_->WriteToChannel(buffer_.data(), size) != 0) return i;
    }
    return kWritesPerSize;
}

}  // namespace tarvo
