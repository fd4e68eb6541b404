// The rig itself where scenarios lean on it without showing it: the IPC and boot nodes as a
// process sees them, the scenario player's verdicts, the command's options and the teardown.

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <regex>
#include <sstream>
#include <string>

#include <android/log.h>
#include <google/protobuf/text_format.h>

#include <android-base/file.h>
#include <android-base/result.h>
#include <android-base/unique_fd.h>

#include "idle_rig_test.h"
#include "process/child_process.h"
#include "process/wait_until.h"
#include "proto/tarvo_message.pb.h"
#include "scenario/scenario_loader.h"
#include "scenario/scenario_player.h"
#include "soak/soak_shrinker.h"

using android::base::unique_fd;
using std::chrono::milliseconds;

namespace {

using Message = tarvo_message::TarvoMessage;

// A message in protobuf text format; fails the test when it does not parse.
Message Text(const std::string& text) {
    Message message;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &message)) << text;
    return message;
}

class EmulatorTest : public IdleRigTest {
  protected:
    unique_fd OpenNode(const char* name, int flags = O_RDWR) {
        return unique_fd(open(rig().emulator().PathOf(name).c_str(), flags | O_CLOEXEC));
    }

    static short PollNow(int fd) {
        pollfd pfd = {.fd = fd, .events = POLLIN | POLLHUP | POLLRDNORM, .revents = 0};
        return poll(&pfd, 1, 0) == 1 ? pfd.revents : 0;
    }
};

TEST_F(EmulatorTest, IpcNodeCarriesOneMessagePerReadAndWrite) {
    unique_fd fd = OpenNode("oem_ipc1");
    ASSERT_TRUE(fd.ok());
    EXPECT_EQ(PollNow(fd.get()), 0);

    Message small = Text("type: REQUEST token: 1");
    Message large = Text("type: REQUEST token: 2");
    large.mutable_file()->mutable_write_request()->set_data(std::string(65000, 'x'));
    rig().modem().Send(small);
    rig().modem().Send(large);
    EXPECT_TRUE(PollNow(fd.get()) & POLLIN);

    std::string buffer(65568, '\0');
    ASSERT_EQ(read(fd.get(), buffer.data(), buffer.size()), small.ByteSizeLong());
    EXPECT_EQ(buffer.substr(0, small.ByteSizeLong()), small.SerializeAsString());
    ASSERT_EQ(read(fd.get(), buffer.data(), buffer.size()), large.ByteSizeLong());
    EXPECT_EQ(PollNow(fd.get()), 0);

    // A largest message written at once arrives as one message.
    Message uplink = Text("type: RESPONSE token: 3");
    uplink.mutable_file()->mutable_read_response()->set_data(std::string(65552, 'y'));
    const std::string bytes = uplink.SerializeAsString();
    ASSERT_EQ(bytes.size(), 65568u);
    ASSERT_EQ(write(fd.get(), bytes.data(), bytes.size()), 65568);
    EXPECT_TRUE(rig().modem().Await(Text("token: 3"), milliseconds(1000)));
}

TEST_F(EmulatorTest, BootNodeReportsStateAndWakesPollOncePerChange) {
    unique_fd fd = OpenNode("umts_boot0");
    EXPECT_EQ(ioctl(fd.get(), 0x6F27), 0);
    EXPECT_EQ(PollNow(fd.get()), 0);

    auto waiter = std::async(std::launch::async, [&fd] {
        pollfd pfd = {.fd = fd.get(), .events = POLLIN | POLLHUP | POLLRDNORM, .revents = 0};
        return poll(&pfd, 1, 5000) == 1 ? pfd.revents : 0;
    });
    EXPECT_EQ(waiter.wait_for(milliseconds(100)), std::future_status::timeout);
    rig().SetModemState(4);
    EXPECT_TRUE(waiter.get() & POLLIN);
    EXPECT_EQ(ioctl(fd.get(), 0x6F27), 4);
    // The change was reported once; a steady state wakes nobody.
    EXPECT_EQ(PollNow(fd.get()), 0);
    rig().SetModemState(4);
    EXPECT_EQ(PollNow(fd.get()), 0);
    EXPECT_EQ(ioctl(fd.get(), 0x1234), -1);
}

