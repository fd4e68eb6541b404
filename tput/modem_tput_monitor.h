#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <android-base/unique_fd.h>

#include "thread.h"
#include "vek_io_channel.h"

namespace tarvo {

class TarvoTestHandler;

// The downlink monitor of the throughput test: reads everything the modem sends on the test node
// and reports each read's size to the test handler.
class ModemTputMonitor : public Runnable {
  public:
    static constexpr const char* kDefaultChannel = "/dev/oem_test";
    static constexpr int kBufferSize = 65568;
    static constexpr int kReadTimeoutSeconds = 10;

    // Null for a null handler.
    static std::unique_ptr<ModemTputMonitor> MakeInstance(TarvoTestHandler* handler);
    ModemTputMonitor(const ModemTputMonitor&) = delete;
    ModemTputMonitor& operator=(const ModemTputMonitor&) = delete;
    // Ends a thread still running at once, even one waiting for data, and joins it.
    ~ModemTputMonitor() override;

    void SetChannelName(std::string name) { channel_name_ = std::move(name); }
    // Starts the thread and returns; -1 when it cannot be started.
    int Start();
    // Asks the thread to end after its current wait; does not wait for it.
    void SetChannelClose() { stop_requested_ = true; }
    void Run() override;

    uint32_t received_bytes() const { return received_bytes_; }
    bool finished() const { return finished_; }

  private:
    explicit ModemTputMonitor(TarvoTestHandler* handler);
    // One pass of the loop: false when the channel must be opened again.
    bool ReadOnce(timeval* timeout);

    std::unique_ptr<Thread> thread_;
    std::string channel_name_ = kDefaultChannel;
    std::vector<char> buffer_;
    std::unique_ptr<VekIoChannel> channel_;
    std::atomic<uint32_t> received_bytes_{0};
    TarvoTestHandler* handler_;
    std::atomic<bool> stop_requested_{false};
    // Readable once the monitor is being destroyed, so that a pending wait ends.
    android::base::unique_fd exit_event_;
    std::atomic<bool> exiting_{false};
    std::atomic<bool> finished_{false};
};

}  // namespace tarvo
