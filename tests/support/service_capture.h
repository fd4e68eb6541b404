#pragma once

#include <android/log.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "tarvo_message_handler.h"
#include "tarvo_service_handler.h"

// In-process harness for the service handlers: the daemon's log lines and the responses it would
// have written to the modem are collected instead.

struct LogLine {
    int priority;
    std::string text;
    bool operator==(const LogLine& other) const {
        return priority == other.priority && text == other.text;
    }
};

inline std::ostream& operator<<(std::ostream& out, const LogLine& line) {
    return out << line.priority << " \"" << line.text << "\"";
}

inline LogLine Info(std::string text) { return {ANDROID_LOG_INFO, std::move(text)}; }
inline LogLine Error(std::string text) { return {ANDROID_LOG_ERROR, std::move(text)}; }

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
    void SetUp() override {
        lines_ = &captured_;
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(Capture);
    }
    void TearDown() override {
        __android_log_set_logger(__android_log_stderr_logger);
        lines_ = nullptr;
    }

    unsigned int Request(const std::string& text) {
        return service_.OnReceiveRequest(Received(text).get());
    }
    unsigned int Indication(const std::string& text) {
        return service_.OnReceiveIndication(Received(text).get());
    }

    std::vector<LogLine> LinesAt(int priority) const {
        std::vector<LogLine> lines;
        for (const LogLine& line : captured_) {
            if (line.priority == priority) lines.push_back(line);
        }
        return lines;
    }

    std::vector<LogLine> captured_;
    CapturingMessageHandler handler_;
    TarvoServiceHandler service_{&handler_};

  private:
    static void Capture(const __android_logger_data* data, const char* message) {
        if (lines_ != nullptr && std::string(data->tag) == "tarvo") {
            lines_->push_back({data->priority, message});
        }
    }
    static inline std::vector<LogLine>* lines_ = nullptr;
};