tarvo_scenario::Scenario ParseScenario(const std::string& text) {
    tarvo_scenario::Scenario scenario;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &scenario)) << text;
    return scenario;
}

TEST(ScenarioPlayerTest, NamesTheStepThatFailedAndWhatCameNearest) {
    const auto scenario = ParseScenario(R"(
        step { expect_log { priority: INFO text: "IO handler started" } }
        step { expect_log { priority: ERROR text: "Start modem state monitorin" timeout_ms: 300 } }
    )");
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario);
    ASSERT_FALSE(played.ok());
    const std::string failure = played.error().message();
    EXPECT_EQ(failure.rfind("step 1 (expect_log { priority: ERROR text: \"Start modem state "
                            "monitorin\" timeout_ms: 300 }) failed: no such log line within "
                            "300 ms; nearest of the ",
                            0),
              0u)
        << failure;
    EXPECT_NE(failure.find("that no step took:\n  I tarvo: Start modem state monitoring\n    "
                           "priority INFO, not ERROR; text differs from byte 27"),
              std::string::npos)
        << failure;
}

TEST(ScenarioPlayerTest, NamesAMessageOfTheDaemonsThatNoStepTook) {
    // The first check holds; before the second, the answer to token 3 was not taken, though it
    // came before the one to token 4 that was.
    const auto scenario = ParseScenario(R"(
        initial_state: 4
        step { send { type: REQUEST token: 2 property { read_request { name: "ro.none" } } } }
        step { expect { message { token: 2 } } }
        step { expect_all_taken: true }
        step { send { type: REQUEST token: 3 property { read_request { name: "ro.none" } } } }
        step { send { type: REQUEST token: 4 property { read_request { name: "ro.none" } } } }
        step { expect { message { token: 4 } } }
        step { expect_all_taken: true }
    )");
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario);
    ASSERT_FALSE(played.ok());
    const std::string failure = played.error().message();
    EXPECT_EQ(failure.rfind("step 6 (expect_all_taken: true) failed: the daemon sent a RESPONSE "
                            "PropertyReadResponse that no step took: { type: RESPONSE",
                            0),
              0u)
        << failure;
    EXPECT_NE(failure.find("token: 3 "), std::string::npos) << failure;
}

// The soak and the shrinker tell divergences apart by the failure's parts, not its text.
TEST(ScenarioPlayerTest, HandsAFailureOverInItsParts) {
    tarvo_emu::ScenarioOrigin origin;
    const android::base::Result<tarvo_scenario::Scenario> scenario = tarvo_emu::ParseScenario(
        "step { note: \"first\" }\n"
        "step { repeat { times: 2 step { sleep_ms: 1 }\n"
        "                step { expect_log { text: \"never\" timeout_ms: 10 } } } }\n",
        "held.textproto", &origin);
    ASSERT_RESULT_OK(scenario);
    tarvo_emu::ScenarioSession session(*scenario, nullptr, &origin);
    ASSERT_RESULT_OK(session.Start());
    ASSERT_TRUE(session.Play(scenario->step(0), 0).ok());
    const tarvo_emu::StepResult played = session.Play(scenario->step(1), 1);
    ASSERT_FALSE(played.ok());
    const tarvo_emu::StepFailure& failure = played.error();
    EXPECT_EQ(failure.file, "held.textproto");
    EXPECT_EQ(failure.line, 3);
    EXPECT_EQ(failure.name, "step 1, round 1, step 1");
    EXPECT_EQ(failure.text, "expect_log { text: \"never\" timeout_ms: 10 }");
    EXPECT_FALSE(failure.cancelled);
    EXPECT_EQ(failure.reason.rfind("no such log line within 10 ms", 0), 0u) << failure.reason;
    EXPECT_EQ(failure.health, "");
    EXPECT_EQ(failure.message(),
              "held.textproto:3: step 1, round 1, step 1 (expect_log { text: "
              "\"never\" timeout_ms: 10 }) failed: " +
                  failure.reason);

    const tarvo_scenario::Step& step = scenario->step(1).repeat().step(1);
    tarvo_emu::StepFailure later = failure;
    later.reason = "no such log line within 3000 ms";
    EXPECT_EQ(tarvo_emu::SoakSignature(step, later),
              tarvo_emu::SoakSignature(step, {.reason = "no such log line within 10 ms"}));
    EXPECT_NE(tarvo_emu::SoakSignature(step, later),
              tarvo_emu::SoakSignature(step, {.reason = "2 such log lines, not 1"}));
    EXPECT_NE(tarvo_emu::SoakSignature(step, later),
              tarvo_emu::SoakSignature(step, {.cancelled = true}));
}

