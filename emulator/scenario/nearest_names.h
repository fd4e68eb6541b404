#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo_emu {

// Bytes to change to turn one text into the other (Levenshtein).
size_t EditDistance(std::string_view a, std::string_view b);

// Up to `count` of `names` nearest to `word`, nearest first: for "did you mean".
std::vector<std::string> NearestNames(const std::string& word, std::vector<std::string> names,
                                      size_t count = 3);

}  // namespace tarvo_emu
