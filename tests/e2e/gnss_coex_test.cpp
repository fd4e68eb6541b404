// A RIL client library that lacks any one of its entry points is released and no table goes out:
// one run per entry point, which a scenario, with its one library, cannot loop over.

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
};

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