TEST(ScenarioPlayerTest, SaysWhenEachStepWasMetWhatALongWaitIsForAndSumsUp) {
    const auto scenario = ParseScenario(R"(
        step { expect_log { priority: INFO text: "IO handler started" } }
        step { note: "only a note" }
        step { expect_silence_ms: 1300 }
        step { expect_log { text: "never printed" timeout_ms: 100 } }
        step { sleep_ms: 1 }
    )");
    std::ostringstream out;
    tarvo_emu::PlaySummary summary;
    tarvo_emu::PlayOptions options;
    options.transcript = &out;
    options.summary = &summary;
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario, options);
    ASSERT_FALSE(played.ok());
    const std::string transcript = out.str();
    // Each verdict follows what met the step, and gives the time the step took.
    const size_t started = transcript.find("I tarvo: IO handler started\n");
    const size_t met = transcript.find("ok step 0 (");
    ASSERT_NE(met, std::string::npos) << transcript;
    EXPECT_LT(started, met) << transcript;
    EXPECT_NE(transcript.find("waiting 1 s so far on step 2: expect_silence_ms: 1300\n"),
              std::string::npos)
        << transcript;
    // The time a verdict gives; a loaded machine may take longer, never much shorter.
    const auto seconds = [&](const std::string& verdict) {
        std::smatch match;
        const std::regex pattern(verdict + R"( \(([0-9.]+) s\))");
        return std::regex_search(transcript, match, pattern) ? std::stod(match[1]) : -1.0;
    };
    EXPECT_GE(seconds("ok step 2"), 1.29) << transcript;
    EXPECT_GE(seconds("FAILED step 3"), 0.09) << transcript;
    EXPECT_EQ(transcript.find("waiting 1 s so far on step 3"), std::string::npos) << transcript;
    EXPECT_EQ(transcript.find("step 1"), std::string::npos) << transcript;
    EXPECT_EQ(transcript.find("step 4"), std::string::npos) << transcript;
    EXPECT_EQ(tarvo_emu::SummaryText(summary).rfind("3 of 4 steps played, 2 passed, 1 failed, ", 0),
              0u)
        << tarvo_emu::SummaryText(summary);
}

TEST(ScenarioPlayerTest, GeneratedDataThatDiffersIsShownWhereItDiffers) {
    // The file is 70000 x; the generator's bytes turn to y at 40000, in the read of the second
    // block.
    const auto train = ParseScenario(R"(
        initial_state: 4
        file { path: "/data/vendor/radio/mds/x" content: "x" size: 70000 }
        step { send_generated {
          message { type: REQUEST token: 10 file { read_request { file_name: "x" file_dir: 1 } } }
          data { pattern: "xy" run: 40000 size: 70000 }
          block_size: 32768 } }
    )");
    const android::base::Result<void> read = tarvo_emu::PlayScenario(train);
    ASSERT_FALSE(read.ok());
    EXPECT_NE(read.error().message().find(
                  "the read at 32768 (token 11) holds other bytes: first difference at byte "
                  "40000 (32768 bytes on both sides); from byte 39984: \"xxxxxxxxxxxxxxxx"
                  "xxxxxxxxxxxxxxxx\" here, \"xxxxxxxxxxxxxxxxyyyyyyyyyyyyyyyy\" expected"),
              std::string::npos)
        << read.error().message();

    const auto whole = ParseScenario(R"(
        initial_state: 4
        file { path: "/data/vendor/radio/mds/x" content: "x" size: 70000 }
        step { send { type: REQUEST token: 20 file { read_request {
                 file_name: "x" file_dir: 1 offset: 0 max_data_size: 100 } } } }
        step { expect { message { token: 20 } data { pattern: "x" size: 99 } timeout_ms: 500 } }
    )");
    const android::base::Result<void> expected = tarvo_emu::PlayScenario(whole);
    ASSERT_FALSE(expected.ok());
    EXPECT_NE(expected.error().message().find(
                  "no such message from the daemon within 500 ms; the earliest that matches but "
                  "for its data, token 20: alike up to byte 99 (100 bytes here, 99 expected)"),
              std::string::npos)
        << expected.error().message();
}

