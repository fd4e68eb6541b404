#include "nodes/boot_node.h"

#include <errno.h>
#include <poll.h>

namespace tarvo_emu {

void BootNode::Read(fuse_req_t req, size_t /*size*/, off_t /*offset*/, int /*flags*/) {
    fuse_reply_buf(req, nullptr, 0);
}

void BootNode::Write(fuse_req_t req, const char* /*data*/, size_t size, off_t /*offset*/) {
    fuse_reply_write(req, size);
}

void BootNode::Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    ++poll_count_;
    waiters_.Add(fh, handle);
    unsigned int events = 0;
    if (changed_) {
        changed_ = false;
        events = POLLIN | POLLRDNORM;
    }
    fuse_reply_poll(req, events);
}

void BootNode::Ioctl(fuse_req_t req, unsigned int cmd) {
    if (cmd != kStatusIoctl) {
        fuse_reply_err(req, ENOTTY);
        return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    ++ioctl_count_;
    fuse_reply_ioctl(req, state_, nullptr, 0);
}

void BootNode::SetState(int state) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (state == state_) return;
    state_ = state;
    changed_ = true;
    waiters_.NotifyAll();
}

int BootNode::state() {
    std::lock_guard<std::mutex> lock(mutex_);
    return state_;
}

uint64_t BootNode::ioctl_count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return ioctl_count_;
}

uint64_t BootNode::poll_count() {
    std::lock_guard<std::mutex> lock(mutex_);
    return poll_count_;
}

}  // namespace tarvo_emu
