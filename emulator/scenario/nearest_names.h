#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace tarvo_emu {

// Bytes to change to turn one text into the other (Levenshtein).
size_t EditDistance(std::string_view a, std::string_view b);

// Up to `count` of `names` nearest to `word` (a misspelling of one of them), nearest first, none
// further than `reach` edits: for "did you mean". A name that `word` begins, typed short, is one
// edit away.
std::vector<std::string> NearestNames(const std::string& word, std::vector<std::string> names,
                                      size_t count = 3,
                                      size_t reach = std::numeric_limits<size_t>::max());

}  // namespace tarvo_emu
