#pragma once

#include <android/log.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

namespace tarvo {

// In-process harness for the service handlers: the daemon's log lines and the responses it would
// have written to the modem are collected instead.

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
    void Clear() {
        responses_.clear();
        attempts_ = 0;
    }
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

// The message as it arrives from the modem: serialised, then parsed by the daemon.
inline std::unique_ptr<VekMessage> Received(const tarvo_message::TarvoMessage& envelope) {
    const std::string bytes = envelope.SerializeAsString();
    return std::make_unique<VekMessage>(bytes.data(), static_cast<int>(bytes.size()));
}

inline std::unique_ptr<VekMessage> Received(const std::string& text) {
    tarvo_message::TarvoMessage envelope;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &envelope)) << text;
    return Received(envelope);
}

class ServiceHandlerTest : public testing::Test {
  protected:
    unsigned int Request(const std::string& text) {
        return service_.OnReceiveRequest(Received(text).get());
    }
    unsigned int Indication(const std::string& text) {
        return service_.OnReceiveIndication(Received(text).get());
    }

    std::vector<LogLine> LinesAt(int priority) const { return log_.LinesAt(priority); }

    LogCapture log_;
    RecordingMessageHandler handler_;
    TarvoServiceHandler service_{&handler_};
};

}  // namespace tarvo
