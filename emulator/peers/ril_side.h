#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android-base/result.h>
#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "peers/transcript.h"
#include "process/delayed_calls.h"
#include "process/event_list.h"

namespace tarvo_emu {

// One request that the daemon sent through the RIL client library.
struct RilRequest {
    uint32_t request = 0;
    // Which RIL instance the request is for, as RILC_Send got it.
    uint32_t selector = 0;
    std::string data;
};

// How the emulated RIL answers requests of one id.
struct RilReplyRule {
    static constexpr std::chrono::milliseconds kDefaultDelay{10};

    int error = 0;
    std::chrono::milliseconds delay = kDefaultDelay;
    bool no_reply = false;
    // Answers only this many requests, then the rules set before it apply again.
    std::optional<uint32_t> count;
};

// The radio's end of the emulated RIL client library: listens on a Unix socket, keeps every
// request in order for tests to await, and answers each by rule from a thread of its own.
class RilSide {
  public:
    // Rule key for every request id without a rule of its own.
    static constexpr uint32_t kAnyRequest = 0;

    explicit RilSide(Transcript* transcript);
    ~RilSide();
    RilSide(const RilSide&) = delete;
    RilSide& operator=(const RilSide&) = delete;

    // Listens at `path` (a host path) until Stop.
    android::base::Result<void> Listen(const std::string& path);
    // Disconnects every client; no answer goes out afterwards.
    void Stop();

    void SetReply(uint32_t request, RilReplyRule rule);
    // Takes the earliest request not taken before with this id (and exactly these bytes, when
    // given), waiting up to `timeout`.
    std::optional<RilRequest> Await(uint32_t request, const std::optional<std::string>& data,
                                    std::chrono::milliseconds timeout);
    std::vector<RilRequest> received() const { return received_.All(); }
    // Every request sent, for steps to await or look at.
    EventList<RilRequest>& received_events() { return received_; }

  private:
    struct Connection;

    void AcceptLoop();
    void Serve(std::shared_ptr<Connection> connection);
    // The rule for a request, counting it against a limited rule.
    RilReplyRule TakeRule(uint32_t request);
    void Deliver(const Connection& connection, uint32_t serial, uint32_t request, int error);

    Transcript* transcript_;
    EventList<RilRequest> received_;
    android::base::unique_fd listener_;
    std::thread accept_thread_;

    std::mutex mutex_;
    // By request id, in the order set; a limited rule's count goes down as it answers.
    std::vector<std::pair<uint32_t, RilReplyRule>> rules_ GUARDED_BY(mutex_);
    std::vector<std::shared_ptr<Connection>> connections_ GUARDED_BY(mutex_);
    bool stopping_ = false;
    // Last, so that no answer runs once the rest is gone.
    DelayedCalls answers_;
};

}  // namespace tarvo_emu
