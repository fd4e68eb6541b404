// The throughput test's pump and monitor in this process, on the emulated "/dev/oem_test", and
// the node's own streaming: the schedule, the failures and the waits without a whole test run.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>

#include "log_capture.h"
#include "modem_tput_handler.h"
#include "modem_tput_monitor.h"
#include "tarvo_e2e_fixture.h"
#include "tarvo_test_handler.h"

namespace tarvo {

using android::base::unique_fd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class TputNodeTest : public TarvoE2eTest {
  protected:
    void SetUp() override { ASSERT_NO_FATAL_FAILURE(Start({.start_daemon = false})); }

    tarvo_emu::TestNode& node() { return rig().emulator().test(); }
    std::string path() { return rig().emulator().PathOf("oem_test"); }
    std::string OpenLine() { return "Open IO channel, fd: %d channel: " + path(); }
    int Opens() {
        int opens = 0;
        for (const LogLine& line : log_.Lines()) {
            opens +=
                line.text.rfind("Open IO channel, fd: ", 0) == 0 &&
                line.text.size() > path().size() &&
                line.text.compare(line.text.size() - path().size(), path().size(), path()) == 0;
        }
        return opens;
    }

    // Checks `done` until it holds or `timeout` passes; nothing announces these changes.
    static bool Eventually(const std::function<bool()>& done, milliseconds timeout = kTimeout) {
        const auto deadline = steady_clock::now() + timeout;
        while (!done()) {
            if (steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(milliseconds(5));
        }
        return true;
    }

    LogCapture log_;
    TarvoTestHandler test_handler_{nullptr};
};

TEST_F(TputNodeTest, PumpStartsASizeOverAfterAFailureAndGivesUpAfterEleven) {
    // Attempt 20006 is the 5th block of size 3000 (after the opening write and 2 x 10000), and
    // so is 20011 once the size has started over; the nine after it fail at once.
    for (uint64_t attempt : {20006, 20011}) node().FailWrite(attempt);
    for (uint64_t attempt = 20012; attempt <= 20020; ++attempt) node().FailWrite(attempt);

    std::unique_ptr<ModemTputHandler> pump = ModemTputHandler::MakeInstance();
    pump->SetChannelName(path());
    pump->SetBuffer(std::vector<char>(ModemTputHandler::kBufferSize));
    ASSERT_EQ(pump->Start(), 0);

    const tarvo_emu::TestNode::Uplink uplink = node().uplink();
    EXPECT_EQ(uplink.failed, 11u);
    EXPECT_EQ(uplink.writes_by_size,
              (std::map<size_t, uint64_t>{{10, 1}, {1000, 10000}, {2000, 10000}, {3000, 8}}));
    EXPECT_EQ(log_.Count(ANDROID_LOG_ERROR, "Failed to write to IO channel #4"), 2);
    EXPECT_EQ(log_.Count(ANDROID_LOG_ERROR, "Failed to write to IO channel #0"), 9);
    // Opened at the start and again after every failure, the eleventh included.
    EXPECT_EQ(node().open_count(), 12u);
}

TEST_F(TputNodeTest, MonitorReportsEveryReadAndStopsWhenAsked) {
    std::unique_ptr<ModemTputMonitor> monitor = ModemTputMonitor::MakeInstance(&test_handler_);
    ASSERT_TRUE(monitor);
    EXPECT_FALSE(ModemTputMonitor::MakeInstance(nullptr));
    monitor->SetChannelName(path());
    ASSERT_EQ(monitor->Start(), 0);
    node().SetDownlink(1000, 50);
    ASSERT_TRUE(Eventually([&] { return monitor->received_bytes() == 50000; }));

    monitor->SetChannelClose();
    // The monitor sees the request between reads: one more block ends its wait.
    node().SetDownlink(1000, 1);
    ASSERT_TRUE(Eventually([&] { return monitor->finished(); }));
    EXPECT_EQ(monitor->received_bytes(), 51000u);
    EXPECT_TRUE(log_.Contains(ANDROID_LOG_INFO, "Stop tput monitoring"));

    // Every read reached the test handler's counter, which one sample takes whole.
    test_handler_.WaitForTputResponse(0);
    EXPECT_TRUE(log_.Contains(ANDROID_LOG_INFO,
                              "Modem_IPC_Test DL:Tput : 0.004080 (GBps) | byte_counter: 51000 "))
        << log_.Dump();
}

TEST_F(TputNodeTest, SilentNodeIsReopenedAtOnceAfterTheFirstTimeout) {
    std::unique_ptr<ModemTputMonitor> monitor = ModemTputMonitor::MakeInstance(&test_handler_);
    monitor->SetChannelName(path());
    const auto start = steady_clock::now();
    ASSERT_EQ(monitor->Start(), 0);
    ASSERT_TRUE(Eventually([&] { return Opens() >= 2; }, milliseconds(20000)));
    // The first wait is the whole 10 s.
    EXPECT_GE(steady_clock::now() - start, milliseconds(9900));
    // The timeout is not reset: later waits end at once, and the 20-ms pause paces the reopens.
    const auto reopening = steady_clock::now();
    ASSERT_TRUE(Eventually([&] { return Opens() >= 12; }, milliseconds(5000)));
    EXPECT_GE(steady_clock::now() - reopening, milliseconds(190));
    EXPECT_FALSE(log_.Contains(ANDROID_LOG_INFO, "Stop tput monitoring"));

    monitor->SetChannelClose();
    ASSERT_TRUE(Eventually([&] { return monitor->finished(); }));
    EXPECT_TRUE(log_.Contains(ANDROID_LOG_INFO, "Stop tput monitoring"));
}

TEST_F(TputNodeTest, DeletingAWaitingMonitorEndsItsWait) {
    std::unique_ptr<ModemTputMonitor> monitor = ModemTputMonitor::MakeInstance(&test_handler_);
    monitor->SetChannelName(path());
    ASSERT_EQ(monitor->Start(), 0);
    ASSERT_TRUE(Eventually([&] { return Opens() == 1; }));
    const auto start = steady_clock::now();
    monitor.reset();
    EXPECT_LT(steady_clock::now() - start, milliseconds(5000));
    EXPECT_TRUE(log_.Contains(ANDROID_LOG_INFO, "Stop tput monitoring"));
}

TEST_F(TputNodeTest, PacedStreamKeepsItsRateAndStops) {
    unique_fd fd(open(path().c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(fd.ok());
    std::string buffer(65568, '\0');
    node().StartDownlink(1000, 100000);  // 100 blocks a second
    const auto start = steady_clock::now();
    for (int i = 0; i < 40; ++i) ASSERT_EQ(read(fd.get(), buffer.data(), buffer.size()), 1000);
    // At most 100 ms of backlog: 40 blocks take at least 0.3 s.
    EXPECT_GE(steady_clock::now() - start, milliseconds(290));

    node().StopDownlink();
    pollfd pfd = {.fd = fd.get(), .events = POLLIN, .revents = 0};
    EXPECT_EQ(poll(&pfd, 1, 200), 0);
    EXPECT_EQ(node().downlink().bytes, 40000u);
}

}  // namespace

}  // namespace tarvo
