// The throughput test's monitor in this process, on the emulated "/dev/oem_test": its waits on a
// silent node, which no log line marks; and the node's own paced streaming.

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include <android-base/unique_fd.h>

#include "idle_rig_test.h"
#include "log_capture.h"
#include "modem_tput_monitor.h"
#include "tarvo_test_handler.h"

namespace tarvo {

using android::base::unique_fd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

class TputNodeTest : public IdleRigTest {
  protected:
    tarvo_emu::TestNode& node() { return rig().emulator().test(); }
    std::string path() { return rig().emulator().PathOf("oem_test"); }
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
    static bool Eventually(const std::function<bool()>& done,
                           milliseconds timeout = tarvo_emu::kDefaultWait) {
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

TEST_F(TputNodeTest, SilentNodeIsReopenedAtOnceAfterTheFirstTimeout) {
    std::unique_ptr<ModemTputMonitor> monitor = ModemTputMonitor::MakeInstance(&test_handler_);
    monitor->SetChannelName(path());
    const auto start = steady_clock::now();
    ASSERT_EQ(monitor->Start(), 0);
    ASSERT_TRUE(Eventually([&] { return Opens() >= 2; }, milliseconds(20000)));
    // The first wait is the whole 10 s.
    EXPECT_GE(steady_clock::now() - start, milliseconds(9900));
    // The timeout is not reset: later waits end at once, and the 20-ms pause paces the reopens.
    // Counted from the opens seen now, which a loaded machine may see late: the first open after
    // this comes at any time, the ten after it each 20 ms or more after the one before.
    const auto reopening = steady_clock::now();
    const int opens = Opens();
    ASSERT_TRUE(Eventually([&] { return Opens() >= opens + 11; }, milliseconds(20000)));
    EXPECT_GE(steady_clock::now() - reopening, milliseconds(200));
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
    // Taken before the stream starts: the time it reads is then never shorter than the stream's.
    const auto start = steady_clock::now();
    node().StartDownlink(1000, 100000);  // 100 blocks a second
    for (int i = 0; i < 40; ++i) ASSERT_EQ(read(fd.get(), buffer.data(), buffer.size()), 1000);
    // At most 100 ms of backlog: 40 blocks take at least 0.3 s.
    EXPECT_GE(steady_clock::now() - start, milliseconds(290));

    // A block that fell due before the stop (this thread may be that late on a loaded machine)
    // stays to be read; nothing comes after it.
    node().StopDownlink();
    pollfd pfd = {.fd = fd.get(), .events = POLLIN, .revents = 0};
    uint64_t blocks = 40;
    if (poll(&pfd, 1, 0) == 1) {
        ASSERT_EQ(read(fd.get(), buffer.data(), buffer.size()), 1000);
        ++blocks;
    }
    EXPECT_EQ(poll(&pfd, 1, 200), 0);
    EXPECT_EQ(node().downlink().bytes, blocks * 1000);
}

}  // namespace

}  // namespace tarvo
