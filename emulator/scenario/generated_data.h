#pragma once

#include <sys/types.h>

#include <string>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// The bytes that `generated` describes: a seeded random stream, a pattern (each byte repeated
// `run` times) or zeros, cut to exactly its size. The same description gives the same bytes, so
// that a step checks what another step sent.
std::string GeneratedBytes(const tarvo_scenario::Generated& generated);

// The mode of a seed file, or of a file a step writes, that gives none.
constexpr mode_t kDefaultFileMode = 0664;

// A seed file's content: `content` once, or repeated (zeros when empty) up to exactly `size`
// bytes.
std::string SeedContent(const tarvo_scenario::SeedFile& file);

// The mode a seed file is written with.
mode_t SeedMode(const tarvo_scenario::SeedFile& file);

}  // namespace tarvo_emu
