// The daemon core where a scenario cannot show it: how often the threads look at the boot node.

#include <thread>

#include "tarvo_e2e_fixture.h"

using std::chrono::milliseconds;

namespace {

// A request with no payload: no service will ever handle it, so its log line marks the point
// where the reader has handled everything sent before it.
constexpr const char* kMarkerLine = "RequestHandler: Unsupported message id 0";

class DaemonCoreTest : public TarvoE2eTest {
  protected:
    void SendMarker() { rig().modem().Send(Text("type: REQUEST token: 999")); }
};

TEST_F(DaemonCoreTest, SteadyOnlineStateWakesNobody) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    // Both threads have read the state once: the monitor reported it, the reader took a message.
    ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 4"));
    SendMarker();
    ASSERT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));

    tarvo_emu::BootNode& boot = rig().emulator().boot();
    const uint64_t polls = boot.poll_count() + boot.ioctl_count();
    std::this_thread::sleep_for(milliseconds(1000));
    // The reader's status check after the marker may still be on its way; a busy loop would
    // show hundreds.
    EXPECT_LE(boot.poll_count() + boot.ioctl_count(), polls + 2);
}

}  // namespace
