#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <android-base/result.h>

#include "figure.h"

namespace tarvo_bench {

// How long each benchmark runs. The smoke settings only prove that everything still builds and
// runs: their figures mean nothing.
struct BenchSettings {
    int micro_rounds = 5;
    double micro_min_time_s = 0.2;
    int rounds = 6;
    uint64_t round_trips = 1000;
    uint64_t transfer_mib = 64;
    std::vector<uint64_t> linearity_mib = {16, 64, 256};
    bool downlink = true;
    int idle_s = 10;
    uint64_t soak_early = 10000;
    uint64_t soak_messages = 1000000;
    uint64_t decode_blocks = 256;
    int soak_scaling_s = 20;
    uint64_t live_messages = 1000;

    static BenchSettings Smoke();
};

// Tokens of one varint size, so that every response of a series has the same length.
inline constexpr uint32_t kFirstToken = 0x1000;
// A property read request with `token`, which the daemon answers.
std::string PropertyRead(uint32_t token);

using Figures = android::base::Result<std::vector<Figure>>;

Figures MicroFigures(const BenchSettings& settings);
Figures RoundTripFigures(const BenchSettings& settings);
Figures FileTransferFigures(const BenchSettings& settings);
Figures LinearityFigures(const BenchSettings& settings);
Figures DownlinkFigures(const BenchSettings& settings);
Figures IdleFigures(const BenchSettings& settings);
Figures SoakFigures(const BenchSettings& settings);
Figures SoakScalingFigures(const BenchSettings& settings);
Figures DecodeFigures(const BenchSettings& settings);
Figures LiveLatencyFigures(const BenchSettings& settings);

}  // namespace tarvo_bench
