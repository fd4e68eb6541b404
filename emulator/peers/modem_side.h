#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <android-base/thread_annotations.h>

#include "nodes/ipc_node.h"
#include "nodes/test_node.h"
#include "peers/transcript.h"
#include "process/delayed_calls.h"
#include "process/event_list.h"
#include "proto/tarvo_message.pb.h"

namespace tarvo_emu {

// How the emulated modem answers the daemon's requests of one payload case.
struct AutoReply {
    // The default: a healthy modem answers with result 0 after 20 ms. Not sooner, because the
    // daemon registers a request only after writing it and drops a reply that beats that.
    static constexpr std::chrono::milliseconds kDefaultDelay{20};

    bool no_reply = false;
    int result = 0;
    std::chrono::milliseconds delay = kDefaultDelay;
    // Merged over the reply, for payload fields or header fields that a test wants.
    tarvo_message::TarvoMessage overrides;
};

// The modem's end of the message channel: sends messages to the daemon, keeps every message the
// daemon writes for tests to await, and answers the daemon's requests by rule.
class ModemSide {
  public:
    // Rule key that applies to every payload case without a rule of its own.
    static constexpr int kAnyPayload = 0;

    ModemSide(IpcNode* ipc, Transcript* transcript);
    ~ModemSide();

    // Ends the automatic replies; no reply reaches the IPC node afterwards.
    void Stop();

    // The IPC node's uplink handler: one message written by the daemon.
    void OnUplink(std::string_view bytes);

    void Send(const tarvo_message::TarvoMessage& message);
    // Bytes written as one message as they stand, whether they parse or not.
    void SendRaw(const std::string& bytes);
    // Takes the earliest message from the daemon not taken before that matches `partial` (every
    // field set in `partial` equal, others ignored), waiting up to `timeout`.
    std::optional<tarvo_message::TarvoMessage> Await(const tarvo_message::TarvoMessage& partial,
                                                     std::chrono::milliseconds timeout);
    std::vector<tarvo_message::TarvoMessage> received() const { return received_.All(); }
    // Every message the daemon wrote, for steps to take, await or look at.
    EventList<tarvo_message::TarvoMessage>& received_events() { return received_; }

    void SetAutoReply(int payload_case, AutoReply rule);
    // Called with every message the daemon writes, before it is answered. Set before the daemon
    // starts.
    void SetObserver(std::function<void(const tarvo_message::TarvoMessage&)> observer) {
        observer_ = std::move(observer);
    }

  private:
    void Schedule(tarvo_message::TarvoMessage reply, std::chrono::milliseconds delay);

    IpcNode* ipc_;
    Transcript* transcript_;
    EventList<tarvo_message::TarvoMessage> received_;
    std::function<void(const tarvo_message::TarvoMessage&)> observer_;

    std::mutex mutex_;
    std::map<int, AutoReply> rules_ GUARDED_BY(mutex_);
    // Last, so that no reply runs once the rest is gone.
    DelayedCalls replies_;
};

// How the emulated modem takes part in the throughput test.
struct TputSettings {
    static constexpr size_t kDefaultBlockSize = 65536;

    size_t downlink_block_size = kDefaultBlockSize;
    // 0: as fast as the daemon reads.
    uint64_t downlink_bytes_per_s = 0;
    // Answers the downlink start request but sends nothing.
    bool no_downlink = false;
    // 1-based numbers of uplink write attempts that fail with EIO.
    std::vector<uint64_t> fail_writes = {};
};

// The modem's side of the throughput test on "/dev/oem_test": streams from the downlink start
// request to the downlink end request. The uplink is counted by the node all along; the replies
// to the requests come from the auto-reply rules.
class TputModem {
  public:
    TputModem(TestNode* node, TputSettings settings);

    // Every message the daemon writes on the IPC channel.
    void OnDaemonMessage(const tarvo_message::TarvoMessage& message);

    // Whether `message` is a throughput test request with these flags.
    static bool IsTputRequest(const tarvo_message::TarvoMessage& message, bool downlink, bool stop);

  private:
    TestNode* node_;
    TputSettings settings_;
};

// Whether `message` has every field that `partial` sets, with the same value.
bool PartiallyMatches(const tarvo_message::TarvoMessage& partial,
                      const tarvo_message::TarvoMessage& message);

}  // namespace tarvo_emu
