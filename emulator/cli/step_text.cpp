#include "cli/step_text.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <algorithm>

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

// A name is near another when it takes at most this many edits, or one per this many letters.
constexpr size_t kMinNearEdits = 2;
constexpr size_t kNearEditsPerLetters = 3;
// How many of the nearest names an error lists.
constexpr size_t kMaxNearNames = 3;

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
    // What a name completes to: a field's name goes on with what the text format wants after it.
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
            const FieldDescriptor* named = open.back()->field(i);
            names.push_back(named->name() + (named->message_type() != nullptr ? " { " : ": "));
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
    StepTokens tokens(text);
    const Tokenizer::Token* first = tokens.Next();
    if (first != nullptr && first->type == Tokenizer::TYPE_IDENTIFIER &&
        FieldOf(Step::descriptor(), first->text) == nullptr && first->text != "step") {
        return android::base::Error() << NoStepKind(first->text);
    }
    return android::base::Error() << "not a step (help lists them): " << errors.errors;
}

std::string NoStepKind(const std::string& name) {
    std::vector<std::string> kinds;
    for (int i = 0; i < Step::descriptor()->field_count(); ++i) {
        kinds.push_back(Step::descriptor()->field(i)->name());
    }
    const std::vector<std::string> near = NearestNames(name, kinds);
    return fmt::format(
        "\"{}\" is no step{} (help lists them)", name,
        near.empty() ? "" : "; did you mean " + android::base::Join(near, " or ") + "?");
}

std::vector<std::string> NearestNames(const std::string& name,
                                      const std::vector<std::string>& names) {
    // Edits (insertions, deletions, substitutions) from `name` to each of `names`, a row at a time.
    const auto distance = [&name](const std::string& other) {
        std::vector<size_t> row(other.size() + 1);
        for (size_t j = 0; j < row.size(); ++j) row[j] = j;
        for (size_t i = 1; i <= name.size(); ++i) {
            size_t diagonal = row[0];
            row[0] = i;
            for (size_t j = 1; j <= other.size(); ++j) {
                const size_t above = row[j];
                row[j] = std::min(
                    {row[j] + 1, row[j - 1] + 1, diagonal + (name[i - 1] == other[j - 1] ? 0 : 1)});
                diagonal = above;
            }
        }
        return row.back();
    };
    const size_t allowed = std::max<size_t>(kMinNearEdits, name.size() / kNearEditsPerLetters);
    size_t best = allowed + 1;
    std::vector<std::string> nearest;
    for (const std::string& candidate : names) {
        // A name typed short, as a prefix, is near too.
        const size_t edits = android::base::StartsWith(candidate, name) ? 1 : distance(candidate);
        if (edits > best) continue;
        if (edits < best) nearest.clear();
        best = edits;
        nearest.push_back(candidate);
    }
    if (nearest.size() > kMaxNearNames) nearest.resize(kMaxNearNames);
    return nearest;
}

}  // namespace tarvo_emu
