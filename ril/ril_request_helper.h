#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include "ril_client_helper.h"

namespace tarvo {

// One blocking call over the RIL client library's request-and-callback style: Send waits up to
// 5 seconds for the library's answer and tries again, within a budget of seconds, while the
// radio is not available. One request is outstanding at a time.
class RilRequestHelper {
  public:
    // Error codes of Send, numbered as the RIL's own.
    static constexpr int kSuccess = 0;
    static constexpr int kRadioNotAvailable = 1;
    static constexpr int kInvalidArguments = 44;
    static constexpr int kNoAnswer = 66;

    // The pause between two attempts.
    using Pause = std::function<void(std::chrono::seconds)>;

    // The process-wide helper with an open client handle; null, and tried again on the next
    // call, when no handle could be opened.
    static RilRequestHelper* GetInstance();
    // The same over a client and a pause of the caller's choosing (tests); GetInstance() takes
    // the library's client and sleeps.
    static RilRequestHelper* GetInstance(RilClientHelper* client, Pause pause);
    // Drops the process-wide helper, so that the next GetInstance() starts from the beginning.
    static void DestroyInstance();

    RilRequestHelper(const RilRequestHelper&) = delete;
    RilRequestHelper& operator=(const RilRequestHelper&) = delete;
    virtual ~RilRequestHelper() = default;

    // Sends one request and waits for its answer: the RIL's error code, kInvalidArguments for a
    // negative budget, kNoAnswer when an attempt went unanswered. Only kRadioNotAvailable is
    // tried again, 5 s later, while the budget in seconds lasts; a budget of 0 has no end.
    int Send(unsigned int request, void* data, unsigned long length, int timeoutSeconds);

    // The library's response callback.
    static void Response(unsigned int request, int error, void* data, unsigned long length,
                         unsigned int selector);

  private:
    RilRequestHelper(RilClientHelper* client, Pause pause);

    // One attempt: the RIL's code, or kNoAnswer after 5 seconds without an answer.
    int Attempt(unsigned int request, void* data, unsigned long length);
    void OnResponse(int error);

    RilClientHelper* const client_;
    void* handle_ = nullptr;
    bool response_received_ = false;
    int response_result_ = 0;
    std::mutex send_lock_;
    std::mutex state_lock_;
    std::condition_variable response_signal_;
    const Pause pause_;
};

}  // namespace tarvo
