#include "scenario/scenario_loader.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/text_format.h>

#include <fmt/format.h>

#include <algorithm>
#include <regex>
#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "scenario/nearest_names.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;

namespace tarvo_emu {

namespace {

using google::protobuf::Descriptor;
using google::protobuf::FieldDescriptor;
using google::protobuf::TextFormat;

// The top-level step of `text` that the place (line and column from 0) falls in; -1 when it
// is in the setup.
int StepAt(const std::string& text, int line, int column) {
    google::protobuf::io::ArrayInputStream input(text.data(), static_cast<int>(text.size()));
    // The parser reports the text's faults; here they only end the walk.
    class Quiet : public google::protobuf::io::ErrorCollector {
        void AddError(int, int, const std::string&) override {}
    } quiet;
    google::protobuf::io::Tokenizer tokenizer(&input, &quiet);
    tokenizer.set_comment_style(google::protobuf::io::Tokenizer::SH_COMMENT_STYLE);
    int depth = 0;
    int step = -1;
    bool in_step = false;
    while (tokenizer.Next()) {
        const google::protobuf::io::Tokenizer::Token& token = tokenizer.current();
        if (token.line > line || (token.line == line && token.column > column)) break;
        if (depth == 0 && token.type == google::protobuf::io::Tokenizer::TYPE_IDENTIFIER) {
            in_step = token.text == "step";
            if (in_step) ++step;
        } else if (token.text == "{" || token.text == "<") {
            ++depth;
        } else if ((token.text == "}" || token.text == ">") && depth > 0 && --depth == 0) {
            in_step = false;
        }
    }
    return in_step ? step : -1;
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

// The names that a misspelt name in the parser's `message` may have meant: the fields of the
// message type it names, or the values of the enum fields it names.
std::vector<std::string> KnownNames(const std::string& message, std::string* word) {
    static const std::regex kNoField(R"re(Message type "([\w.]+)" has no field named "(\w+)")re");
    static const std::regex kNoValue(
        R"re(Unknown enumeration value of "(\w+)" for field "(\w+)")re");
    std::smatch match;
    std::vector<std::string> names;
    if (std::regex_search(message, match, kNoField)) {
        *word = match[2];
        const Descriptor* type =
            google::protobuf::DescriptorPool::generated_pool()->FindMessageTypeByName(match[1]);
        for (int f = 0; type != nullptr && f < type->field_count(); ++f) {
            names.push_back(type->field(f)->name());
        }
    } else if (std::regex_search(message, match, kNoValue)) {
        *word = match[1];
        for (const Descriptor* type : ScenarioTypes()) {
            const FieldDescriptor* field = type->FindFieldByName(match[2]);
            if (field == nullptr || field->enum_type() == nullptr) continue;
            for (int v = 0; v < field->enum_type()->value_count(); ++v) {
                names.push_back(field->enum_type()->value(v)->name());
            }
        }
    }
    return names;
}

// Collects parse errors with the step, line and column of each, and the names nearest to a
// misspelt one.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    explicit ErrorCollector(const std::string& text) : text_(text) {}
    void AddError(int line, int column, const std::string& message) override {
        const int step = StepAt(text_, line, column);
        errors += fmt::format("line {} column {}: {}{}{}\n", line + 1, column + 1,
                              step >= 0 ? fmt::format("step {}: ", step) : "", message,
                              NearestNamesHint(message));
    }
    std::string errors;

  private:
    const std::string& text_;
};

}  // namespace

std::string NearestNamesHint(const std::string& message) {
    std::string word;
    const std::vector<std::string> names = KnownNames(message, &word);
    if (names.empty()) return "";
    return fmt::format(" Did you mean: {}?", android::base::Join(NearestNames(word, names), ", "));
}

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::TextFormat;

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
        StepPlace place{tree->GetLocation(steps, i).line + 1, {}};
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

}  // namespace

Result<Scenario> ParseScenario(const std::string& text, const std::string& source,
                               ScenarioOrigin* origin) {
    TextFormat::Parser parser;
    ErrorCollector errors(text);
    parser.RecordErrorsTo(&errors);
    TextFormat::ParseInfoTree tree;
    if (origin != nullptr) parser.WriteLocationsTo(&tree);
    Scenario scenario;
    if (!parser.ParseFromString(text, &scenario)) return Error() << source << ": " << errors.errors;
    if (origin != nullptr) {
        origin->path = source;
        origin->steps =
            PlacesOf(&tree, Scenario::descriptor()->FindFieldByName("step"), scenario.step_size());
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
