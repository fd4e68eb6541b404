// The daemon core end to end: the modem state monitor, the IPC reader, the pid file and the
// clients, against the emulated modem.

#include <signal.h>
#include <sys/stat.h>

#include <string>
#include <thread>

#include <android-base/strings.h>

#include "tarvo_e2e_fixture.h"

using std::chrono::milliseconds;

namespace {

constexpr const char* kPidFile = "/data/vendor/radio/tarvo_pid";
constexpr const char* kNoModemBoard = "persist.vendor.radio.no_modem_board";
// A request with no payload: no service will ever handle it, so its log line marks the point
// where the reader has handled everything sent before it.
constexpr const char* kMarkerLine = "RequestHandler: Unsupported message id 0";

class DaemonCoreTest : public TarvoE2eTest {
  protected:
    void SendMarker() { rig().Send(Text("type: REQUEST token: 999")); }
};

TEST_F(DaemonCoreTest, MonitorReportsEveryTransitionOnce) {
    ASSERT_NO_FATAL_FAILURE(Start());
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Start modem state monitoring"));
    // While the state is unknown the monitor does not wait: the first read comes at once.
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Poll timeout. interval=0"));
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 0", milliseconds(2000)));
    // Offline, the monitor reads the state again every 3 s.
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Poll timeout. interval=3000", milliseconds(4500)));

    ASSERT_NO_FATAL_FAILURE(GoOnline());
    // Commands 1, 3 and 4, each finding nothing to do.
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Not found any config file"));
    EXPECT_TRUE(Logs(ANDROID_LOG_DEBUG, "Modem userspace logging config does not exist"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Unsupport command type 4"));
    rig().SetModemState(0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
    rig().SetModemState(4);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 0 to 4"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Not found any config file"));
    rig().SetModemState(3);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 3"));

    EXPECT_EQ(rig().CountLog(ANDROID_LOG_INFO, "Modem state changed from 0 to 4"), 2u);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "Unsupport command type 4"), 2u);
}

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

TEST_F(DaemonCoreTest, InvalidStateIsReportedOnce) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 7}));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Invalid modem state 7"));
    // Outside 0 to 4 the monitor reads again every 3 s, and finds the same 7.
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Poll timeout. interval=3000", milliseconds(4500)));
    rig().SetModemState(0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 7 to 0"));
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "Invalid modem state 7"), 1u);
}

TEST_F(DaemonCoreTest, NoModemBoardPropertyStopsTimedPolls) {
    ASSERT_NO_FATAL_FAILURE(Start({.properties = {{kNoModemBoard, "1"}}}));
    // The monitor reads the state only when the node signals a change.
    ASSERT_NO_FATAL_FAILURE(GoOnline());
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from -1 to 4"));
    rig().SetModemState(0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
    // Without the property a timed poll would end within 3 s here.
    EXPECT_FALSE(
        rig().WaitForLog(ANDROID_LOG_INFO, "Poll timeout. interval=3000", milliseconds(3500)));
    EXPECT_FALSE(rig().WaitForLog(ANDROID_LOG_INFO, "Poll timeout. interval=0", milliseconds(0)));
}

TEST_F(DaemonCoreTest, ReaderWaitsForTheModemToComeOnline) {
    ASSERT_NO_FATAL_FAILURE(Start());
    SendMarker();
    // The reader checks the state every 2 s while the modem is offline; it must not read.
    std::this_thread::sleep_for(milliseconds(2500));
    tarvo_emu::IpcNode& ipc = rig().emulator().ipc();
    EXPECT_EQ(ipc.queued(), 1u);
    EXPECT_EQ(ipc.read_count(), 0u);

    ASSERT_NO_FATAL_FAILURE(GoOnline());
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));
    EXPECT_EQ(ipc.queued(), 0u);
}

