#include "cli/step_text.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <android-base/strings.h>
#include <fmt/format.h>

#include "scenario/scenario_player.h"

using android::base::Result;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::io::Tokenizer;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Collects the parse errors of a typed step.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int, int column, const std::string& message) override {
        errors += fmt::format("column {}: {}{}; ", column + 1, message, NearestNamesHint(message));
    }
    std::string errors;
};

// The tokens of text being typed, in the text format's own terms (strings, `#` comments). A step
// half typed is no error here: what it lacks is what the console waits for.
class StepTokens {
  public:
    explicit StepTokens(const std::string& text)
        : input_(text.data(), static_cast<int>(text.size())), tokenizer_(&input_, &errors_) {
        tokenizer_.set_comment_style(Tokenizer::SH_COMMENT_STYLE);
    }
    // The next token, or null at the end.
    const Tokenizer::Token* Next() { return tokenizer_.Next() ? &tokenizer_.current() : nullptr; }

  private:
    ErrorCollector errors_;
    google::protobuf::io::ArrayInputStream input_;
    Tokenizer tokenizer_;
};

bool Opens(const Tokenizer::Token& token) {
    return token.type == Tokenizer::TYPE_SYMBOL && (token.text == "{" || token.text == "<");
}

bool Closes(const Tokenizer::Token& token) {
    return token.type == Tokenizer::TYPE_SYMBOL && (token.text == "}" || token.text == ">");
}

// A field of `descriptor` by name, or null.
const FieldDescriptor* FieldOf(const Descriptor* descriptor, const std::string& name) {
    return descriptor == nullptr ? nullptr : descriptor->FindFieldByName(name);
}

}  // namespace

int OpenBraces(const std::string& text) {
    int open = 0;
    StepTokens tokens(text);
    while (const Tokenizer::Token* token = tokens.Next()) {
        if (Opens(*token)) ++open;
        if (Closes(*token)) --open;
    }
    return open;
}

std::vector<std::string> CompletionsOf(const std::string& text, const std::string& word) {
    // Walks the text's tokens, keeping the message that each open brace opened.
    std::vector<const Descriptor*> open = {Step::descriptor()};
    const FieldDescriptor* field = nullptr;  // the latest field name
    bool after_colon = false;
    StepTokens tokens(text);
    while (const Tokenizer::Token* token = tokens.Next()) {
        if (token->type == Tokenizer::TYPE_IDENTIFIER) {
            // A field's name, or the value after its colon.
            field = after_colon ? nullptr : FieldOf(open.back(), token->text);
            after_colon = false;
        } else if (Opens(*token)) {
            open.push_back(field != nullptr ? field->message_type() : nullptr);
            field = nullptr;
            after_colon = false;
        } else if (Closes(*token)) {
            if (open.size() > 1) open.pop_back();
            field = nullptr;
        } else if (token->type == Tokenizer::TYPE_SYMBOL && token->text == ":") {
            after_colon = field != nullptr;
        } else {
            after_colon = false;
        }
    }
    std::vector<std::string> names;
    if (after_colon) {
        if (field->enum_type() != nullptr) {
            for (int i = 0; i < field->enum_type()->value_count(); ++i) {
                names.push_back(field->enum_type()->value(i)->name());
            }
        } else if (field->type() == FieldDescriptor::TYPE_BOOL) {
            names = {"true", "false"};
        }
    } else if (open.back() != nullptr) {
        for (int i = 0; i < open.back()->field_count(); ++i) {
            names.push_back(open.back()->field(i)->name());
        }
        if (open.size() == 1) names.insert(names.end(), {"help", "quit"});
    }
    std::vector<std::string> matches;
    for (const std::string& name : names) {
        if (android::base::StartsWith(name, word)) matches.push_back(name);
    }
    return matches;
}

Result<std::vector<Step>> ParseSteps(const std::string& text) {
    google::protobuf::TextFormat::Parser parser;
    ErrorCollector errors;
    parser.RecordErrorsTo(&errors);
    Step step;
    if (parser.ParseFromString(text, &step)) {
        // A comment alone is no step.
        if (step.ByteSizeLong() == 0) return std::vector<Step>{};
        return std::vector<Step>{step};
    }
    Result<tarvo_scenario::Scenario> steps = ParseScenario(text, "");
    if (steps.ok() && steps->step_size() > 0) {
        tarvo_scenario::Scenario setup = *steps;
        setup.clear_step();
        if (setup.ByteSizeLong() == 0) {
            return std::vector<Step>(steps->step().begin(), steps->step().end());
        }
    }
    return android::base::Error() << "not a step (help lists them): " << errors.errors;
}

}  // namespace tarvo_emu
