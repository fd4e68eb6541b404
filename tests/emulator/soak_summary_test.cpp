// How `tarvo-emu soak --merge` adds up the reports of shards run on several machines. A wrong sum
// hides a shard's divergence or inflates the rate that the shards are compared by.

#include "soak/soak_summary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using ::testing::DoubleEq;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::Pair;

TEST(SoakSummaryTest, MergeAddsCountsKeepsEverySeedAndDivergenceAndTakesTheHighestPeaks) {
    const SoakSummary first{.seeds = {1, 2},
                            .stimuli = 100,
                            .checks = 1000,
                            .faults = {{"eof", 3}, {"restart", 1}},
                            .traffic = {{"truncated", 2}},
                            .divergences = {{2, "answer differs", "out.seed-2.textproto"}},
                            .seconds = 10,
                            .peak = {.descriptors = 12, .threads = 4, .memory_kib = 900}};
    const SoakSummary second{.seeds = {3},
                             .stimuli = 50,
                             .checks = 2000,
                             .faults = {{"eof", 2}, {"hangup", 5}},
                             .traffic = {{"oversized", 1}, {"truncated", 3}},
                             .divergences = {{3, "file differs", "out.seed-3.textproto"}},
                             .seconds = 30,
                             .peak = {.descriptors = 10, .threads = 6, .memory_kib = 800}};

    const SoakSummary merged = MergeSoakSummaries({first, second});

    EXPECT_THAT(merged.seeds, ElementsAre(1, 2, 3));
    EXPECT_EQ(merged.stimuli, 150u);
    EXPECT_EQ(merged.checks, 3000u);
    EXPECT_THAT(merged.faults, ElementsAre(Pair("eof", 5), Pair("hangup", 5), Pair("restart", 1)));
    EXPECT_THAT(merged.traffic, ElementsAre(Pair("oversized", 1), Pair("truncated", 5)));
    EXPECT_THAT(merged.divergences,
                ElementsAre(Field(&SeedDivergence::seed, 2), Field(&SeedDivergence::seed, 3)));
    EXPECT_EQ(merged.divergences[1].scenario, "out.seed-3.textproto");
    EXPECT_DOUBLE_EQ(merged.seconds, 40);
    EXPECT_THAT(merged.checks_per_second(), DoubleEq(75));
    EXPECT_EQ(merged.peak.descriptors, 12u);
    EXPECT_EQ(merged.peak.threads, 6u);
    EXPECT_EQ(merged.peak.memory_kib, 900);
}

}  // namespace
}  // namespace tarvo_emu
