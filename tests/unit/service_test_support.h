#pragma once

// Additions to service_capture.h: a log capture scoped to a block, and a message handler whose
// sends can be made to fail.

#include <android/log.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "service_capture.h"
#include "tarvo_message_handler.h"
#include "vek_message.h"

// Collects the process's "tarvo" log lines while in scope, every priority included.
class LogCapture {
  public:
    LogCapture() {
        std::lock_guard<std::mutex> guard(Lock());
        Active() = this;
        previous_priority_ = __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(&LogCapture::Logger);
    }
    ~LogCapture() {
        std::lock_guard<std::mutex> guard(Lock());
        __android_log_set_logger(&__android_log_stderr_logger);
        __android_log_set_minimum_priority(previous_priority_);
        Active() = nullptr;
    }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const {
        std::lock_guard<std::mutex> guard(Lock());
        return lines_;
    }

  private:
    static std::mutex& Lock() {
        static std::mutex lock;
        return lock;
    }
    static LogCapture*& Active() {
        static LogCapture* active = nullptr;
        return active;
    }
    static void Logger(const __android_logger_data* data, const char* message) {
        std::lock_guard<std::mutex> guard(Lock());
        if (Active() == nullptr || data->tag == nullptr || std::string(data->tag) != "tarvo")
            return;
        Active()->lines_.push_back({data->priority, message});
    }

    std::vector<LogLine> lines_;
    int previous_priority_ = ANDROID_LOG_DEFAULT;
};

// A message handler that keeps a copy of every response instead of writing it to the modem. From
// the send numbered fail_from (counted from 0) on, sends fail with the channel's status 7.
class RecordingMessageHandler : public TarvoMessageHandler {
  public:
    int SendResponse(VekMessage* response) override {
        if (response == nullptr || !response->IsResponse()) return tarvo_message::RESULT_INVALID;
        if (attempts_++ >= fail_from_) return tarvo_message::RESULT_IO_ERROR;
        responses_.push_back(response->Clone());
        return tarvo_message::RESULT_SUCCESS;
    }

    void FailFrom(size_t send) { fail_from_ = send; }
    size_t Attempts() const { return attempts_; }
    const std::vector<std::unique_ptr<VekMessage>>& Responses() const { return responses_; }
    const tarvo_message::TarvoMessage& Response(size_t i) const {
        return *responses_.at(i)->GetTarvoMessage();
    }

  private:
    std::vector<std::unique_ptr<VekMessage>> responses_;
    size_t attempts_ = 0;
    size_t fail_from_ = SIZE_MAX;
};
