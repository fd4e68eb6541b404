#include <gtest/gtest.h>

#include <android-base/strings.h>
#include <android/log.h>

#include "process/child_process.h"
#include "process/log_line.h"

namespace tarvo {

namespace {

const std::string kUsage = "\nUsage for " TARVO_BINARY
                           ":\n"
                           "\n-m, --modemstat:   Send modem stat request to modem\n"
                           "\n-e, --extendedlog: Send extended log request to modem\n"
                           "\n-t, --ipctputtest: Start IPC Tput test\n"
                           "\n-s, --server:      Start message handler server\n"
                           "\n-h, --help:        Usage help\n";

tarvo_emu::ProcessResult Tarvo(std::vector<std::string> args, std::vector<std::string> env = {}) {
    args.insert(args.begin(), TARVO_BINARY);
    return tarvo_emu::RunProcess(args, {.env = std::move(env), .separate_stderr = true},
                                 std::chrono::seconds(60))
        .value();
}

// The texts of the log lines on stderr with this priority.
std::vector<std::string> LogLines(const std::string& err, int priority) {
    std::vector<std::string> lines;
    for (const std::string& line : android::base::Split(err, "\n")) {
        std::optional<tarvo_emu::LogLine> parsed = tarvo_emu::ParseLogLine(line);
        if (parsed && parsed->tag == tarvo_emu::kDaemonTag && parsed->priority == priority)
            lines.push_back(parsed->text);
    }
    return lines;
}

}  // namespace

TEST(CommandLineTest, NoArgumentPrintsTheUsageAndFails) {
    tarvo_emu::ProcessResult result = Tarvo({});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.output, kUsage);
}

TEST(CommandLineTest, HelpPrintsTheUsageOnceAndEndsAsAClient) {
    // Logcat's filter settings in the environment change nothing.
    const std::vector<std::vector<std::string>> environments = {
        {}, {"ANDROID_LOG_TAGS=*:E"}, {"ANDROID_LOG_TAGS=tarvo:V *:S"}};
    for (const std::vector<std::string>& env : environments) {
        SCOPED_TRACE(android::base::Join(env, " "));
        tarvo_emu::ProcessResult result = Tarvo({"-h"}, env);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.output, kUsage);
        EXPECT_EQ(LogLines(result.errors, ANDROID_LOG_ERROR),
                  std::vector<std::string>{"Force to exit"});
    }
}

TEST(CommandLineTest, UnknownOptionsPrintTheUsageAndParsingGoesOn) {
    // There is no long --help, and the advertised --ipctputtest is not the real name.
    tarvo_emu::ProcessResult result = Tarvo({"--help", "--ipctputtest", "-h"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kUsage + kUsage + kUsage);
    EXPECT_EQ(LogLines(result.errors, ANDROID_LOG_ERROR),
              std::vector<std::string>{"Force to exit"});
}

TEST(CommandLineTest, ClientsNeedTheServersPidFile) {
    // Outside a device there is no pid file: the first client flag ends the run.
    tarvo_emu::ProcessResult result = Tarvo({"--tputtest", "-m"});
    EXPECT_EQ(result.status, 255);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(LogLines(result.errors, ANDROID_LOG_ERROR),
              (std::vector<std::string>{"Unable to access pid file", "Failed to get pid"}));
}

}  // namespace tarvo
