// The modem restarts many times over the life of the daemon: each start sends every configuration
// again in full and in order, and nothing accumulates in the daemon.

#include <dirent.h>

#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "tarvo_e2e_fixture.h"

namespace {

using std::chrono::milliseconds;

struct DaemonUsage {
    size_t descriptors = 0;
    size_t threads = 0;
    long rss_kib = 0;
};

size_t Entries(const std::string& dir) {
    size_t count = 0;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return 0;
    while (dirent* entry = readdir(d)) count += entry->d_name[0] != '.';
    closedir(d);
    return count;
}

DaemonUsage UsageOf(pid_t pid) {
    const std::string proc = "/proc/" + std::to_string(pid);
    DaemonUsage usage{Entries(proc + "/fd"), Entries(proc + "/task"), 0};
    std::string status;
    android::base::ReadFileToString(proc + "/status", &status);
    for (const std::string& line : android::base::Split(status, "\n")) {
        if (android::base::StartsWith(line, "VmRSS:")) usage.rss_kib = atol(line.c_str() + 6);
    }
    return usage;
}

class RestartCyclesTest : public TarvoE2eTest {
  protected:
    // One start of the modem: the state goes away from online and back, and every configuration
    // goes out again, statistics first, then the userspace log, then the GNSS table.
    void CycleOnce(int cycle) {
        SCOPED_TRACE(cycle);
        if (cycle > 0) {
            rig().SetModemState(0);
            ASSERT_TRUE(Logs(ANDROID_LOG_INFO, "Modem state changed from 4 to 0"));
        }
        rig().SetModemState(4);
        for (const char* module : {"L1", "RRC"}) {
            Message enable;
            enable.mutable_modem_stat()->mutable_enable_request()->set_module(module);
            ASSERT_TRUE(rig().AwaitMessage(enable)) << module;
        }
        for (const char* name : {"mac", "rlc"}) {
            Message enable;
            enable.mutable_userspace_log()->mutable_enable_request()->set_name(name);
            ASSERT_TRUE(rig().AwaitMessage(enable)) << name;
        }
        ASSERT_TRUE(rig().AwaitRil(227, std::string("\x2c\x01", 2), kTimeout));
        ASSERT_TRUE(rig().AwaitRil(226, std::nullopt, kTimeout));
        ASSERT_TRUE(rig().AwaitRil(226, std::nullopt, kTimeout));
    }
};

TEST_F(RestartCyclesTest, AHundredStartsSendEverythingAgainAndLeaveNothingBehind) {
    ASSERT_NO_FATAL_FAILURE(
        Start({.files = {
                   {"/data/vendor/radio/modem_stat.conf", "L1:v=3,t=10|RRC:v=1"},
                   {"/data/vendor/radio/modem_userspace_logging.conf", "mac\nrlc\n"},
                   {"/data/vendor/radio/gnss_blanking.csv", "300\nB3,20\nB1,10\n"},
               }}));
    ASSERT_NO_FATAL_FAILURE(CycleOnce(0));
    const pid_t daemon = rig().daemon_pid();
    const DaemonUsage first = UsageOf(daemon);
    for (int cycle = 1; cycle < 100 && !HasFatalFailure(); ++cycle) CycleOnce(cycle);
    ASSERT_FALSE(HasFatalFailure());
    const DaemonUsage last = UsageOf(daemon);

    EXPECT_EQ(last.descriptors, first.descriptors);
    EXPECT_EQ(last.threads, first.threads);
#ifndef __SANITIZE_ADDRESS__
    // AddressSanitizer keeps freed memory in quarantine (up to 256 MiB) to catch uses after free,
    // so resident memory grows there whatever the daemon does; the plain build measures it.
    EXPECT_LT(last.rss_kib - first.rss_kib, 512) << first.rss_kib << " KiB, then " << last.rss_kib;
#endif

    // In order, and nothing more than a hundred of each.
    std::vector<std::string> sent;
    for (const Message& message : rig().modem().received()) {
        if (message.has_modem_stat())
            sent.push_back(message.modem_stat().enable_request().module());
        if (message.has_userspace_log()) {
            sent.push_back(message.userspace_log().enable_request().name());
        }
    }
    ASSERT_EQ(sent.size(), 400u);
    for (size_t i = 0; i < sent.size(); ++i) {
        const char* expected[] = {"L1", "RRC", "mac", "rlc"};
        ASSERT_EQ(sent[i], expected[i % 4]) << i;
    }
    EXPECT_EQ(rig().ril().received().size(), 300u);
}

TEST_F(RestartCyclesTest, ARilThatNeverAnswersHoldsOnlyTheMonitor) {
    ASSERT_NO_FATAL_FAILURE(
        Start({.files = {{"/data/vendor/radio/gnss_blanking.csv", "300\nB3,20\nB1,10\n"}}}));
    tarvo_emu::RilReplyRule silent;
    silent.no_reply = true;
    rig().SetRilReply(tarvo_emu::RilSide::kAnyRequest, silent);
    rig().SetModemState(4);
    ASSERT_TRUE(rig().AwaitRil(227, std::nullopt, kTimeout));

    // While the monitor waits out the RIL, and the modem restarts meanwhile, the reader goes on
    // serving the modem at once.
    rig().SetModemState(0);
    rig().SetModemState(4);
    for (int i = 0; i < 5; ++i) {
        std::optional<Message> answer =
            Request(Text("property { read_request { name: 'vendor.none' } }"), milliseconds(3000));
        ASSERT_TRUE(answer) << i;
    }
    // Each line is given up after its own wait and the next one still goes out.
    EXPECT_TRUE(rig().AwaitRil(226, std::nullopt, milliseconds(8000)));
}

}  // namespace
