// What the handlers do with what the daemon's own routing never hands them: no message, a message
// of another kind, a command that no signal or start-up sends, an enable without its module.
// No scenario can reach these paths; each refuses without an answer where nothing can be sent.

#include <gtest/gtest.h>

#include <memory>

#include "log_capture.h"
#include "modem_tput_monitor.h"
#include "tarvo_message_handler.h"
#include "tarvo_modem_stat_message.h"
#include "tarvo_service_handler.h"
#include "vek_message.h"

namespace tarvo {

using tarvo_message::TarvoMessage;

namespace {

constexpr unsigned int kInvalid = tarvo_message::RESULT_INVALID;

// A message of this payload case and type, with an empty payload.
std::unique_ptr<VekMessage> Of(TarvoMessage::PayloadCase id, tarvo_message::TarvoMessageType type) {
    auto message = std::make_unique<VekMessage>();
    message->InitialHeader(id, type);
    return message;
}

TEST(ServiceGuardsTest, NoMessageOrOneOfAnotherKindIsRefused) {
    // Never started: a response would find no channel.
    TarvoServiceHandler service(TarvoMessageHandler::GetInstance());
    for (auto handle :
         {&TarvoServiceHandler::OnReceiveRequest, &TarvoServiceHandler::OnReceiveFileMessageRequest,
          &TarvoServiceHandler::OnReceiveIndication, &TarvoServiceHandler::OnReceivePropertyRequest,
          &TarvoServiceHandler::OnReceiveModemTemperatureRequest,
          &TarvoServiceHandler::OnReceiveUecapFileReadRequest,
          &TarvoServiceHandler::OnReceiveModemStatReportIndication,
          &TarvoServiceHandler::OnReceiveExtendedLogIndication,
          &TarvoServiceHandler::OnReceiveUserspaceLogIndication}) {
        EXPECT_EQ((service.*handle)(nullptr), kInvalid);
        EXPECT_EQ((service.*handle)(Of(TarvoMessage::kProperty, tarvo_message::RESPONSE).get()),
                  kInvalid);
    }
    EXPECT_EQ(service.OnReceiveFileMessageRequest(
                  Of(TarvoMessage::kFile, tarvo_message::INDICATION).get()),
              kInvalid);
    std::unique_ptr<VekMessage> request = Of(TarvoMessage::kUecapFile, tarvo_message::REQUEST);
    request->GetTarvoMessage()->mutable_uecap_file()->mutable_read_response();
    EXPECT_EQ(service.OnReceiveUecapFileReadRequest(request.get()), kInvalid);
}

TEST(ServiceGuardsTest, OnlyTheDaemonsOwnCommandsRun) {
    LogCapture log;
    TarvoServiceHandler service(TarvoMessageHandler::GetInstance());
    EXPECT_EQ(service.SendServiceRequest(5), kInvalid);
    EXPECT_TRUE(log.Contains(ANDROID_LOG_ERROR, "Unsupport command type 5"));
}

TEST(ServiceGuardsTest, RequestsNeedTheirMessageAndModule) {
    LogCapture log;
    TarvoModemStatMessage enable(tarvo_message::REQUEST);
    EXPECT_EQ(enable.FillEnableRequest("", 1, 1), kInvalid);
    EXPECT_TRUE(log.Contains(ANDROID_LOG_ERROR, "Input module is empty"));
    EXPECT_EQ(ModemTputMonitor::MakeInstance(nullptr), nullptr);
}

}  // namespace

}  // namespace tarvo
