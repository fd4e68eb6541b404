#pragma once

#include <memory>
#include <string>
#include <vector>

#include "thread.h"
#include "vek_io_channel.h"

namespace tarvo {

// The uplink data pump of the throughput test: writes a fixed schedule of blocks of growing size
// to the test node.
class ModemTputHandler : public Runnable {
  public:
    static constexpr const char* kDefaultChannel = "/dev/oem_test";
    static constexpr size_t kOpeningWriteSize = 10;
    static constexpr int kFirstBlockSize = 1000;
    static constexpr int kBlockSizeStep = 1000;
    static constexpr int kLastBlockSize = 20000;
    static constexpr int kWritesPerSize = 10000;
    static constexpr int kMaxFailures = 11;
    // The buffer must hold the largest block.
    static constexpr size_t kBufferSize = kLastBlockSize;

    static std::unique_ptr<ModemTputHandler> MakeInstance();
    ModemTputHandler(const ModemTputHandler&) = delete;
    ModemTputHandler& operator=(const ModemTputHandler&) = delete;

    void SetChannelName(std::string name) { channel_name_ = std::move(name); }
    // The blocks are written straight from this buffer; its contents carry no meaning.
    void SetBuffer(std::vector<char> buffer) { buffer_ = std::move(buffer); }
    // Runs the whole schedule on the pump's thread and returns when it has ended; -1 when the
    // thread cannot be started.
    int Start();
    void Run() override;

  private:
    ModemTputHandler() = default;
    // Writes kWritesPerSize blocks of `size`; the number of writes that went through before
    // the first failure, or kWritesPerSize.
    int WriteBlocks(int size);

    std::unique_ptr<Thread> thread_;
    std::string channel_name_ = kDefaultChannel;
    std::vector<char> buffer_;
    std::unique_ptr<VekIoChannel> channel_;
};

}  // namespace tarvo
