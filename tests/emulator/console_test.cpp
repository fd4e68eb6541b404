// `tarvo-emu console` on a terminal: typing with completion, the transcript streaming, the end.
// Scripted through a pipe, with a recording played back, it is the test "console.pipe".

#include "cli/typed_step.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>

#include <android-base/file.h>
#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include "scenario/scenario.pb.h"

namespace {

using std::chrono::seconds;

// `tarvo-emu console ARGS` on a pseudo-terminal, its temporary trees under a directory of its own.
class PtyConsole {
  public:
    explicit PtyConsole(const std::vector<std::string>& args) {
        std::vector<std::string> argv = {TARVO_BINARY_DIR "/tarvo-emu", "console"};
        argv.insert(argv.end(), args.begin(), args.end());
        const std::string tmpdir = "TMPDIR=" + std::string(tmp_.path);
        std::vector<char*> c_argv;
        for (std::string& arg : argv) c_argv.push_back(arg.data());
        c_argv.push_back(nullptr);
        pid_ = forkpty(&master_, nullptr, nullptr, nullptr);
        if (pid_ == 0) {
            putenv(const_cast<char*>(tmpdir.c_str()));
            execv(c_argv[0], c_argv.data());
            _exit(127);
        }
    }
    ~PtyConsole() {
        if (pid_ > 0 && !status_) {
            kill(pid_, SIGKILL);
            Status();
        }
        close(master_);
    }

