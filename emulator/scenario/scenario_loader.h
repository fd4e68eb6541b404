#pragma once

#include <string>
#include <vector>

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message.h>
#include <google/protobuf/text_format.h>

#include <android-base/result.h>

#include "scenario/scenario.pb.h"

namespace tarvo_emu {

// Where a step stands in its scenario file: its line and column, from 1, and the places of a
// repeat's steps.
struct StepPlace {
    int line = 0;
    int column = 0;
    std::vector<StepPlace> steps;
};

// Where a scenario came from, so that a failure names the file and line of its step.
struct ScenarioOrigin {
    std::string path;
    std::vector<StepPlace> steps;
};

// The tokens of a scenario's text in the text format's own terms (strings, `#` comments), for a
// walk over text that may be incomplete: a fault in it only ends the walk.
class TextTokens {
  public:
    explicit TextTokens(const std::string& text);
    // The next token, or null at the end.
    const google::protobuf::io::Tokenizer::Token* Next() {
        return tokenizer_.Next() ? &tokenizer_.current() : nullptr;
    }

  private:
    class Quiet : public google::protobuf::io::ErrorCollector {
        void AddError(int, int, const std::string&) override {}
    };
    Quiet quiet_;
    google::protobuf::io::ArrayInputStream input_;
    google::protobuf::io::Tokenizer tokenizer_;
};

// `text` in protobuf text format, parsed into `message` (a scenario or one of its parts). The
// error names `source` (the file, for the reader; nothing when empty) and lists every parse error
// with its line and column, the step it is in (counted from 0) and, for a misspelt name, the
// nearest known names. When given, `tree` gets the place of every field.
android::base::Result<void> ParseText(const std::string& text, const std::string& source,
                                      google::protobuf::Message* message,
                                      google::protobuf::TextFormat::ParseInfoTree* tree = nullptr);

// A scenario in protobuf text format (schema emulator/scenario/scenario.proto), parse errors named
// as ParseText names them. Every step is checked as the player would check its arguments
// (StepCheck), a refused one named by its line and column. When given, `origin` gets `source`
// and the place of every step.
android::base::Result<tarvo_scenario::Scenario> ParseScenario(const std::string& text,
                                                              const std::string& source,
                                                              ScenarioOrigin* origin = nullptr);

// The scenario in the file at `path`.
android::base::Result<tarvo_scenario::Scenario> LoadScenario(const std::string& path,
                                                             ScenarioOrigin* origin = nullptr);

}  // namespace tarvo_emu
