#include "scenario/scenario_loader.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <regex>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "scenario/nearest_names.h"
#include "scenario/step_check.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;

namespace tarvo_emu {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::TextFormat;

// The top-level step of `text` that the place (line and column from 0) falls in; none when it
// is in the setup.
std::optional<int> StepAt(const std::string& text, int line, int column) {
    int depth = 0;
    int step = -1;
    bool in_step = false;
    TextTokens tokens(text);
    while (const google::protobuf::io::Tokenizer::Token* token = tokens.Next()) {
        if (token->line > line || (token->line == line && token->column > column)) break;
        if (depth == 0 && token->type == google::protobuf::io::Tokenizer::TYPE_IDENTIFIER) {
            in_step = token->text == "step";
            if (in_step) ++step;
        } else if (token->text == "{" || token->text == "<") {
            ++depth;
        } else if ((token->text == "}" || token->text == ">") && depth > 0 && --depth == 0) {
            in_step = false;
        }
    }
    if (!in_step) return std::nullopt;
    return step;
}

// Every message type that a scenario can hold, the scenario's own first.
std::vector<const Descriptor*> ScenarioTypes() {
    std::vector<const Descriptor*> types = {Scenario::descriptor()};
    for (size_t i = 0; i < types.size(); ++i) {
        for (int f = 0; f < types[i]->field_count(); ++f) {
            const Descriptor* nested = types[i]->field(f)->message_type();
            if (nested != nullptr && std::find(types.begin(), types.end(), nested) == types.end()) {
                types.push_back(nested);
            }
        }
    }
    return types;
}

// For a text format parser's error `message` about an unknown field or enum value in a scenario
// or step, " Did you mean: NAME, NAME?" with the nearest known names: the fields of the message
// type it names, or the values of the enum fields it names; empty for other errors.
std::string NearestNamesHint(const std::string& message) {
    static const std::regex kNoField(R"re(Message type "([\w.]+)" has no field named "(\w+)")re");
    static const std::regex kNoValue(
        R"re(Unknown enumeration value of "(\w+)" for field "(\w+)")re");
    std::smatch match;
    std::string word;
    std::vector<std::string> names;
    if (std::regex_search(message, match, kNoField)) {
        word = match[2];
        const Descriptor* type =
            google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(match[1]);
        for (int f = 0; type != nullptr && f < type->field_count(); ++f) {
            names.push_back(type->field(f)->name());
        }
    } else if (std::regex_search(message, match, kNoValue)) {
        word = match[1];
        for (const Descriptor* type : ScenarioTypes()) {
            const FieldDescriptor* field = type->FindFieldByName(match[2]);
            if (field == nullptr || field->enum_type() == nullptr) continue;
            for (int v = 0; v < field->enum_type()->value_count(); ++v) {
                names.push_back(field->enum_type()->value(v)->name());
            }
        }
    }
    if (names.empty()) return "";
    return fmt::format(" Did you mean: {}?", android::base::Join(NearestNames(word, names), ", "));
}

// Collects parse errors with the step, line and column of each, and the names nearest to a
// misspelt one.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    explicit ErrorCollector(const std::string& text) : text_(text) {}
    void AddError(int line, int column, const std::string& message) override {
        const std::optional<int> step = StepAt(text_, line, column);
        errors += fmt::format("line {} column {}: {}{}{}\n", line + 1, column + 1,
                              step ? fmt::format("step {}: ", *step) : "", message,
                              NearestNamesHint(message));
    }
    std::string errors;

  private:
    const std::string& text_;
};

// The places of the steps that `tree` holds under `steps`, a repeated Step field; a repeat's
// steps under it.
std::vector<StepPlace> PlacesOf(const TextFormat::ParseInfoTree* tree, const FieldDescriptor* steps,
                                int count) {
    static const FieldDescriptor* const kRepeat =
        tarvo_scenario::Step::descriptor()->FindFieldByName("repeat");
    static const FieldDescriptor* const kRepeatSteps =
        tarvo_scenario::Repeat::descriptor()->FindFieldByName("step");
    std::vector<StepPlace> places;
    for (int i = 0; i < count; ++i) {
        const TextFormat::ParseLocation location = tree->GetLocation(steps, i);
        StepPlace place{location.line + 1, location.column + 1, {}};
        const TextFormat::ParseInfoTree* step = tree->GetTreeForNested(steps, i);
        const TextFormat::ParseInfoTree* repeat =
            step != nullptr ? step->GetTreeForNested(kRepeat, -1) : nullptr;
        if (repeat != nullptr) {
            // Every step of the repeat has a location: count them by it.
            int nested = 0;
            while (repeat->GetLocation(kRepeatSteps, nested).line >= 0) ++nested;
            place.steps = PlacesOf(repeat, kRepeatSteps, nested);
        }
        places.push_back(std::move(place));
    }
    return places;
}

// Checks `steps` in the order they play; the error names the first refused by its place.
Result<void> CheckSteps(const google::protobuf::RepeatedPtrField<tarvo_scenario::Step>& steps,
                        const std::vector<StepPlace>& places, const std::string& label,
                        const std::string& source, StepCheck* check) {
    for (int i = 0; i < steps.size() && i < static_cast<int>(places.size()); ++i) {
        const std::string name = fmt::format("{}step {}", label, i);
        if (steps[i].has_repeat()) {
            Result<void> checked =
                CheckSteps(steps[i].repeat().step(), places[i].steps, name + ", ", source, check);
            if (!checked.ok()) return checked;
            continue;
        }
        if (Result<void> checked = check->Check(steps[i]); !checked.ok()) {
            return Error() << fmt::format("{}line {} column {}: {}: {}",
                                          source.empty() ? "" : source + ": ", places[i].line,
                                          places[i].column, name, checked.error().message());
        }
    }
    return {};
}

}  // namespace

TextTokens::TextTokens(const std::string& text)
    : input_(text.data(), static_cast<int>(text.size())), tokenizer_(&input_, &quiet_) {
    tokenizer_.set_comment_style(google::protobuf::io::Tokenizer::SH_COMMENT_STYLE);
}

Result<void> ParseText(const std::string& text, const std::string& source,
                       google::protobuf::Message* message, TextFormat::ParseInfoTree* tree) {
    TextFormat::Parser parser;
    ErrorCollector errors(text);
    parser.RecordErrorsTo(&errors);
    if (tree != nullptr) parser.WriteLocationsTo(tree);
    if (parser.ParseFromString(text, message)) return {};
    return Error() << (source.empty() ? "" : source + ": ") << errors.errors;
}

Result<Scenario> ParseScenario(const std::string& text, const std::string& source,
                               ScenarioOrigin* origin) {
    TextFormat::ParseInfoTree tree;
    Scenario scenario;
    if (Result<void> parsed = ParseText(text, source, &scenario, &tree); !parsed.ok()) {
        return parsed.error();
    }
    const std::vector<StepPlace> places =
        PlacesOf(&tree, Scenario::descriptor()->FindFieldByName("step"), scenario.step_size());
    StepCheck check;
    if (Result<void> checked = CheckSteps(scenario.step(), places, "", source, &check);
        !checked.ok()) {
        return checked.error();
    }
    if (origin != nullptr) {
        origin->path = source;
        origin->steps = places;
    }
    return scenario;
}

Result<Scenario> LoadScenario(const std::string& path, ScenarioOrigin* origin) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text)) {
        return ErrnoError() << "cannot read " << path;
    }
    return ParseScenario(text, path, origin);
}

}  // namespace tarvo_emu
