#pragma once

#include <memory>

#include "thread.h"
#include "vek_io_channel.h"

namespace tarvo {

class TarvoMessageHandler;

// Owns the modem IPC channel; its reader thread hands every received message to the message
// handler, and SendData writes outgoing ones.
class VekIoHandler : public Runnable {
  public:
    // Largest message the reader can receive whole.
    static constexpr int kBufferSize = 0x10020;

    explicit VekIoHandler(TarvoMessageHandler* handler);
    ~VekIoHandler() override;

    bool Start();
    void Run() override;
    // 0 on success, -1 when the write failed.
    int SendData(const char* data, int size);

    VekIoChannel* GetChannel() { return channel_.get(); }

  private:
    TarvoMessageHandler* handler_;
    std::unique_ptr<VekIoChannel> channel_;
    std::unique_ptr<char[]> buffer_;
    std::unique_ptr<Thread> thread_;  // declared last: destroyed (joined) first
};

}  // namespace tarvo
