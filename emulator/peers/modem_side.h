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

#include <android-base/thread_annotations.h>

#include "nodes/ipc_node.h"
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
    // Takes the earliest message from the daemon not taken before for which `matches` holds.
    std::optional<tarvo_message::TarvoMessage> Await(
        const EventList<tarvo_message::TarvoMessage>::Predicate& matches,
        std::chrono::milliseconds timeout);
    // Waits for such a message, taken or not, without taking it.
    bool WaitFor(const EventList<tarvo_message::TarvoMessage>::Predicate& matches,
                 std::chrono::milliseconds timeout) {
        return received_.Wait(matches, timeout);
    }
    // The first message the daemon writes from now on, if one comes within `timeout`.
    std::optional<tarvo_message::TarvoMessage> NextNew(std::chrono::milliseconds timeout);
    std::vector<tarvo_message::TarvoMessage> received() const { return received_.All(); }
    // The daemon's messages that no Await took.
    std::vector<tarvo_message::TarvoMessage> untaken() const { return received_.Untaken(); }
    const EventList<tarvo_message::TarvoMessage>& received_events() const { return received_; }

    void SetAutoReply(int payload_case, AutoReply rule);
    // Called with every message the daemon writes, before it is answered. Set before the daemon
    // starts.
    void SetObserver(std::function<void(const tarvo_message::TarvoMessage&)> observer) {
        observer_ = std::move(observer);
    }
    // The reply a rule makes to `request`, or nothing for no reply.
    static std::optional<tarvo_message::TarvoMessage> MakeReply(
        const tarvo_message::TarvoMessage& request, const AutoReply& rule);

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

// Whether `message` has every field that `partial` sets, with the same value.
bool PartiallyMatches(const tarvo_message::TarvoMessage& partial,
                      const tarvo_message::TarvoMessage& message);

}  // namespace tarvo_emu
