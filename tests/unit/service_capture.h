#pragma once

#include <android/log.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "log_capture.h"
#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

// In-process harness for the service handlers: the daemon's log lines and the responses it would
// have written to the modem are collected instead.

class CapturingMessageHandler : public TarvoMessageHandler {
  public:
    int SendResponse(VekMessage* response) override {
        responses.push_back(*response->GetTarvoMessage());
        return tarvo_message::RESULT_SUCCESS;
    }
    std::vector<tarvo_message::TarvoMessage> responses;
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
    CapturingMessageHandler handler_;
    TarvoServiceHandler service_{&handler_};
};
