#include "nodes/ipc_node.h"

#include <errno.h>
#include <poll.h>

#include <algorithm>

namespace tarvo_emu {

void IpcNode::Open() {
    std::lock_guard<std::mutex> lock(mutex_);
    hung_up_ = false;
}

void IpcNode::Write(fuse_req_t req, const char* data, size_t size, off_t /*offset*/) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (hung_up_ || fail_next_write_) {
            if (fail_next_write_ && observer_ != nullptr) observer_->OnFault(Fault::kWriteError);
            fail_next_write_ = false;
            fuse_reply_err(req, EIO);
            return;
        }
    }
    if (observer_ != nullptr) observer_->OnWrite(std::string_view(data, size));
    // Recorded before the writer goes on, so the transcript shows it before what follows.
    on_uplink_(std::string_view(data, size));
    fuse_reply_write(req, size);
}

void IpcNode::Push(std::string message) {
    std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back({std::nullopt, std::move(message)});
    WakeLocked();
}

void IpcNode::InjectFault(Fault fault) {
    std::lock_guard<std::mutex> lock(mutex_);
    switch (fault) {
        case Fault::kEndOfFile:
        case Fault::kReadError:
            items_.push_back({fault, {}});
            break;
        case Fault::kWriteError:
            fail_next_write_ = true;
            return;
        case Fault::kHangUp:
            // Poll reports it at once.
            hung_up_ = true;
            if (observer_ != nullptr) observer_->OnFault(fault);
            break;
        default:
            return;
    }
    WakeLocked();
}

bool IpcNode::HasItemLocked() const { return hung_up_ || !items_.empty(); }

void IpcNode::ServeLocked(fuse_req_t req, size_t size) {
    if (hung_up_) {
        fuse_reply_buf(req, nullptr, 0);
        return;
    }
    Item item = std::move(items_.front());
    items_.pop_front();
    if (item.fault) {
        if (observer_ != nullptr) observer_->OnFault(*item.fault);
        if (item.fault == Fault::kEndOfFile) {
            fuse_reply_buf(req, nullptr, 0);
        } else {
            fuse_reply_err(req, EIO);
        }
        return;
    }
    const std::string_view bytes(item.bytes.data(), std::min(size, item.bytes.size()));
    if (observer_ != nullptr) observer_->OnRead(bytes);
    fuse_reply_buf(req, bytes.data(), bytes.size());
}

unsigned int IpcNode::PollEventsLocked() const {
    if (hung_up_) return POLLHUP | POLLIN | POLLRDNORM;
    return StreamNode::PollEventsLocked();
}

}  // namespace tarvo_emu
