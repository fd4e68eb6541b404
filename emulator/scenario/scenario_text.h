#pragma once

#include <string>

#include <google/protobuf/message.h>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// A scenario's message on one line as the transcript shows it, with file modes in octal as a
// scenario writes them: shortened for reading, or whole, as text that parses back.
std::string ShortStepText(const google::protobuf::Message& message);
std::string FullStepText(const google::protobuf::Message& message);
// A scenario's setup (all but its steps) whole, one entry a line, as text that parses back.
std::string SetupText(const tarvo_scenario::Scenario& scenario);

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
