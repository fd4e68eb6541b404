#include "scenario/scenario_loader.h"

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>

#include <fmt/format.h>

#include <android-base/file.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using tarvo_scenario::Scenario;

namespace tarvo_emu {

namespace {

// Collects parse errors with their line numbers.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int line, int column, const std::string& message) override {
        errors += fmt::format("line {} column {}: {}\n", line + 1, column + 1, message);
    }
    std::string errors;
};

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
    ErrorCollector errors;
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