TEST_F(DaemonCoreTest, MessagesOfUnknownTypeAreDropped) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    rig().Send(Text("message_id: 7 token: 70 property { read_request { name: \"ro.a\" } }"));
    rig().Send(
        Text("type: 7 message_id: 7 token: 77 property { read_request { name: \"ro.a\" } }"));
    SendMarker();
    ASSERT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));

    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "RequestHandler: Unsupported message id 7"), 0u);
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "IndicationHandler: Unsupported message id 7"), 0u);
    for (uint32_t token : {70u, 77u}) {
        Message answer;
        answer.set_token(token);
        EXPECT_FALSE(rig().AwaitMessage(answer, milliseconds(200))) << token;
    }
}

TEST_F(DaemonCoreTest, ReaderReopensTheNodeAfterEndOfFileAndReadError) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    tarvo_emu::IpcNode& ipc = rig().emulator().ipc();

    rig().InjectFault(tarvo_emu::IpcFault::kEndOfFile);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Read channel error, size:0, errno:0"));
    SendMarker();
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));
    EXPECT_EQ(ipc.open_count(), 2u);
    // The reader pauses before it opens the node again.
    EXPECT_GE(ipc.last_open_at() - ipc.last_read_fault_at(), milliseconds(20));

    rig().InjectFault(tarvo_emu::IpcFault::kReadError);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Read channel error, size:-1, errno:5"));
    SendMarker();
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));
    EXPECT_EQ(ipc.open_count(), 3u);
}

TEST_F(DaemonCoreTest, ReaderRecoversFromHangUp) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    // A hang-up ends with the next open, so it must come after the reader's first one.
    SendMarker();
    ASSERT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));
    rig().InjectFault(tarvo_emu::IpcFault::kHangUp);
    // errno is whatever the reader thread saw last: a read of 0 bytes does not set it.
    const auto eof = [](const tarvo_emu::LogLine& line) {
        return android::base::StartsWith(line.text, "Read channel error, size:0, errno:");
    };
    EXPECT_TRUE(rig().log_events().Take(eof, kTimeout));
    SendMarker();
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, kMarkerLine));
}

TEST_F(DaemonCoreTest, PidFileHoldsTheServersPid) {
    ASSERT_NO_FATAL_FAILURE(Start());
    const std::optional<std::string> content = AwaitPidFile();
    ASSERT_TRUE(content);
    ASSERT_NE(rig().daemon_pid(), 0);
    EXPECT_EQ(*content, std::to_string(rig().daemon_pid()));
}

TEST_F(DaemonCoreTest, ClientsSignalTheServer) {
    ASSERT_NO_FATAL_FAILURE(Start({.initial_state = 4}));
    ASSERT_TRUE(AwaitPidFile());

    EXPECT_EQ(rig().RunClient({"-m"}).status, 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Send signal for modemstat request"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Force to exit"));
    // The server turns SIGUSR1 into service command 0 and SIGUSR2 into 2.
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Sending modemstat report request"));

    EXPECT_EQ(rig().RunClient({"-e"}).status, 0);
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Send signal for extendedlog request"));
    EXPECT_TRUE(Logs(ANDROID_LOG_INFO, "Sending extended log request"));
}

TEST_F(DaemonCoreTest, ClientWithoutServerFails) {
    ASSERT_NO_FATAL_FAILURE(Start({.start_daemon = false}));
    EXPECT_EQ(rig().RunClient({"-m"}).status, 255);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Unable to access pid file"));
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to get pid"));
}

TEST_F(DaemonCoreTest, ClientRefusesPidZero) {
    ASSERT_NO_FATAL_FAILURE(Start({.files = {{kPidFile, "0"}}, .start_daemon = false}));
    EXPECT_EQ(rig().RunClient({"-m"}).status, 255);
    EXPECT_TRUE(Logs(ANDROID_LOG_ERROR, "Failed to get pid"));
    EXPECT_EQ(rig().CountLog(ANDROID_LOG_ERROR, "Unable to access pid file"), 0u);
}

}  // namespace
