// `tarvo-emu tput`'s reading of the daemon's lines and its plot. The whole command is run by the
// test "tput.command".

#include "cli/tput_report.h"

#include <cmath>
#include <filesystem>
#include <optional>
#include <string>

#include <android-base/file.h>
#include <gtest/gtest.h>

namespace {

using tarvo_emu::NodeRate;
using tarvo_emu::TputReport;

TEST(TputCommandTest, ReadsTheDaemonsSampleAndResultLines) {
    EXPECT_EQ(tarvo_emu::ParseSampleLine(
                  "Modem_IPC_Test DL:Tput : 10.000000 (GBps) | byte_counter: 125000000 "),
              10.0);
    EXPECT_EQ(tarvo_emu::ParseSampleLine("Modem_IPC_Test DL Results: Average Tput: 1"),
              std::nullopt);

    std::optional<tarvo_emu::TputResultLine> result = tarvo_emu::ParseResultLine(
        "Modem_IPC_Test DL Results: Average Tput: 3.30 Gbps, Max Tput: 12.82 Gbps, Total byte "
        "cnt: -173277184, Trasmission cnt:100");
    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(result->average_gbps, 3.30);
    EXPECT_EQ(result->max_gbps, 12.82);
    result = tarvo_emu::ParseResultLine(
        "Modem_IPC_Test DL Results: Average Tput: -nan Gbps, Max Tput: 0.00 Gbps, Total byte "
        "cnt: 0, Trasmission cnt:0");
    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(std::isnan(result->average_gbps));
}

TEST(TputCommandTest, PlotsWhatWasMeasuredAndWhatWasNot) {
    TemporaryDir tmp;
    const std::string dir = tmp.path;
    TputReport report;
    report.samples_gbps = {40.0, 1.5, 2.5, 2.0};
    report.monitor = {100, 6553600, 0.05};
    report.bare_reader = {100, 6553600, 0.01};
    report.pump = {
        {10, {1, 10, 0}}, {1000, {10000, 10000000, 0.5}}, {2000, {10000, 20000000, 0.5}}};
    report.bare_writer = {{1000, {10000, 10000000, 0.25}}};
    ASSERT_RESULT_OK(tarvo_emu::WritePlot(report, dir + "/full.svg"));
    std::string svg;
    ASSERT_TRUE(android::base::ReadFileToString(dir + "/full.svg", &svg));
    for (const char* text : {"daemon's pump", "bare writer (dd)", "first sample 40.00 Gbit/s",
                             "bare reader, 5.24 Gbit/s"}) {
        EXPECT_NE(svg.find(text), std::string::npos) << text;
    }

    // A run that measured nothing still gets its plot.
    ASSERT_RESULT_OK(tarvo_emu::WritePlot(TputReport(), dir + "/empty.svg"));
    EXPECT_GT(std::filesystem::file_size(dir + "/empty.svg"), 0u);
    EXPECT_TRUE(std::isnan(NodeRate{1, 10, 0}.bytes_per_s()));
}

}  // namespace
