#pragma once

#include <mutex>

#include <android-base/thread_annotations.h>

#include "device/device_facts.h"
#include "nodes/emulated_node.h"

namespace tarvo_emu {

// "/dev/umts_boot0": the status ioctl returns the emulated modem state. A change of state makes
// the node readable for one poll: the poll that reports it consumes the event, so a steady state
// wakes nobody. (The daemon's reader issues its own status ioctls on the same descriptor, so the
// ioctl cannot be what consumes the event without racing the monitor's poll.)
class BootNode : public EmulatedNode {
  public:
    explicit BootNode(int state) : state_(state) {}

    void Read(fuse_req_t req, size_t size, off_t offset, int flags) override;
    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;
    void Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) override;
    void Ioctl(fuse_req_t req, unsigned int cmd) override;

    void SetState(int state);
    int state();
    uint64_t ioctl_count();
    uint64_t poll_count();

  private:
    std::mutex mutex_;
    int state_ GUARDED_BY(mutex_);
    bool changed_ = false;
    PollWaiters waiters_ GUARDED_BY(mutex_);
    uint64_t ioctl_count_ = 0;
    uint64_t poll_count_ = 0;
};

}  // namespace tarvo_emu
