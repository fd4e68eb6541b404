#pragma once

// Addition to service_capture.h: a message handler whose sends can be made to fail.

#include <android/log.h>

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "service_capture.h"
#include "tarvo_message_handler.h"
#include "vek_message.h"

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
