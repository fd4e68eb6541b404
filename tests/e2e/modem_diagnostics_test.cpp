// The diagnostics requests of each start of the modem, in their order, read afresh each time.

#include <algorithm>
#include <string>
#include <vector>

#include "tarvo_e2e_fixture.h"

using tarvo_emu::LogLine;

namespace {

constexpr const char* kStatConfig = "/data/vendor/radio/modem_stat.conf";
constexpr const char* kUserspaceConfig = "/data/vendor/radio/modem_userspace_logging.conf";

class ModemDiagnosticsTest : public TarvoE2eTest {
  protected:
    // The daemon's requests so far, one line each: "5 A" for a statistics enable of module A,
    // "5 report", "6", "8 X" for a userspace-log enable of X.
    std::vector<std::string> Requests() {
        std::vector<std::string> requests;
        for (const Message& message : rig().modem().received()) {
            if (message.type() != tarvo_message::REQUEST) continue;
            std::string line = std::to_string(message.payload_case());
            if (message.modem_stat().has_enable_request()) {
                line += " " + message.modem_stat().enable_request().module();
            }
            if (message.modem_stat().has_report_request()) line += " report";
            if (message.userspace_log().has_enable_request()) {
                line += " " + message.userspace_log().enable_request().name();
            }
            requests.push_back(line);
        }
        return requests;
    }

    // Where the first line with this text stands in the log; -1 when absent.
    int IndexOf(const std::string& text) {
        const std::vector<LogLine> lines = rig().logs();
        auto it = std::find_if(lines.begin(), lines.end(),
                               [&](const LogLine& line) { return line.text == text; });
        return it == lines.end() ? -1 : static_cast<int>(it - lines.begin());
    }
};

TEST_F(ModemDiagnosticsTest, EachStartSendsStatisticsThenUserspaceLogEnables) {
    ASSERT_NO_FATAL_FAILURE(
        Start({.initial_state = 4, .files = {{kStatConfig, "A|B"}, {kUserspaceConfig, "X\nY\n"}}}));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to read any GNSS coex configuration file"));
    EXPECT_EQ(Requests(), (std::vector<std::string>{"5 A", "5 B", "8 X", "8 Y"}));
    // Each request waited for its answer before the next went out; command 4 came last.
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Got modemstat enable response successful"), 2u);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Got userspace enable response successful"), 2u);
    EXPECT_LT(IndexOf("Enabling modem userspace logging file Y"),
              IndexOf("Failed to read any GNSS coex configuration file"));

    // Nothing is kept between starts: the next one reads the files again.
    ASSERT_TRUE(rig().WriteFile(kStatConfig, "C"));
    ASSERT_TRUE(rig().WriteFile(kUserspaceConfig, "Z"));
    rig().SetModemState(0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
    rig().SetModemState(4);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to read any GNSS coex configuration file"));
    EXPECT_EQ(Requests(), (std::vector<std::string>{"5 A", "5 B", "8 X", "8 Y", "5 C", "8 Z"}));
}

}  // namespace
