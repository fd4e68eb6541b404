#include <unistd.h>

#include <gtest/gtest.h>

#include "service_capture.h"
#include "tarvo_service_handler.h"

using tarvo_message::ModemTemperatureMessage;
using tarvo_message::TarvoMessage;

class ModemTemperatureRequestTest : public ::testing::Test {
  protected:
    RecordingMessageHandler modem_;
    TarvoServiceHandler service_{&modem_};
    LogCapture logs_;
};

// The thermal driver's node exists only on a device and in the host sandbox, where the writes
// themselves are checked end to end.
TEST_F(ModemTemperatureRequestTest, WithoutTheDriverTheReadingsAreDroppedAndStillAnswered) {
    if (access("/sys/devices/platform/cp-tm1/cp_temp", F_OK) == 0) {
        GTEST_SKIP() << "the driver node exists here";
    }
    auto request = Received(R"(
        type: REQUEST token: 12
        modem_temperature { set_request {
            sensors { sensor: 1 temperature: 45000 update: true }
            sensors { sensor: 2 temperature: -5 update: false }
        } })");

    EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(request.get()), 0u);

    ASSERT_EQ(modem_.Responses().size(), 1u);
    const TarvoMessage& answer = modem_.Response(0);
    EXPECT_EQ(answer.type(), tarvo_message::RESPONSE);
    EXPECT_EQ(answer.message_id(), 10u);
    EXPECT_EQ(answer.token(), 12u);
    EXPECT_FALSE(answer.has_result());
    EXPECT_EQ(answer.modem_temperature().ModemTemperature_case(),
              ModemTemperatureMessage::kSetResponse);
    EXPECT_EQ(
        logs_.Lines(),
        (std::vector<LogLine>{{ANDROID_LOG_ERROR, "Failed to open modem temperature driver"}}));
}

TEST_F(ModemTemperatureRequestTest, OnlySetRequestsAreHandled) {
    const char* const unhandled[] = {
        "type: REQUEST token: 3 modem_temperature {}",
        "type: REQUEST token: 3 modem_temperature { set_response {} }",
        "type: REQUEST token: 3 property { read_request {} }",
    };
    for (const char* text : unhandled) {
        auto request = Received(text);
        EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(request.get()), 2u) << text;
    }
    VekMessage no_envelope(nullptr, 0);
    EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(&no_envelope), 2u);
    EXPECT_EQ(service_.OnReceiveModemTemperatureRequest(nullptr), 2u);
    EXPECT_EQ(modem_.Attempts(), 0u);
    EXPECT_TRUE(logs_.Lines().empty());
}
