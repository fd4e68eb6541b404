#include <gtest/gtest.h>

#include "run_process.h"

namespace {

const std::string kUsage = "\nUsage for " TARVO_BINARY
                           ":\n"
                           "\n-m, --modemstat:   Send modem stat request to modem\n"
                           "\n-e, --extendedlog: Send extended log request to modem\n"
                           "\n-t, --ipctputtest: Start IPC Tput test\n"
                           "\n-s, --server:      Start message handler server\n"
                           "\n-h, --help:        Usage help\n";

ProcessResult Tarvo(std::vector<std::string> args) {
    args.insert(args.begin(), TARVO_BINARY);
    return RunProcess(args, {"ANDROID_LOG_TAGS=*:v"});
}

// The text of each log line on stderr, e.g. "tarvo E 11-21 23:17:09  1 1 Force to exit".
std::vector<std::string> LogLines(const std::string& err, char priority) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < err.size()) {
        size_t end = err.find('\n', start);
        if (end == std::string::npos) end = err.size();
        const std::string line = err.substr(start, end - start);
        start = end + 1;
        if (line.rfind("tarvo ", 0) != 0 || line.size() < 7 || line[6] != priority) continue;
        // Skip tag, priority, date, time, pid and tid.
        size_t pos = 0;
        for (int field = 0; field < 6 && pos != std::string::npos; ++field) {
            pos = line.find_first_not_of(' ', pos);
            pos = line.find(' ', pos);
        }
        if (pos != std::string::npos) lines.push_back(line.substr(pos + 1));
    }
    return lines;
}

}  // namespace

TEST(CommandLineTest, NoArgumentPrintsTheUsageAndFails) {
    ProcessResult result = Tarvo({});
    EXPECT_EQ(result.exit_status, 255);
    EXPECT_EQ(result.out, kUsage);
}

TEST(CommandLineTest, HelpPrintsTheUsageOnceAndEndsAsAClient) {
    ProcessResult result = Tarvo({"-h"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kUsage);
    EXPECT_EQ(LogLines(result.err, 'E'), std::vector<std::string>{"Force to exit"});
}

TEST(CommandLineTest, UnknownOptionsPrintTheUsageAndParsingGoesOn) {
    // There is no long --help, and the advertised --ipctputtest is not the real name.
    ProcessResult result = Tarvo({"--help", "--ipctputtest", "-h"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.out, kUsage + kUsage + kUsage);
    EXPECT_EQ(LogLines(result.err, 'E'), std::vector<std::string>{"Force to exit"});
}

TEST(CommandLineTest, ClientsNeedTheServersPidFile) {
    // Outside a device there is no pid file: the first client flag ends the run.
    ProcessResult result = Tarvo({"--tputtest", "-m"});
    EXPECT_EQ(result.exit_status, 255);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(LogLines(result.err, 'E'),
              (std::vector<std::string>{"Unable to access pid file", "Failed to get pid"}));
}
