#include "ril_request_helper.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

namespace tarvo {

namespace {

constexpr std::chrono::seconds kAttemptWait{5};
constexpr int kRetryStepSeconds = 5;

// The owner of the process-wide helper, and the helper as the library's callback thread sees it.
std::unique_ptr<RilRequestHelper> owner;
std::atomic<RilRequestHelper*> instance{nullptr};

void Sleep(std::chrono::seconds pause) { std::this_thread::sleep_for(pause); }

}  // namespace

RilRequestHelper* RilRequestHelper::GetInstance() {
    if (RilRequestHelper* helper = instance.load()) return helper;
    return GetInstance(RilClientHelper::GetInstance(), Sleep);
}

RilRequestHelper* RilRequestHelper::GetInstance(RilClientHelper* client, Pause pause) {
    if (RilRequestHelper* helper = instance.load()) return helper;
    std::unique_ptr<RilRequestHelper> helper(new RilRequestHelper(client, std::move(pause)));
    if (client == nullptr) return nullptr;
    helper->handle_ = client->Open();
    if (helper->handle_ == nullptr) return nullptr;
    owner = std::move(helper);
    instance = owner.get();
    return owner.get();
}

void RilRequestHelper::DestroyInstance() {
    instance = nullptr;
    owner.reset();
}

RilRequestHelper::RilRequestHelper(RilClientHelper* client, Pause pause)
    : client_(client), pause_(std::move(pause)) {}

int RilRequestHelper::Send(unsigned int request, void* data, unsigned long length,
                           int timeoutSeconds) {
    std::lock_guard<std::mutex> serialised(send_lock_);
    if (timeoutSeconds < 0) return kInvalidArguments;

    int remaining = timeoutSeconds;
    while (true) {
        const int result = Attempt(request, data, length);
        if (result != kRadioNotAvailable) return result;
        if (timeoutSeconds != 0 && remaining <= kRetryStepSeconds) return result;
        remaining -= kRetryStepSeconds;
        // Without a budget the pause is always the full step.
        const int pause =
            timeoutSeconds == 0 ? kRetryStepSeconds : std::min(remaining, kRetryStepSeconds);
        pause_(std::chrono::seconds(pause));
    }
}

int RilRequestHelper::Attempt(unsigned int request, void* data, unsigned long length) {
    {
        std::lock_guard<std::mutex> state(state_lock_);
        response_received_ = false;
        response_result_ = kSuccess;
    }
    // Not under the state lock, so that a library answering on the calling thread cannot
    // deadlock; an answer that comes before the wait starts is found by the wait's first test.
    client_->Send(handle_, request, data, length, &RilRequestHelper::Response);
    const auto deadline = std::chrono::steady_clock::now() + kAttemptWait;

    std::unique_lock<std::mutex> state(state_lock_);
    if (!response_signal_.wait_until(state, deadline, [this] { return response_received_; })) {
        response_result_ = kNoAnswer;
    }
    return response_result_;
}

void RilRequestHelper::Response(unsigned int /*request*/, int error, void* /*data*/,
                                unsigned long /*length*/, unsigned int /*selector*/) {
    RilRequestHelper* helper = instance.load();
    if (helper != nullptr) helper->OnResponse(error);
}

void RilRequestHelper::OnResponse(int error) {
    {
        std::lock_guard<std::mutex> state(state_lock_);
        response_result_ = error;
        response_received_ = true;
    }
    response_signal_.notify_one();
}

}  // namespace tarvo
