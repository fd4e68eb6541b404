#pragma once

#include <sys/types.h>

#include <ostream>
#include <string>

#include "rig/rig.h"
#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// The mode of a seed file, or of a file a step writes, that gives none.
constexpr mode_t kDefaultFileMode = 0664;

// A seed file's content: `content` once, or repeated (zeros when empty) up to exactly `size`
// bytes.
std::string SeedContent(const tarvo_scenario::SeedFile& file);

// The mode a seed file is written with.
mode_t SeedMode(const tarvo_scenario::SeedFile& file);

// The rig that a scenario's setup asks for: its files, properties, removed paths, RIL library,
// throughput modem and mounts, with the transcripts going to these streams (null for none).
RigOptions RigOptionsOf(const tarvo_scenario::Scenario& scenario, std::ostream* transcript,
                        std::ostream* full_transcript);

}  // namespace tarvo_emu
