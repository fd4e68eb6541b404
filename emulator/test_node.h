#pragma once

#include <cstdint>
#include <map>

#include "emulated_node.h"

namespace tarvo_emu {

// "/dev/oem_test", the throughput test node: a downlink source of equal blocks and an uplink sink
// that counts what it is given without keeping it.
class TestNode : public StreamNode {
  public:
    struct Uplink {
        uint64_t writes = 0;  // accepted writes
        uint64_t bytes = 0;
        std::map<size_t, uint64_t> writes_by_size;
        uint64_t failed = 0;
    };

    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;

    // Makes `count` blocks of `block_size` bytes readable, one per read.
    void SetDownlink(size_t block_size, uint64_t count);
    // Write number `index` (1-based, counting every write attempt) fails with EIO; 0 for none.
    void FailWrite(uint64_t index);
    Uplink uplink();
    uint64_t downlink_left();

  protected:
    bool HasItemLocked() const override;
    void ServeLocked(fuse_req_t req, size_t size) override;

  private:
    size_t block_size_ = 0;
    uint64_t blocks_left_ = 0;
    uint64_t attempts_ = 0;
    uint64_t fail_at_ = 0;
    Uplink uplink_;
};

}  // namespace tarvo_emu
