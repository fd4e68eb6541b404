// The GNSS coex table's way to the RIL: in file order, and not at all when the RIL client
// library cannot be used (absent, or lacking an entry point). Scenarios show more of the table.

#include <string>

#include "tarvo_e2e_fixture.h"

namespace {

constexpr const char* kRilTag = "libvekril-client";
constexpr const char* kNoConnection = "Failed to connect to RIL to send GNSS coex configuration";

class GnssCoexTest : public TarvoE2eTest {
  protected:
    // Takes the RIL client's next line with this priority and text (after its class name).
    ::testing::AssertionResult RadioLogs(int priority, const std::string& text) {
        if (rig().AwaitLog(priority, "RilClientHelperDLImpl::" + text, kTimeout, kRilTag)) {
            return ::testing::AssertionSuccess();
        }
        return ::testing::AssertionFailure() << "no RIL client line \"" << text << "\"";
    }

    size_t RadioCount(int priority, const std::string& text) {
        return rig().CountLog(priority, "RilClientHelperDLImpl::" + text, kRilTag);
    }

    // The modem goes offline and comes back.
    void Restart() {
        rig().SetModemState(0);
        ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
        rig().SetModemState(4);
        ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 0 to 4"));
    }
};

TEST_F(GnssCoexTest, TheTableGoesOutInFileOrder) {
    ASSERT_NO_FATAL_FAILURE(Start({.files = {{"/data/vendor/radio/gnss_blanking.csv",
                                              "9\nn41,3\nB1\n900,1\nB66,2,N5,4\n"}}}));
    ASSERT_NO_FATAL_FAILURE(GoOnline());
    ASSERT_TRUE(rig().AwaitRil(226, std::string("\x05\x01\x42\x00\x02\x00\x05\x00\x04\x00", 10)));
    const std::vector<std::pair<uint32_t, std::string>> expected = {
        {227, std::string("\x09\x00", 2)},
        {226, std::string("\x03\x01\x29\x00\x03\x00\x00\x00\x00\x00", 10)},
        {226, std::string("\x00\x01\x03\x00\x01\x00\x00\x00\x00\x00", 10)},
        {226, std::string("\x05\x01\x42\x00\x02\x00\x05\x00\x04\x00", 10)},
    };
    std::vector<std::pair<uint32_t, std::string>> sent;
    for (const tarvo_emu::RilRequest& request : rig().ril().received()) {
        sent.emplace_back(request.request, request.data);
    }
    EXPECT_EQ(sent, expected);
}

TEST_F(GnssCoexTest, WithoutTheLibraryEveryStartFailsToConnect) {
    ASSERT_NO_FATAL_FAILURE(Start({.files = {{"/vendor/etc/modem/gnss_blanking.csv", "1\nB3,20\n"}},
                                   .ril = {.absent = true}}));
    ASSERT_NO_FATAL_FAILURE(GoOnline());
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Configuring GNSS coex"));
    EXPECT_TRUE(RadioLogs(ANDROID_LOG_ERROR, "Init error: dlopen failure"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kNoConnection));

    ASSERT_NO_FATAL_FAILURE(Restart());
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Configuring GNSS coex"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kNoConnection));
    // The library is looked for once; each start tries to open a client again.
    EXPECT_EQ(RadioCount(ANDROID_LOG_ERROR, "Init error: dlopen failure"), 1u);
    EXPECT_EQ(RadioCount(ANDROID_LOG_INFO, "Open"), 2u);
    EXPECT_TRUE(rig().ril().received().empty());
}

TEST_F(GnssCoexTest, ALibraryWithoutAnEntryPointIsReleased) {
    for (const char* symbol :
         {"RILC_Open", "RILC_OpenV2", "RILC_Close", "RILC_Reconnect",
          "RILC_RegisterUnsolicitedHandler", "RILC_Send", "RILC_SetIndicationFilter"}) {
        SCOPED_TRACE(symbol);
        ASSERT_NO_FATAL_FAILURE(
            Start({.files = {{"/vendor/etc/modem/gnss_blanking.csv", "1\nB3,20\n"}},
                   .ril = {.omit_symbol = symbol}}));
        ASSERT_NO_FATAL_FAILURE(GoOnline());
        EXPECT_TRUE(RadioLogs(ANDROID_LOG_INFO, "Init"));
        EXPECT_TRUE(
            RadioLogs(ANDROID_LOG_ERROR, std::string("Init error: dlsym failure(") + symbol + ")"));
        EXPECT_TRUE(RadioLogs(ANDROID_LOG_INFO, "Release"));
        EXPECT_TRUE(RadioLogs(ANDROID_LOG_INFO, "Open"));
        EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kNoConnection));
        // Resolving stops at the first missing entry point.
        EXPECT_EQ(rig().log_events().Count([](const tarvo_emu::LogLine& line) {
            return line.text.find("dlsym failure") != std::string::npos;
        }),
                  1u);
        EXPECT_TRUE(rig().ril().received().empty());
        TearDown();
    }
}

}  // namespace
