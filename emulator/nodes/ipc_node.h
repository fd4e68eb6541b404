#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "device/fault.h"
#include "nodes/emulated_node.h"

namespace tarvo_emu {

// Sees the traffic of /dev/oem_ipc1 as the daemon meets it, on the filesystem's threads: a
// message from the modem when the daemon's read takes it (not when the modem queues it), the
// daemon's message when its write delivers it, and a fault when it takes effect (a read that
// returns end of file or fails, a write that fails, the node hanging up). `bytes` lives until
// the call returns; a call must not reach back into the node.
class IpcObserver {
  public:
    virtual ~IpcObserver() = default;
    virtual void OnRead(std::string_view bytes) = 0;
    virtual void OnWrite(std::string_view bytes) = 0;
    virtual void OnFault(Fault fault) = 0;
};

// "/dev/oem_ipc1": message-oriented both ways. Each read returns one message that the modem
// sent, in order; each write of the daemon is one message. Messages stay queued while nobody
// reads. Read faults take their place in the queue, so they happen in the order injected.
class IpcNode : public StreamNode {
  public:
    // Called on the filesystem's thread; `bytes` lives until it returns.
    using UplinkHandler = std::function<void(std::string_view bytes)>;

    explicit IpcNode(UplinkHandler on_uplink) : on_uplink_(std::move(on_uplink)) {}

    void Open() override;
    void Write(fuse_req_t req, const char* data, size_t size, off_t offset) override;

    // Set before the node is mounted; null for none.
    void SetObserver(IpcObserver* observer) { observer_ = observer; }

    // Queues one message from the modem.
    void Push(std::string message);
    // The node's faults (end of file, read and write error, hang-up) fail with EIO; it ignores
    // any other.
    void InjectFault(Fault fault);

  protected:
    bool HasItemLocked() const override REQUIRES(mutex_);
    void ServeLocked(fuse_req_t req, size_t size) override REQUIRES(mutex_);
    unsigned int PollEventsLocked() const override REQUIRES(mutex_);

  private:
    // A message, or a read fault in its place.
    struct Item {
        std::optional<Fault> fault;
        std::string bytes;
    };

    UplinkHandler on_uplink_;
    IpcObserver* observer_ = nullptr;
    std::deque<Item> items_ GUARDED_BY(mutex_);
    bool hung_up_ = false;
    bool fail_next_write_ = false;
};

}  // namespace tarvo_emu
