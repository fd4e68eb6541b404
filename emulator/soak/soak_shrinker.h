#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "scenario/scenario.pb.h"
#include "scenario/step_player.h"

namespace tarvo_emu {

// Where a played run of stimuli diverged from the model.
struct SoakDivergence {
    // The index of the stimulus whose checks failed.
    size_t stimulus = 0;
    // What failed, without the numbers that change as stimuli are dropped: the kind of step and
    // of failure, to tell one divergence from another.
    std::string signature;
    // The failure in full.
    std::string message;
};

// The scenario that a run of `stimuli` is: the setup, the model's start, each stimulus followed
// by the model's checks. Each stimulus carries its number in the run as a note.
tarvo_scenario::Scenario SoakScenario(const tarvo_scenario::Scenario& setup,
                                      const std::vector<tarvo_scenario::Step>& stimuli,
                                      const std::vector<size_t>& numbers);

// Plays `stimuli` on a fresh rig as the scenario above, stopping at the first failed step; none
// when the run held.
std::optional<SoakDivergence> PlayStimuli(const tarvo_scenario::Scenario& setup,
                                          const std::vector<tarvo_scenario::Step>& stimuli);

// What a failed step and its failure say, numbers and tokens left out.
std::string SoakSignature(const tarvo_scenario::Step& step, const StepFailure& failure);

// Plays a run of stimuli, as PlayStimuli does on a rig.
using StimuliReplay =
    std::function<std::optional<SoakDivergence>(const std::vector<tarvo_scenario::Step>& stimuli)>;

// The fewest stimuli found, within `budget`, whose `replay` still diverges as `divergence` did:
// first the shortest tail of them before the divergence, then without each stretch, halving
// down to single stimuli (blocks, faults and messages alike), then with each field of what each
// stimulus sends halved (fewer repeated entries, shorter data and names, smaller sizes, offsets
// and counts; tokens kept), found by reflection. `numbers` are the stimuli's
// numbers in the run, kept for the ones left. `report` hears each attempt.
struct ShrinkResult {
    std::vector<tarvo_scenario::Step> stimuli;
    std::vector<size_t> numbers;
    size_t replays = 0;
    // How the stimuli left diverge; none when no replay diverged alike, and all were kept.
    std::optional<SoakDivergence> reproduced;
};
ShrinkResult ShrinkStimuli(std::vector<tarvo_scenario::Step> stimuli, std::vector<size_t> numbers,
                           const SoakDivergence& divergence, std::chrono::seconds budget,
                           const StimuliReplay& replay,
                           const std::function<void(const std::string&)>& report);

}  // namespace tarvo_emu