TEST(ScenarioPlayerTest, ChecksFilesPropertiesAndClients) {
    const auto scenario = ParseScenario(R"(
        file { path: "/data/vendor/radio/a.conf" content: "abc" mode: 0640 }
        property { name: "persist.vendor.x" value: "1" }
        remove: "/data/vendor/radio/mds"
        step { expect_file { path: "/data/vendor/radio/a.conf" content: "abc" size: 3 mode: 0640 } }
        step { expect_file { path: "/data/vendor/radio/mds" absent: true } }
        step { expect_property { name: "persist.vendor.x" value: "1" } }
        step { expect_property { name: "persist.vendor.y" } }
        step { client: "-h" }
        step { expect_log { priority: ERROR text: "Force to exit" } }
        step { expect_no_log { text: "Failed to get pid" } }
        step { expect_file { path: "/data/vendor/radio/a.conf" mode: 0644 } }
    )");
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario);
    ASSERT_FALSE(played.ok());
    const std::string failure = played.error().message();
    EXPECT_EQ(failure.substr(0, 7), "step 7 ") << failure;
    EXPECT_NE(failure.find("mode is 0640"), std::string::npos) << failure;
}

TEST(ScenarioPlayerTest, ExactPayloadTellsAFieldSentFromOneLeftOut) {
    const auto scenario = ParseScenario(R"(
        initial_state: 4
        file { path: "/data/vendor/radio/modem_stat.conf" content: "L1:v=3|L1" }
        step { expect { exact_payload: true
                        message { message_id: 5 modem_stat { enable_request { module: "L1" } } } } }
        step { expect { exact_payload: true message { type: REQUEST
                        modem_stat { enable_request { module: "L1" v: 3 } } } } }
        step { expect { exact_payload: true timeout_ms: 300
                        message { modem_stat { enable_request { module: "L1" } } } } }
    )");
    // The first step passes over the request with v and takes the one without.
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario);
    ASSERT_FALSE(played.ok());
    EXPECT_EQ(played.error().message().substr(0, 7), "step 2 ") << played.error().message();
}

TEST(ScenarioPlayerTest, RegularExpressionsMatchWholeTextsAndSeedsHaveSizes) {
    const auto scenario = ParseScenario(R"(
        file { path: "/data/vendor/radio/a.bin" content: "ab" size: 5 }
        file { path: "/data/vendor/radio/z.bin" size: 3 }
        step { expect_file { path: "/data/vendor/radio/a.bin" content: "ababa" } }
        step { expect_file { path: "/data/vendor/radio/z.bin" content: "\0\0\0" } }
        step { expect_file { path: "/data/vendor/radio/a.bin" content_regex: "(ab)+a" } }
        step { expect_log { priority: INFO text_regex: "Start modem .* monitoring" } }
        step { expect_no_log { text_regex: "modem state" } }
        step { expect_no_log { priority: INFO text_regex: "Start modem state .*" } }
    )");
    const android::base::Result<void> played = tarvo_emu::PlayScenario(scenario);
    ASSERT_FALSE(played.ok());
    const std::string failure = played.error().message();
    EXPECT_EQ(failure.substr(0, 7), "step 5 ") << failure;
    EXPECT_NE(failure.find("printed 1 time(s)"), std::string::npos) << failure;

    const auto partial = ParseScenario(R"(
        file { path: "/data/vendor/radio/a.bin" content: "abc" }
        step { expect_file { path: "/data/vendor/radio/a.bin" content_regex: "ab" } }
    )");
    const android::base::Result<void> unmatched = tarvo_emu::PlayScenario(partial);
    ASSERT_FALSE(unmatched.ok());
    EXPECT_NE(unmatched.error().message().find("holds 3 bytes, mode 0664: \"abc\""),
              std::string::npos)
        << unmatched.error().message();
}

