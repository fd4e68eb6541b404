#pragma once

#include <errno.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>
#include <fuse_lowlevel.h>

namespace tarvo_emu {

// One file of the emulated device tree. Every operation answers its request itself, at once or
// later (a read held until data arrives), so that no FUSE worker thread ever blocks in a node.
class EmulatedNode {
  public:
    virtual ~EmulatedNode() = default;

    virtual mode_t mode() const { return S_IFREG | 0666; }
    // Device nodes are streams; a sysfs attribute keeps offsets.
    virtual bool seekable() const { return false; }
    virtual off_t size() { return 0; }

    virtual void Open() {}
    virtual void Read(fuse_req_t req, size_t size, off_t offset, int flags) = 0;
    virtual void Write(fuse_req_t req, const char* data, size_t size, off_t offset) = 0;
    virtual void Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle);
    virtual void Ioctl(fuse_req_t req, unsigned int /*cmd*/) { fuse_reply_err(req, ENOTTY); }
    // Answers every request still held; the filesystem is going away.
    virtual void Shutdown() {}
};

// Poll handles of the descriptors that wait on one node, one per open file.
class PollWaiters {
  public:
    ~PollWaiters();
    void Add(uint64_t fh, fuse_pollhandle* handle);
    // Wakes every waiter once; each poll that wants to wait again registers anew.
    void NotifyAll();

  private:
    std::map<uint64_t, fuse_pollhandle*> handles_;
};

// A node read as a stream of items: a read takes one item, or waits for one unless the
// descriptor is non-blocking; poll reports readable while an item is there.
class StreamNode : public EmulatedNode {
  public:
    void Read(fuse_req_t req, size_t size, off_t offset, int flags) override;
    void Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) override;
    void Shutdown() override;

  protected:
    virtual bool HasItemLocked() const = 0;
    // Answers `req` with the next item; called only when HasItemLocked().
    virtual void ServeLocked(fuse_req_t req, size_t size) = 0;
    virtual unsigned int PollEventsLocked() const REQUIRES(mutex_);
    // Hands new items to held reads and wakes pollers; call after a change.
    void WakeLocked() REQUIRES(mutex_);

    std::mutex mutex_;

  private:
    struct HeldRead {
        fuse_req_t req;
        size_t size;
    };
    static void OnInterrupt(fuse_req_t req, void* data);

    std::deque<HeldRead> held_ GUARDED_BY(mutex_);
    PollWaiters waiters_ GUARDED_BY(mutex_);
};

// "/dev/umts_boot0": the status ioctl returns the emulated modem state. A change of state makes
// the node readable for one poll: the poll that reports it consumes the event, so a steady state
// wakes nobody. (The daemon's reader issues its own status ioctls on the same descriptor, so the
// ioctl cannot be what consumes the event without racing the monitor's poll.)
class BootNode : public EmulatedNode {
  public:
    explicit BootNode(int state) : state_(state) {}

    void Read(fuse_req_t req, size_t, off_t, int) override { fuse_reply_buf(req, nullptr, 0); }
    void Write(fuse_req_t req, const char*, size_t size, off_t) override {
        fuse_reply_write(req, size);
    }
    void Poll(fuse_req_t req, uint64_t fh, fuse_pollhandle* handle) override;
    void Ioctl(fuse_req_t req, unsigned int cmd) override;

    void SetState(int state);
    int state();
    uint64_t ioctl_count() const { return ioctl_count_; }
    uint64_t poll_count() const { return poll_count_; }

  private:
    std::mutex mutex_;
    int state_ GUARDED_BY(mutex_);
    bool changed_ = false;
    PollWaiters waiters_ GUARDED_BY(mutex_);
    std::atomic<uint64_t> ioctl_count_ = 0;
    std::atomic<uint64_t> poll_count_ = 0;
};

// "/sys/devices/platform/cp-tm1/cp_temp", the thermal driver's attribute: every write is kept on
// its own, as the driver sees it. Reading returns all writes so far, joined.
class TempNode : public EmulatedNode {
  public:
    mode_t mode() const override { return S_IFREG | 0664; }
    bool seekable() const override { return true; }
    off_t size() override;

    void Read(fuse_req_t req, size_t size, off_t offset, int flags) override;
    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;

    std::vector<std::string> writes();
    // Whether writes are kept; a long run that reads none of them drops them, so that the rig's
    // memory stays flat.
    void KeepWrites(bool keep) { keep_writes_ = keep; }

  private:
    std::string Joined();

    std::mutex mutex_;
    std::vector<std::string> writes_ GUARDED_BY(mutex_);
    std::atomic<bool> keep_writes_ = true;
};

}  // namespace tarvo_emu
