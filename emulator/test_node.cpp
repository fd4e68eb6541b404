#include "test_node.h"

#include <errno.h>

#include <algorithm>
#include <string>

namespace tarvo_emu {

void TestNode::Write(fuse_req_t req, const char* /*data*/, size_t size, off_t /*offset*/) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (++attempts_ == fail_at_) {
        ++uplink_.failed;
        fuse_reply_err(req, EIO);
        return;
    }
    ++uplink_.writes;
    uplink_.bytes += size;
    ++uplink_.writes_by_size[size];
    fuse_reply_write(req, size);
}

void TestNode::SetDownlink(size_t block_size, uint64_t count) {
    std::lock_guard<std::mutex> lock(mutex_);
    block_size_ = block_size;
    blocks_left_ = block_size == 0 ? 0 : count;
    WakeLocked();
}

void TestNode::FailWrite(uint64_t index) {
    std::lock_guard<std::mutex> lock(mutex_);
    fail_at_ = index;
}

TestNode::Uplink TestNode::uplink() {
    std::lock_guard<std::mutex> lock(mutex_);
    return uplink_;
}

uint64_t TestNode::downlink_left() {
    std::lock_guard<std::mutex> lock(mutex_);
    return blocks_left_;
}

bool TestNode::HasItemLocked() const { return blocks_left_ > 0; }

void TestNode::ServeLocked(fuse_req_t req, size_t size) {
    --blocks_left_;
    const std::string block(std::min(size, block_size_), 'D');
    fuse_reply_buf(req, block.data(), block.size());
}

}  // namespace tarvo_emu