TEST(ScenarioPlayerTest, KeepsTheCauseOfALoadFailure) {
    const android::base::Result<tarvo_scenario::Scenario> missing =
        tarvo_emu::LoadScenario("/nonexistent/x.textproto");
    ASSERT_FALSE(missing.ok());
    EXPECT_EQ(missing.error().code(), ENOENT);
    EXPECT_EQ(missing.error().message(),
              "cannot read /nonexistent/x.textproto: No such file or directory");
}

TEST(ScenarioPlayerTest, NamesTheSourceStepPlaceAndNearestNamesOfAParseError) {
    const android::base::Result<tarvo_scenario::Scenario> bad = tarvo_emu::ParseScenario(
        "step { sleep_ms: 1 }\n# step { x: 1 }\nstep {\n  sleep_m: 1 }\n", "x.textproto");
    ASSERT_FALSE(bad.ok());
    EXPECT_EQ(bad.error().message().rfind("x.textproto: line 4 column 10: step 1: Message type "
                                          "\"tarvo_scenario.Step\" has no field named "
                                          "\"sleep_m\". Did you mean: sleep_ms, ",
                                          0),
              0u)
        << bad.error().message();
    const android::base::Result<tarvo_scenario::Scenario> value = tarvo_emu::ParseScenario(
        "initial_state: 4\nstep { expect_log { text: \"{\" priority: EROR } }", "y");
    ASSERT_FALSE(value.ok());
    EXPECT_EQ(value.error().message().rfind("y: line 2 column 46: step 0: Unknown enumeration "
                                            "value of \"EROR\" for field \"priority\". Did you "
                                            "mean: ERROR,",
                                            0),
              0u)
        << value.error().message();
    const android::base::Result<tarvo_scenario::Scenario> setup =
        tarvo_emu::ParseScenario("step { sleep_ms: 1 }\ninitial_stat: 4", "z");
    ASSERT_FALSE(setup.ok());
    EXPECT_EQ(setup.error().message().rfind("z: line 2 column 13: Message type "
                                            "\"tarvo_scenario.Scenario\" has no field named "
                                            "\"initial_stat\". Did you mean: initial_state,",
                                            0),
              0u)
        << setup.error().message();
    EXPECT_TRUE(tarvo_emu::ParseScenario("initial_state: 4", "y").ok());
}

TEST(TarvoEmuTest, UsageErrorsSayWhatWasWrong) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"exec", "--state", "x", "--", "/bin/true"}, "--state takes a number, not \"x\""},
        {{"exec", "--state", "4x", "--", "/bin/true"}, "--state takes a number, not \"4x\""},
        {{"tput", "--block-size", "0"}, "--block-size takes a number of bytes from 1 to 65568"},
        {{"run"}, "no scenario file given"},
        {{"console", "--quiet"}, "unknown option --quiet"},
        // Outputs that cannot be written are refused before the rig starts.
        {{"tput", "--plot", "/nonexistent/dir/x.svg"},
         "--plot: cannot create /nonexistent/dir/x.svg in /nonexistent/dir: No such file"},
        {{"tput", "--json", "/tmp"}, "--json: /tmp is a directory"},
        {{"run", TARVO_SOURCE_DIR "/tests/scenarios/first.textproto", "--record", "/nonexistent/r"},
         "--record: cannot create /nonexistent/r"},
        {{"console", "--record", "/nonexistent/r"}, "--record: cannot create /nonexistent/r"},
    };
    for (const auto& [args, why] : cases) {
        std::vector<std::string> command = {TARVO_BINARY_DIR "/tarvo-emu"};
        command.insert(command.end(), args.begin(), args.end());
        const tarvo_emu::ProcessResult result =
            tarvo_emu::RunProcess(command, {.separate_stderr = true}, std::chrono::seconds(60))
                .value();
        EXPECT_EQ(result.status, 2) << why;
        EXPECT_NE(result.errors.find(why), std::string::npos) << result.errors;
    }
    const tarvo_emu::ProcessResult outside =
        tarvo_emu::RunProcess(
            {TARVO_BINARY_DIR "/tarvo-emu", "exec", "--file", "/etc/x=1", "--", "/bin/true"},
            {.separate_stderr = true}, std::chrono::seconds(60))
            .value();
    EXPECT_EQ(outside.status, 1);
    EXPECT_NE(outside.errors.find("cannot seed /etc/x: seed files go under /data, /mnt or /vendor"),
              std::string::npos)
        << outside.errors;
    const tarvo_emu::ProcessResult help =
        tarvo_emu::RunProcess({TARVO_BINARY_DIR "/tarvo-emu", "run", "--help"}, {},
                              std::chrono::seconds(60))
            .value();
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.output.find("usage: tarvo-emu run FILE"), std::string::npos) << help.output;
}

