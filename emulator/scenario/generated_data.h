#pragma once

#include <string>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// The bytes that `generated` describes: a seeded random stream, a pattern (each byte repeated
// `run` times) or zeros, cut to exactly its size. The same description gives the same bytes, so
// that a step checks what another step sent.
std::string GeneratedBytes(const tarvo_scenario::Generated& generated);

}  // namespace tarvo_emu
