#pragma once

#include <regex>
#include <set>
#include <string>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// A step's ECMAScript regular expression; an unusable one is an error, not an exception.
android::base::Result<std::regex> CompiledRegex(const std::string& regex);

// Whether a generated send can be played: its data goes into the payload's data field (with an
// offset field to send it in blocks), or, for a read request, is read back in blocks by offset and
// max_data_size; blocks hold at least one byte.
android::base::Result<void> CheckGeneratedSend(const tarvo_scenario::GeneratedSend& send);

// What the player would refuse about a step's own arguments, found before any step is played: a
// regular expression that does not compile, a generated send in blocks of 0 bytes or with no way
// to send its data, a fault that names none, a mark that no step before it set. Steps are checked
// in the order they play, a repeat's once, so that the marks set before a step are known.
class StepCheck {
  public:
    android::base::Result<void> Check(const tarvo_scenario::Step& step);

  private:
    android::base::Result<void> KnownMark(const std::string& mark) const;

    std::set<std::string> marks_;
};

}  // namespace tarvo_emu