TEST(TarvoEmuTest, ExecOptionsBoundALongRun) {
    TemporaryDir dir;
    const std::string out = std::string(dir.path) + "/out";
    // A file put in the read-only /vendor, copied out through the writable directory; 100 KiB
    // fill neither /data nor /mnt of 64 KiB; one message goes up the channel.
    const std::string script = "cat /vendor/etc/note > " + out +
                               " && printf '\\010\\002' > /dev/oem_ipc1"
                               " && ! head -c 102400 /dev/zero > /data/fill 2>/dev/null"
                               " && ! head -c 102400 /dev/zero > /mnt/fill 2>/dev/null";
    for (const bool discard : {false, true}) {
        std::vector<std::string> command = {TARVO_BINARY_DIR "/tarvo-emu",
                                            "exec",
                                            "--size-limit",
                                            "64",
                                            "--writable",
                                            dir.path,
                                            "--file",
                                            "/vendor/etc/note=a=b"};
        if (discard) command.push_back("--discard-uplink");
        command.insert(command.end(), {"--", "/bin/sh", "-c", script});
        const tarvo_emu::ProcessResult result =
            tarvo_emu::RunProcess(command, {}, std::chrono::seconds(60)).value();
        EXPECT_EQ(result.status, 0) << result.output;
        std::string copied;
        EXPECT_TRUE(android::base::ReadFileToString(out, &copied));
        EXPECT_EQ(copied, "a=b");
        // The modem side shows the message only when it was not dropped.
        EXPECT_EQ(result.output.find("tarvo > modem  { type: RESPONSE }") == std::string::npos,
                  discard)
            << result.output;
    }
}

TEST(TarvoEmuTest, ExecOptionsWithoutTheirValueAreUsageErrors) {
    for (const char* option : {"--size-limit", "--writable", "--file"}) {
        const tarvo_emu::ProcessResult result =
            tarvo_emu::RunProcess({TARVO_BINARY_DIR "/tarvo-emu", "exec", option},
                                  {.separate_stderr = true}, std::chrono::seconds(60))
                .value();
        EXPECT_EQ(result.status, 2) << option;
    }
    for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
             {"--size-limit", "0"}, {"--size-limit", "x"}, {"--file", "/data/no-equals"}}) {
        std::vector<std::string> command = {TARVO_BINARY_DIR "/tarvo-emu", "exec"};
        command.insert(command.end(), bad.begin(), bad.end());
        command.insert(command.end(), {"--", "/bin/true"});
        EXPECT_EQ(tarvo_emu::RunProcess(command, {}, std::chrono::seconds(60)).value().status, 2)
            << bad[0] << " " << bad[1];
    }
}

TEST(RigTeardownTest, LeavesNoMountProcessOrFileBehind) {
    std::string dir;
    pid_t daemon = 0;
    {
        tarvo_emu::Rig rig;
        ASSERT_RESULT_OK(rig.Start());
        ASSERT_TRUE(rig.WaitForLog(ANDROID_LOG_INFO, "Start modem state monitoring"));
        dir = rig.sandbox().dir();
        ASSERT_TRUE(rig.daemon_pid().has_value());
        daemon = *rig.daemon_pid();
    }
    std::string mounts;
    ASSERT_TRUE(android::base::ReadFileToString("/proc/self/mountinfo", &mounts));
    EXPECT_EQ(mounts.find(dir), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir));
    // Killed; at most a zombie that init has yet to reap.
    std::string stat;
    if (android::base::ReadFileToString("/proc/" + std::to_string(daemon) + "/stat", &stat)) {
        EXPECT_NE(stat.find(") Z "), std::string::npos) << stat;
    }
}

