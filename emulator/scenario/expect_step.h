#pragma once

#include <chrono>
#include <optional>

#include "peers/ril_side.h"
#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"
#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// What the daemon did, as the step that expects it when played back; the recorder, the capture's
// scenario and the soak's model write their expectations with these. `timeout`, when given, is
// how long the step waits.
//
// A message, with its exact payload and without the token of a request of the daemon's own: the
// daemon numbers those, so a replay sees other tokens.
tarvo_scenario::Step ExpectStep(tarvo_message::TarvoMessage message,
                                std::optional<std::chrono::milliseconds> timeout = std::nullopt);
// A RIL request with its data.
tarvo_scenario::Step ExpectStep(const RilRequest& request,
                                std::optional<std::chrono::milliseconds> timeout = std::nullopt);
// A log line by priority, by tag unless it is the daemon's, and by text, or by `text_regex`
// when given.
tarvo_scenario::Step ExpectStep(const LogLine& line,
                                const std::optional<std::string>& text_regex = std::nullopt,
                                std::optional<std::chrono::milliseconds> timeout = std::nullopt);

// How long a step waits for what came `waited` after the step before it: twice that, so that a
// replay on a slower machine still sees it, when that is more than a step waits by default.
std::optional<std::chrono::milliseconds> ReplayTimeout(std::chrono::milliseconds waited);

}  // namespace tarvo_emu
