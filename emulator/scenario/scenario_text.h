#pragma once

#include <chrono>
#include <optional>
#include <string>

#include <google/protobuf/message.h>

#include <android-base/result.h>

#include "peers/ril_side.h"
#include "process/log_line.h"
#include "proto/tarvo_message.pb.h"
#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// A scenario's message on one line as the transcript shows it, with file modes in octal as a
// scenario writes them: shortened for reading, or whole, as text that parses back.
std::string ShortStepText(const google::protobuf::Message& message);
std::string FullStepText(const google::protobuf::Message& message);
// A scenario's setup (all but its steps) whole, one entry a line, as text that parses back.
std::string SetupText(const tarvo_scenario::Scenario& scenario);

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

// A scenario file as the rig writes one: a header of comments that says what wrote it and how to
// play it, a blank line, the setup one entry a line, then a line per step (a blank line before
// each step with a note) and comments where something cannot be played, so that the file always
// plays.
class ScenarioFile {
  public:
    ScenarioFile(const std::string& header, const tarvo_scenario::Scenario& setup);

    void AddStep(const tarvo_scenario::Step& step);
    // A step that failed as it was played, kept as a comment.
    void AddFailedStep(const tarvo_scenario::Step& step);
    // Each line of `text` as a comment.
    void AddComment(const std::string& text);

    const std::string& text() const { return text_; }
    android::base::Result<void> Write(const std::string& path) const;

  private:
    std::string text_;
};

}  // namespace tarvo_emu
