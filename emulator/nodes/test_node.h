#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <thread>

#include "nodes/emulated_node.h"

namespace tarvo_emu {

// "/dev/oem_test", the throughput test node: a downlink source of equal blocks, as fast as they
// are read or at a set rate, and an uplink sink that counts what it is given without keeping it.
class TestNode : public StreamNode {
  public:
    using Clock = std::chrono::steady_clock;

    // First and last moment something of one kind went through.
    struct Span {
        Clock::time_point first;
        Clock::time_point last;
        double seconds() const { return std::chrono::duration<double>(last - first).count(); }
    };
    struct Uplink {
        uint64_t writes = 0;  // accepted writes
        uint64_t bytes = 0;
        std::map<size_t, uint64_t> writes_by_size;
        std::map<size_t, Span> span_by_size;
        uint64_t failed = 0;
    };
    struct Downlink {
        uint64_t reads = 0;  // blocks served
        uint64_t bytes = 0;
        Span span;
    };

    TestNode();
    ~TestNode() override;

    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;
    void Shutdown() override;

    // Streams blocks of `block_size` bytes until StopDownlink: at `bytes_per_s`, or as fast as
    // they are read when it is 0.
    void StartDownlink(size_t block_size, uint64_t bytes_per_s);
    void StopDownlink();
    // Write attempt number `index` (1-based, counting every attempt since the node was made)
    // fails with EIO.
    void FailWrite(uint64_t index);
    // Clears the counters and spans; the attempt numbers go on.
    void ResetStats();

    Uplink uplink();
    Downlink downlink();
    // Waits until `done` holds for the uplink counters; false when it does not within `timeout`.
    bool WaitForUplink(const std::function<bool(const Uplink&)>& done,
                       std::chrono::milliseconds timeout);

  protected:
    bool HasItemLocked() const override REQUIRES(mutex_);
    void ServeLocked(fuse_req_t req, size_t size) override REQUIRES(mutex_);

  private:
    // Hands out paced blocks as they fall due.
    void PaceLoop();

    size_t block_size_ = 0;
    uint64_t blocks_left_ = 0;
    // Between paced blocks; 0 when not paced.
    Clock::duration interval_{0};
    Clock::time_point next_due_ GUARDED_BY(mutex_);
    uint64_t attempts_ = 0;
    std::set<uint64_t> fail_at_ GUARDED_BY(mutex_);
    Uplink uplink_ GUARDED_BY(mutex_);
    Downlink downlink_ GUARDED_BY(mutex_);

    std::condition_variable changed_;
    bool stopping_ = false;
    std::thread pacer_;
};

}  // namespace tarvo_emu
