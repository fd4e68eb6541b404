#include "cli/typed_step.h"

#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <optional>

#include <android-base/strings.h>
#include <fmt/format.h>

#include "scenario/nearest_names.h"
#include "scenario/scenario_loader.h"

using android::base::Result;
using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// A name is near another when it takes at most this many edits, or one per this many letters.
constexpr size_t kMinNearEdits = 2;
constexpr size_t kNearEditsPerLetters = 3;
// How many of the nearest kinds an error lists.
constexpr size_t kMaxNearNames = 3;

using Tokenizer = google::protobuf::io::Tokenizer;

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

// `step { ... }` lines pasted from a scenario; none when the text is not that, or holds setup.
std::optional<std::vector<Step>> PastedSteps(const std::string& text) {
    tarvo_scenario::Scenario pasted;
    if (!ParseText(text, "", &pasted).ok() || pasted.step_size() == 0) return std::nullopt;
    std::vector<Step> steps(pasted.step().begin(), pasted.step().end());
    pasted.clear_step();
    if (pasted.ByteSizeLong() > 0) return std::nullopt;
    return steps;
}

}  // namespace

int OpenBraces(const std::string& text) {
    int open = 0;
    TextTokens tokens(text);
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
    TextTokens tokens(text);
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

Result<std::vector<Step>> ParseSteps(const std::string& text, StepCheck* check) {
    Step step;
    Result<void> parsed = ParseText(text, "", &step);
    std::optional<std::vector<Step>> steps;
    if (parsed.ok()) {
        // A comment alone is no step.
        steps.emplace();
        if (step.ByteSizeLong() > 0) steps->push_back(step);
    } else {
        steps = PastedSteps(text);
    }
    if (!steps) {
        TextTokens tokens(text);
        const Tokenizer::Token* first = tokens.Next();
        if (first != nullptr && first->type == Tokenizer::TYPE_IDENTIFIER &&
            FieldOf(Step::descriptor(), first->text) == nullptr && first->text != "step") {
            return android::base::Error() << NoStepKind(first->text);
        }
        return android::base::Error()
               << "not a step (help lists them): " << android::base::Trim(parsed.error().message());
    }
    for (const Step& typed : *steps) {
        if (Result<void> checked = check->Check(typed); !checked.ok()) return checked.error();
    }
    return *steps;
}

std::string NoStepKind(const std::string& name) {
    std::vector<std::string> kinds;
    for (int i = 0; i < Step::descriptor()->field_count(); ++i) {
        kinds.push_back(Step::descriptor()->field(i)->name());
    }
    const std::vector<std::string> near =
        NearestNames(name, kinds, kMaxNearNames,
                     std::max<size_t>(kMinNearEdits, name.size() / kNearEditsPerLetters));
    return fmt::format(
        "\"{}\" is no step{} (help lists them)", name,
        near.empty() ? "" : "; did you mean " + android::base::Join(near, " or ") + "?");
}

}  // namespace tarvo_emu
