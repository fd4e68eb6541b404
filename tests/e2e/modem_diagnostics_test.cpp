// Statistics, extended log and userspace log end to end: the order of the start-up requests, the
// signal path and the reader's independence from the requesters' waits.

#include <algorithm>
#include <string>
#include <vector>

#include "tarvo_e2e_fixture.h"

using std::chrono::milliseconds;
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
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Unsupport command type 4"));
    EXPECT_EQ(Requests(), (std::vector<std::string>{"5 A", "5 B", "8 X", "8 Y"}));
    // Each request waited for its answer before the next went out; command 4 came last.
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Got modemstat enable response successful"), 2u);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Got userspace enable response successful"), 2u);
    EXPECT_LT(IndexOf("Enabling modem userspace logging file Y"),
              IndexOf("Unsupport command type 4"));

    // Nothing is kept between starts: the next one reads the files again.
    ASSERT_TRUE(rig().WriteFile(kStatConfig, "C"));
    ASSERT_TRUE(rig().WriteFile(kUserspaceConfig, "Z"));
    rig().SetModemState(0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
    rig().SetModemState(4);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Unsupport command type 4"));
    EXPECT_EQ(Requests(), (std::vector<std::string>{"5 A", "5 B", "8 X", "8 Y", "5 C", "8 Z"}));
}

TEST_F(ModemDiagnosticsTest, SignalsInQuickSuccessionAreHandledOneAfterTheOther) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    ASSERT_TRUE(AwaitPidFile());
    // The report's answer takes long enough for SIGUSR2 to arrive while SIGUSR1's handler waits.
    tarvo_emu::AutoReply slow;
    slow.delay = milliseconds(500);
    rig().SetAutoReply(tarvo_message::TarvoMessage::kModemStat, slow);

    EXPECT_EQ(rig().RunClient({"-m", "-e"}).status, 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Got extended log response successful"));
    EXPECT_EQ(Requests(), (std::vector<std::string>{"5 report", "6"}));
    const int report_answered = IndexOf("Got modemstat report response successful");
    ASSERT_GE(report_answered, 0);
    EXPECT_LT(report_answered, IndexOf("Sending extended log request"));
}

TEST_F(ModemDiagnosticsTest, ReaderServesTheModemWhileAStatisticsRequestWaits) {
    ASSERT_NO_FATAL_FAILURE(
        Start({.initial_state = 4, .files = {{kStatConfig, "A"}}, .start_daemon = false}));
    tarvo_emu::AutoReply silent;
    silent.no_reply = true;
    rig().SetAutoReply(tarvo_message::TarvoMessage::kModemStat, silent);
    ASSERT_RESULT_OK(rig().StartDaemon());
    ASSERT_TRUE(rig().AwaitMessage(Text("type: REQUEST modem_stat { enable_request {} }")));

    // The monitor thread now waits up to 3 s; a property read is answered meanwhile.
    const std::optional<Message> response =
        Request(Text("message_id: 7 property { read_request { name: 'ro.x' } }"));
    ASSERT_TRUE(response);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "Failed to send request, status:5"), 0u);
}

}  // namespace
