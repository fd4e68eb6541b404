#include "nodes/emulated_node.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <utility>

#include <android-base/strings.h>

#include "device/device_facts.h"

namespace tarvo_emu {

void EmulatedNode::Poll(fuse_req_t req, uint64_t /*fh*/, fuse_pollhandle* handle) {
    if (handle != nullptr) fuse_pollhandle_destroy(handle);
    fuse_reply_poll(req, POLLIN | POLLRDNORM | POLLOUT | POLLWRNORM);
}

PollWaiters::~PollWaiters() {
    for (auto& [fh, handle] : handles_) fuse_pollhandle_destroy(handle);
}

void PollWaiters::Add(uint64_t fh, fuse_pollhandle* handle) {
    if (handle == nullptr) return;
    auto [it, inserted] = handles_.emplace(fh, handle);
    if (inserted) return;
    fuse_pollhandle_destroy(it->second);
    it->second = handle;
}

void PollWaiters::NotifyAll() {
    for (auto& [fh, handle] : handles_) {
        fuse_lowlevel_notify_poll(handle);
        fuse_pollhandle_destroy(handle);
    }
    handles_.clear();
}

void StreamNode::Read(fuse_req_t req, size_t size, off_t /*offset*/, int flags) {
    // Registered before taking the node's lock: libfuse calls OnInterrupt with its own request
    // lock held, and OnInterrupt takes ours, so the opposite order could deadlock.
    fuse_req_interrupt_func(req, &StreamNode::OnInterrupt, this);
    std::lock_guard<std::mutex> lock(mutex_);
    if (HasItemLocked()) {
        ServeLocked(req, size);
        return;
    }
    if ((flags & O_NONBLOCK) != 0) {
        fuse_reply_err(req, EAGAIN);
        return;
    }
    if (fuse_req_interrupted(req)) {
        fuse_reply_err(req, EINTR);
        return;
    }
    held_.push_back({req, size});
}

void StreamNode::OnInterrupt(fuse_req_t req, void* data) {
    auto* node = static_cast<StreamNode*>(data);
    std::lock_guard<std::mutex> lock(node->mutex_);
    auto it = std::find_if(node->held_.begin(), node->held_.end(),
                           [req](const HeldRead& held) { return held.req == req; });
    if (it == node->held_.end()) return;
    node->held_.erase(it);
    fuse_reply_err(req, EINTR);
}

void StreamNode::Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    waiters_.Add(fh, handle);
    fuse_reply_poll(req, PollEventsLocked());
}

unsigned int StreamNode::PollEventsLocked() const {
    unsigned int events = POLLOUT | POLLWRNORM;
    if (HasItemLocked()) events |= POLLIN | POLLRDNORM;
    return events;
}

void StreamNode::WakeLocked() {
    while (!held_.empty() && HasItemLocked()) {
        const HeldRead held = held_.front();
        held_.pop_front();
        ServeLocked(held.req, held.size);
    }
    waiters_.NotifyAll();
}

void StreamNode::Shutdown() {
    std::lock_guard<std::mutex> lock(mutex_);
    for (const HeldRead& held : held_) fuse_reply_err(held.req, EINTR);
    held_.clear();
}

void BootNode::Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) {
    ++poll_count_;
    std::lock_guard<std::mutex> lock(mutex_);
    waiters_.Add(fh, handle);
    fuse_reply_poll(req, std::exchange(changed_, false) ? POLLIN | POLLRDNORM : 0);
}

void BootNode::Ioctl(fuse_req_t req, unsigned int cmd) {
    if (cmd != kStatusIoctl) {
        fuse_reply_err(req, ENOTTY);
        return;
    }
    ++ioctl_count_;
    fuse_reply_ioctl(req, state(), nullptr, 0);
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

std::string TempNode::Joined() {
    std::lock_guard<std::mutex> lock(mutex_);
    return android::base::Join(writes_, "");
}

off_t TempNode::size() { return Joined().size(); }

void TempNode::Read(fuse_req_t req, size_t size, off_t offset, int /*flags*/) {
    const std::string joined = Joined();
    if (offset < 0 || static_cast<size_t>(offset) >= joined.size()) {
        fuse_reply_buf(req, nullptr, 0);
        return;
    }
    const std::string part = joined.substr(offset, size);
    fuse_reply_buf(req, part.data(), part.size());
}

void TempNode::Write(fuse_req_t req, const char* data, size_t size, off_t /*offset*/) {
    if (keep_writes_) {
        std::lock_guard<std::mutex> lock(mutex_);
        writes_.emplace_back(data, size);
    }
    fuse_reply_write(req, size);
}

std::vector<std::string> TempNode::writes() {
    std::lock_guard<std::mutex> lock(mutex_);
    return writes_;
}

}  // namespace tarvo_emu
