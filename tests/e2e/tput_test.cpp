// The IPC throughput test end to end: `tarvo -t` against the emulated modem, whose
// "/dev/oem_test" streams on the downlink start request and counts the uplink writes.

#include <regex>
#include <string>
#include <vector>

#include <android-base/stringprintf.h>

#include "tarvo_e2e_fixture.h"

using android::base::StringPrintf;
using std::chrono::milliseconds;
using tarvo_emu::TputModem;

namespace {

constexpr milliseconds kDownlinkTimeout{20000};
constexpr const char* kTestNode = "/dev/oem_test";

class TputTest : public TarvoE2eTest {
  protected:
    // The daemon with the modem online from the start.
    void StartOnline(tarvo_emu::RigOptions options = {}) {
        options.initial_state = 4;
        ASSERT_NO_FATAL_FAILURE(Start(std::move(options)));
        ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 4"));
    }

    // Takes the daemon's next throughput request with these flags and checks that all five
    // fields are on the wire.
    ::testing::AssertionResult Requested(bool downlink, bool stop, int param_a, int param_b,
                                         int param_c, milliseconds timeout = kTimeout) {
        const std::optional<Message> message = rig().AwaitMessage(
            Text(StringPrintf("type: REQUEST message_id: 11 modem_test { tput_request { "
                              "downlink: %s stop: %s param_a: %d param_b: %d param_c: %d } }",
                              downlink ? "true" : "false", stop ? "true" : "false", param_a,
                              param_b, param_c)),
            timeout);
        if (!message) {
            return ::testing::AssertionFailure()
                   << "no request downlink " << downlink << " stop " << stop;
        }
        const tarvo_message::ModemTestTputRequest& request = message->modem_test().tput_request();
        if (!request.has_downlink() || !request.has_stop() || !request.has_param_a() ||
            !request.has_param_b() || !request.has_param_c()) {
            return ::testing::AssertionFailure() << "a field is missing";
        }
        return ::testing::AssertionSuccess();
    }

    // The flags of the throughput requests so far, in order: "DL start", "UL end", ...
    std::vector<std::string> RequestOrder() {
        std::vector<std::string> order;
        for (const Message& message : rig().modem().received()) {
            if (!message.modem_test().has_tput_request()) continue;
            const auto& request = message.modem_test().tput_request();
            order.push_back(std::string(request.downlink() ? "DL" : "UL") +
                            (request.stop() ? " end" : " start"));
        }
        return order;
    }

