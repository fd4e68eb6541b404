// Modem temperature end to end: the readings reach the emulated thermal driver node one line per
// write, and the modem always gets one empty set response without a result. Without the driver
// node the modem is answered all the same: see the scenario modem_temperature_no_driver.

#include <string>
#include <vector>

#include "tarvo_e2e_fixture.h"

namespace {

class ModemTemperatureTest : public TarvoE2eTest {
  protected:
    static void ExpectEmptySetResponse(const std::optional<Message>& response) {
        ASSERT_TRUE(response) << "no response";
        EXPECT_EQ(response->message_id(), 10u);
        EXPECT_EQ(response->modem_temperature().ModemTemperature_case(),
                  tarvo_message::ModemTemperatureMessage::kSetResponse);
        // The modem is never told of a failure, so the field is left out on every path.
        EXPECT_FALSE(response->has_result());
    }
};

TEST_F(ModemTemperatureTest, EachSensorIsAWriteOfItsOwnInListOrder) {
    tarvo_emu::RigOptions options;
    options.initial_state = 4;
    ASSERT_NO_FATAL_FAILURE(Start(std::move(options)));

    ExpectEmptySetResponse(Request(Text(R"(modem_temperature { set_request {
        sensors { sensor: 1 temperature: 45000 update: true }
        sensors { sensor: 2 temperature: -5 update: false }
        sensors { sensor: 7 temperature: 0 update: true }
    } })")));
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Got modem temperature request"));
    EXPECT_TRUE(Logs(ANDROID_LOG_DEBUG, "Temp sensor 1 - Update 1 - Temperature 45000"));
    EXPECT_TRUE(Logs(ANDROID_LOG_DEBUG, "Temp sensor 2 - Update 0 - Temperature -5"));
    EXPECT_TRUE(Logs(ANDROID_LOG_DEBUG, "Temp sensor 7 - Update 1 - Temperature 0"));
    const std::vector<std::string> lines = {"1 1 45000\n", "2 0 -5\n", "7 1 0\n"};
    EXPECT_EQ(rig().emulator().temp().writes(), lines);

    // No sensors: the node is opened and closed, nothing is written, the modem is answered.
    ExpectEmptySetResponse(Request(Text("modem_temperature { set_request {} }")));
    EXPECT_EQ(rig().emulator().temp().writes(), lines);
}

}  // namespace