    void Type(const std::string& keys) {
        ASSERT_EQ(write(master_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    // Reads what the console shows until `text` is there (looking only at what came since the
    // last text found); false after 20 s without it.
    bool Shows(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + seconds(20);
        while (shown_.find(text, seen_) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd fd = {.fd = master_, .events = POLLIN, .revents = 0};
            char bytes[4096];
            if (left.count() <= 0 || poll(&fd, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            const ssize_t size = read(master_, bytes, sizeof(bytes));
            if (size <= 0) return false;
            shown_.append(bytes, size);
        }
        seen_ = shown_.find(text, seen_) + text.size();
        return true;
    }
    int Status() {
        int status = 0;
        if (!status_ && waitpid(pid_, &status, 0) == pid_) {
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return status_.value_or(-1);
    }
    pid_t pid() const { return pid_; }
    const std::string& shown() const { return shown_; }
    bool TreesRemoved() const { return std::filesystem::is_empty(tmp_.path); }

  private:
    TemporaryDir tmp_;
    int master_ = -1;
    pid_t pid_ = -1;
    std::optional<int> status_;
    std::string shown_;
    size_t seen_ = 0;
};

TEST(ConsoleTest, PlaysTypedStepsWithCompletionAndRecordsThem) {
    TemporaryDir dir;
    const std::string record = std::string(dir.path) + "/session.textproto";
    PtyConsole console({"--record", record});
    ASSERT_TRUE(console.Shows("Modem state changed from -1 to 0")) << console.shown();
    ASSERT_TRUE(console.Shows("tarvo> ")) << console.shown();

    // A step name completed; the daemon's line comes after the step, while the prompt waits.
    console.Type("modem_st\t4\r");
    ASSERT_TRUE(console.Shows("step 0: modem_state: 4")) << console.shown();
    ASSERT_TRUE(console.Shows("I tarvo: Modem state changed from 0 to 4")) << console.shown();
    // A field name completed, in a step that goes on on a second line.
    console.Type("expect_log {\r");
    ASSERT_TRUE(console.Shows("...> ")) << console.shown();
    console.Type("prio\tINF\ttext: \"Modem state changed from 0 to 4\" }\r");
    ASSERT_TRUE(console.Shows(
        "step 1: expect_log { priority: INFO text: \"Modem state changed from 0 to 4\" }"))
        << console.shown();
    ASSERT_TRUE(console.Shows("tarvo> ")) << console.shown();
    console.Type("quit\r");
    EXPECT_EQ(console.Status(), 0) << console.shown();
    EXPECT_EQ(console.shown().find("FAILED"), std::string::npos) << console.shown();
    EXPECT_EQ(console.shown().find("fuse:"), std::string::npos) << console.shown();
    EXPECT_TRUE(console.TreesRemoved());

    std::string recorded;
    ASSERT_TRUE(android::base::ReadFileToString(record, &recorded));
    EXPECT_NE(recorded.find("step { modem_state: 4 }\n"), std::string::npos) << recorded;
}

// Ctrl-C takes back what is under way, never the session; SIGTERM ends it with the recording.
TEST(ConsoleTest, CtrlCCancelsAndSigtermKeepsTheRecording) {
    TemporaryDir dir;
    const std::string record = std::string(dir.path) + "/session.textproto";
    PtyConsole console({"--record", record});
    ASSERT_TRUE(console.Shows("Modem state changed from -1 to 0")) << console.shown();
    ASSERT_TRUE(console.Shows("tarvo> ")) << console.shown();

    // At an idle prompt.
    console.Type("\x03");
    ASSERT_TRUE(console.Shows("^C\r\ntarvo> ")) << console.shown();
    // A step kind completed with its colon: the value alone follows.
    console.Type("modem_sta\t4\r");
    ASSERT_TRUE(console.Shows("step 0: modem_state: 4")) << console.shown();
    ASSERT_TRUE(console.Shows("I tarvo: Modem state changed from 0 to 4")) << console.shown();
    // On a half-typed line, and on a step begun on an earlier line: the next line starts afresh.
    console.Type("expect_log {\r");
    ASSERT_TRUE(console.Shows("...> ")) << console.shown();
    console.Type("prio\x03");
    ASSERT_TRUE(console.Shows("^C\r\ntarvo> ")) << console.shown();
    console.Type("modem_state: 2\r");
    ASSERT_TRUE(console.Shows("step 1: modem_state: 2")) << console.shown();
    ASSERT_TRUE(console.Shows("I tarvo: Modem state changed from 4 to 2")) << console.shown();
    // In the middle of a step longer than the test waits.
    console.Type("sleep_ms: 600000\r");
    ASSERT_TRUE(console.Shows("step 2: sleep_ms: 600000")) << console.shown();
    console.Type("\x03");
    ASSERT_TRUE(console.Shows("step 2 (sleep_ms: 600000) cancelled")) << console.shown();
    console.Type("modem_state: 4\r");
    ASSERT_TRUE(console.Shows("I tarvo: Modem state changed from 2 to 4")) << console.shown();
    // A step's own help, and the nearest names to one misspelt.
    console.Type("help expect_log\r");
    ASSERT_TRUE(console.Shows("text_regex")) << console.shown();
    ASSERT_TRUE(console.Shows("For example:")) << console.shown();
    console.Type("modem_stat: 0\r");
    ASSERT_TRUE(console.Shows("did you mean modem_state?")) << console.shown();
    ASSERT_TRUE(console.Shows("tarvo> ")) << console.shown();
    // A typed step is checked as a loaded one is, and refused before it plays.
    console.Type("expect_usage { mark: \"nowhere\" }\r");
    ASSERT_TRUE(console.Shows("no mark \"nowhere\" before this step")) << console.shown();
    ASSERT_TRUE(console.Shows("tarvo> ")) << console.shown();

    kill(console.pid(), SIGTERM);
    EXPECT_EQ(console.Status(), 128 + SIGTERM) << console.shown();
    EXPECT_TRUE(console.TreesRemoved());
    EXPECT_EQ(console.shown().find("fuse:"), std::string::npos) << console.shown();
    EXPECT_EQ(console.shown().find("FAILED"), std::string::npos) << console.shown();
    std::string recorded;
    ASSERT_TRUE(android::base::ReadFileToString(record, &recorded)) << console.shown();
    EXPECT_NE(recorded.find("step { modem_state: 2 }\n"), std::string::npos) << recorded;
    EXPECT_NE(recorded.find("# failed: step { sleep_ms: 600000 }\n"), std::string::npos)
        << recorded;
}

TEST(ConsoleTest, HelpHasAnExampleOfEveryStepKind) {
    const google::protobuf::Descriptor* step = tarvo_scenario::Step::descriptor();
    for (int i = 0; i < step->field_count(); ++i) {
        const google::protobuf::FieldDescriptor* field = step->field(i);
        tarvo_scenario::Step parsed;
        ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(
            tarvo_emu::StepExample(field->name()), &parsed))
            << field->name();
        const google::protobuf::Reflection* reflection = parsed.GetReflection();
        EXPECT_TRUE(field->is_repeated() ? reflection->FieldSize(parsed, field) > 0
                                         : reflection->HasField(parsed, field))
            << field->name();
    }
}

}  // namespace