    std::vector<std::string> LinesStartingWith(const std::string& prefix) {
        std::vector<std::string> lines;
        for (const tarvo_emu::LogLine& line : rig().logs()) {
            if (line.text.rfind(prefix, 0) == 0) lines.push_back(line.text);
        }
        return lines;
    }
};

TEST_F(TputTest, FullRunSamplesTheDownlinkAndPumpsTheWholeSchedule) {
    ASSERT_NO_FATAL_FAILURE(StartOnline());
    EXPECT_EQ(rig().RunClient({"-t"}).status, 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Send signal for tput test"));

    ASSERT_TRUE(Requested(true, false, 60000, 3000, 200));
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Sending modem test request"));
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Got modem test response successful"));
    ASSERT_TRUE(Requested(true, true, 0, 0, 0, kDownlinkTimeout));
    // The sampler ends with its current second; an instrumented daemon on a busy machine can
    // take a good deal longer than that.
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Stop tput monitoring", kDownlinkTimeout));
    ASSERT_TRUE(Requested(false, false, 0, 0, 0));

    tarvo_emu::TestNode& node = rig().emulator().test();
    const auto whole_schedule = [](const tarvo_emu::TestNode::Uplink& uplink) {
        return uplink.writes == 200001;
    };
    ASSERT_TRUE(node.WaitForUplink(whole_schedule, std::chrono::minutes(3)));
    const tarvo_emu::TestNode::Uplink uplink = node.uplink();
    EXPECT_EQ(uplink.bytes, 2100000010u);
    EXPECT_EQ(uplink.failed, 0u);
    EXPECT_EQ(uplink.writes_by_size.at(10), 1u);
    for (size_t size = 1000; size <= 20000; size += 1000) {
        EXPECT_EQ(uplink.writes_by_size.at(size), 10000u) << size;
    }
    ASSERT_TRUE(Requested(false, true, 0, 0, 0));
    // The daemon pauses 2 s after the pump's last write before it ends the uplink test.
    EXPECT_GE(tarvo_emu::TestNode::Clock::now() - uplink.span_by_size.at(20000).last,
              milliseconds(1900));
    EXPECT_EQ(RequestOrder(),
              (std::vector<std::string>{"DL start", "DL end", "UL start", "UL end"}));

    // Each sample's figure is its bytes in gigabits per second over 100 ms; the first is
    // counted but left out of the total.
    const std::regex sample_line(
        R"(Modem_IPC_Test DL:Tput : (\d+\.\d{6}) \(GBps\) \| byte_counter: (-?\d+) )");
    const std::vector<std::string> samples = LinesStartingWith("Modem_IPC_Test DL:Tput");
    ASSERT_FALSE(samples.empty());
    uint32_t total = 0;
    for (size_t i = 0; i < samples.size(); ++i) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(samples[i], match, sample_line)) << samples[i];
        // Printed as a signed number: the first sample, which holds everything read before
        // sampling began, can pass 2 GiB.
        const uint32_t bytes = static_cast<uint32_t>(std::stol(match[2]));
        EXPECT_EQ(match[1], StringPrintf("%f", bytes * 8.0 / 1000 / 1000 / 1000 * 10));
        if (i > 0) total += bytes;
    }
    const std::vector<std::string> results = LinesStartingWith("Modem_IPC_Test DL Results:");
    ASSERT_EQ(results.size(), 1u);
    const std::regex result_line(
        R"(Modem_IPC_Test DL Results: Average Tput: \d+\.\d\d Gbps, Max Tput: \d+\.\d\d Gbps, )"
        R"(Total byte cnt: (-?\d+), Trasmission cnt:(\d+))");
    std::smatch match;
    ASSERT_TRUE(std::regex_match(results[0], match, result_line)) << results[0];
    EXPECT_EQ(std::stol(match[1]), static_cast<int32_t>(total));
    EXPECT_EQ(std::stoul(match[2]), samples.size());
    // Only the start of the modem's GNSS configuration, which finds no table, may fail.
    EXPECT_EQ(LinesStartingWith("Failed"),
              std::vector<std::string>{"Failed to read any GNSS coex configuration file"});
    EXPECT_EQ(LinesStartingWith("Modem Failed").size(), 0u);
}

TEST_F(TputTest, OfflineModemFailsBothRunsAndTheDaemonGoesOn) {
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_EQ(rig().RunClient({"-t"}).status, 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Modem is not online"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Modem Failed to initiate DL(CP2AP) Tput transimision"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to run DL tput test"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Modem is not online"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Modem Failed to initiate UL(AP2CP) Tput transimision"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to run UL tput test"));
    EXPECT_TRUE(RequestOrder().empty());

    ASSERT_NO_FATAL_FAILURE(GoOnline());
    EXPECT_TRUE(Request(Text(R"(message_id: 7 property { read_request { name: "ro.x" } })")));
}

TEST_F(TputTest, MissingNodeAndASecondRequestThatWaitsForTheFirst) {
    ASSERT_NO_FATAL_FAILURE(StartOnline({.remove = {kTestNode}}));
    EXPECT_EQ(rig().RunClient({"-t"}).status, 0);
    EXPECT_EQ(rig().RunClient({"-t"}).status, 0);

    for (int run = 0; run < 2; ++run) {
        ASSERT_TRUE(Requested(true, false, 60000, 3000, 200));
        EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to open IO channel"));
        EXPECT_TRUE(Logs(ANDROID_LOG_INFO,
                         "Modem_IPC_Test DL Results: Average Tput: -nan Gbps, Max Tput: 0.00 "
                         "Gbps, Total byte cnt: 0, Trasmission cnt:0",
                         kDownlinkTimeout));
        EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to open IO channel"));
        ASSERT_TRUE(Requested(false, true, 0, 0, 0, kTimeout + milliseconds(5000)));
    }
    // The second signal waited for the first test to end.
    EXPECT_EQ(RequestOrder(),
              (std::vector<std::string>{"DL start", "DL end", "UL start", "UL end", "DL start",
                                        "DL end", "UL start", "UL end"}));
}

}  // namespace
