#include "nodes/test_node.h"

#include <errno.h>

#include <algorithm>
#include <limits>
#include <string>

namespace tarvo_emu {

namespace {

constexpr uint64_t kEndless = std::numeric_limits<uint64_t>::max();
// A paced reader that falls behind gets at most this much backlog at once.
constexpr std::chrono::milliseconds kMaxBacklog{100};

void Count(TestNode::Span* span, bool first, TestNode::Clock::time_point now) {
    if (first) span->first = now;
    span->last = now;
}

}  // namespace

TestNode::TestNode() : pacer_([this] { PaceLoop(); }) {}

TestNode::~TestNode() { Shutdown(); }

void TestNode::Shutdown() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    if (pacer_.joinable()) pacer_.join();
    StreamNode::Shutdown();
}

void TestNode::Write(fuse_req_t req, const char* /*data*/, size_t size, off_t /*offset*/) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (fail_at_.count(++attempts_) != 0) {
            ++uplink_.failed;
            fuse_reply_err(req, EIO);
        } else {
            const uint64_t count = ++uplink_.writes_by_size[size];
            ++uplink_.writes;
            uplink_.bytes += size;
            Count(&uplink_.span_by_size[size], count == 1, Clock::now());
            fuse_reply_write(req, size);
        }
    }
    changed_.notify_all();
}

void TestNode::StartDownlink(size_t block_size, uint64_t bytes_per_s) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        block_size_ = block_size;
        blocks_left_ = block_size == 0 ? 0 : kEndless;
        interval_ = bytes_per_s == 0
                        ? Clock::duration::zero()
                        : std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(
                              static_cast<double>(block_size) / bytes_per_s));
        next_due_ = Clock::now();
        WakeLocked();
    }
    changed_.notify_all();
}

void TestNode::StopDownlink() {
    std::lock_guard<std::mutex> lock(mutex_);
    // A block that poll may already have announced stays to be read, as a driver's queue keeps
    // what it took in: a reader woken for it must not block on a read that nothing will answer.
    blocks_left_ = HasItemLocked() ? 1 : 0;
}

void TestNode::FailWrite(uint64_t index) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (index != 0) fail_at_.insert(index);
}

void TestNode::ResetStats() {
    std::lock_guard<std::mutex> lock(mutex_);
    uplink_ = {};
    downlink_ = {};
}

TestNode::Uplink TestNode::uplink() {
    std::lock_guard<std::mutex> lock(mutex_);
    return uplink_;
}

TestNode::Downlink TestNode::downlink() {
    std::lock_guard<std::mutex> lock(mutex_);
    return downlink_;
}

bool TestNode::WaitForUplink(const std::function<bool(const Uplink&)>& done,
                             std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, timeout, [&] { return done(uplink_); });
}

bool TestNode::HasItemLocked() const {
    if (blocks_left_ == 0) return false;
    return interval_ == Clock::duration::zero() || Clock::now() >= next_due_;
}

void TestNode::ServeLocked(fuse_req_t req, size_t size) {
    if (blocks_left_ != kEndless) --blocks_left_;
    if (interval_ != Clock::duration::zero()) {
        next_due_ = std::max(next_due_, Clock::now() - kMaxBacklog) + interval_;
        changed_.notify_all();
    }
    const std::string block(std::min(size, block_size_), 'D');
    Count(&downlink_.span, downlink_.reads++ == 0, Clock::now());
    downlink_.bytes += block.size();
    fuse_reply_buf(req, block.data(), block.size());
}

void TestNode::PaceLoop() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!stopping_) {
        if (blocks_left_ == 0 || interval_ == Clock::duration::zero()) {
            changed_.wait(lock);
            continue;
        }
        if (Clock::now() < next_due_) {
            changed_.wait_until(lock, next_due_);
            continue;
        }
        WakeLocked();
        // Nobody took the block yet: the next read or change wakes this loop.
        if (HasItemLocked()) changed_.wait(lock);
    }
}

}  // namespace tarvo_emu
