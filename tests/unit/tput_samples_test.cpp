// The throughput test's figures: what each 100-ms sample of downlink bytes adds to the results.

#include "tarvo_test_handler.h"

#include <cmath>

#include <gtest/gtest.h>

namespace tarvo {

namespace {

TEST(TputSamplesTest, ASampleOf125MillionBytesIsTenGigabitsPerSecond) {
    EXPECT_EQ(TputSamples::Throughput(125000000), 10.0);
    EXPECT_EQ(TputSamples::Throughput(0), 0.0);
}

TEST(TputSamplesTest, TheFirstSampleIsCountedButLeftOutOfTotalAndMaximum) {
    TputSamples samples;
    EXPECT_TRUE(std::isnan(samples.Average()));

    EXPECT_EQ(samples.Add(125000000), 10.0);
    EXPECT_EQ(samples.count(), 1u);
    EXPECT_EQ(samples.total_bytes(), 0u);
    EXPECT_EQ(samples.max_throughput(), 0.0);
    EXPECT_EQ(samples.Average(), 0.0);

    samples.Add(12500000);
    samples.Add(25000000);
    EXPECT_EQ(samples.count(), 3u);
    EXPECT_EQ(samples.total_bytes(), 37500000u);
    EXPECT_EQ(samples.max_throughput(), 2.0);
    // The bytes of two samples divided by three, in the daemon's order of operations.
    EXPECT_EQ(samples.Average(), 37500000.0 * 8 / 1000 / 1000 / 1000 * 10 / 3);

    samples.Clear();
    EXPECT_EQ(samples.count(), 0u);
    EXPECT_TRUE(std::isnan(samples.Average()));
}

TEST(TputSamplesTest, TotalWrapsAtThirtyTwoBits) {
    TputSamples samples;
    samples.Add(1);
    samples.Add(0xFFFFFFFFu);
    samples.Add(2);
    EXPECT_EQ(samples.total_bytes(), 1u);
}

}  // namespace

}  // namespace tarvo