// A wait that runs out is not a wait that cannot be made: the rig takes one for a daemon still
// running, the other for one that is gone.
TEST(ChildProcessTest, TellsAProcessStillRunningFromOneItCannotWaitFor) {
    android::base::Result<std::unique_ptr<tarvo_emu::ChildProcess>> child =
        tarvo_emu::ChildProcess::Start({"/bin/sleep", "60"});
    ASSERT_RESULT_OK(child);
    const pid_t pid = (*child)->pid();
    android::base::Result<std::optional<int>> waited = (*child)->Wait(milliseconds(10));
    ASSERT_RESULT_OK(waited);
    EXPECT_FALSE(waited->has_value());
    ASSERT_EQ(kill(pid, SIGKILL), 0);
    ASSERT_EQ(waitpid(pid, nullptr, 0), pid);
    waited = (*child)->Wait(milliseconds(1000));
    ASSERT_FALSE(waited.ok());
    EXPECT_EQ(waited.error().code(), ECHILD);
}

// libfuse unmounts what the rig detached when the loop ends before the connection: a line on
// stderr that says nothing went wrong. A killed daemon's sandbox may still hold the nodes then.
TEST(RigTeardownTest, SaysNothingAtTheEnd) {
    constexpr int kRuns = 30;
    testing::internal::CaptureStderr();
    for (int run = 0; run < kRuns; ++run) {
        tarvo_emu::Rig rig;
        ASSERT_RESULT_OK(rig.Start());
        ASSERT_TRUE(rig.WaitForLog(ANDROID_LOG_INFO, "Start modem state monitoring"));
    }
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said.find("fuse:"), std::string::npos) << said;
}

// A fault that breaks nothing a test looks at must still fail it: a sanitizer report from any
// process in the sandbox, or a daemon that ends on its own.
TEST(RigHealthTest, ASanitizerReportFromAnyProcessIsAFailure) {
    for (const char* first : {"==9==ERROR: AddressSanitizer: heap-buffer-overflow on address 0x1",
                              "==9==ERROR: LeakSanitizer: detected memory leaks",
                              "core/x.cpp:3:5: runtime error: signed integer overflow",
                              "WARNING: ThreadSanitizer: data race (pid=9)"}) {
        tarvo_emu::Rig rig({.start_daemon = false});
        ASSERT_RESULT_OK(rig.Start());
        rig.Run({"/bin/sh", "-c",
                 "echo 'ERROR: not a report'; echo \"$0\" >&2; echo '    #0 f' >&2", first});
        const android::base::Result<void> health = rig.CheckHealth();
        ASSERT_FALSE(health.ok()) << first;
        EXPECT_EQ(health.error().message(),
                  "sanitizer report:\n" + std::string(first) + "\n    #0 f");
    }
}

TEST(RigHealthTest, ADaemonThatEndsOnItsOwnIsAFailure) {
    tarvo_emu::Rig rig;
    ASSERT_RESULT_OK(rig.Start());
    ASSERT_TRUE(rig.AwaitLog(ANDROID_LOG_INFO, "Start modem state monitoring"));
    rig.StopDaemon();
    EXPECT_RESULT_OK(rig.CheckHealth());

    ASSERT_RESULT_OK(rig.StartDaemon());
    ASSERT_TRUE(rig.AwaitLog(ANDROID_LOG_INFO, "Start modem state monitoring"));
    ASSERT_TRUE(rig.daemon_pid().has_value());
    EXPECT_RESULT_OK(rig.CheckHealth());
    ASSERT_EQ(kill(*rig.daemon_pid(), SIGKILL), 0);
    android::base::Result<void> health;
    ASSERT_TRUE(tarvo_emu::WaitUntil([&] { return !(health = rig.CheckHealth()).ok(); },
                                     std::chrono::seconds(10)));
    EXPECT_EQ(health.error().message(), "tarvo -s ended with status 137");
}

}  // namespace
