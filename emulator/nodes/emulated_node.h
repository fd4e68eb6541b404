#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>

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
    virtual void Ioctl(fuse_req_t req, unsigned int cmd);
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

}  // namespace tarvo_emu
