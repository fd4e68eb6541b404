#pragma once

#include <chrono>
#include <string>

namespace tarvo_emu {

// What a run or a console session played: the line that ends it.
struct PlaySummary {
    // The steps to play (notes left out) when they are known, as a file's are; 0 otherwise.
    int steps = 0;
    int played = 0;
    int passed = 0;
    int failed = 0;
    std::chrono::steady_clock::duration elapsed{};
};

// "4 of 6 steps played, 3 passed, 1 failed, 5.312 s", the "of" part when the steps to play are
// known and not all were played.
std::string SummaryText(const PlaySummary& summary);

}  // namespace tarvo_emu
