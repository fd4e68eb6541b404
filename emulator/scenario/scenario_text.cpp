#include "scenario/scenario_text.h"

#include <vector>

#include <android-base/file.h>
#include <android-base/strings.h>

#include "peers/transcript.h"
#include "scenario/step_handlers.h"

using std::chrono::milliseconds;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

std::string StepLine(const tarvo_scenario::Step& step) {
    return "step { " + FullStepText(step) + " }\n";
}

class StepText : public OneLineText {
  public:
    explicit StepText(bool shorten) : OneLineText(shorten) {
        ShowInOctal(tarvo_scenario::SeedFile::descriptor()->FindFieldByName("mode"));
        ShowInOctal(tarvo_scenario::ExpectFile::descriptor()->FindFieldByName("mode"));
    }
};

}  // namespace

std::string ShortStepText(const google::protobuf::Message& message) {
    static const StepText text(true);
    return text(message);
}

std::string FullStepText(const google::protobuf::Message& message) {
    static const StepText text(false);
    return text(message);
}

std::string SetupText(const tarvo_scenario::Scenario& scenario) {
    tarvo_scenario::Scenario setup = scenario;
    setup.clear_step();
    const google::protobuf::Reflection* reflection = setup.GetReflection();
    std::vector<const google::protobuf::FieldDescriptor*> fields;
    reflection->ListFields(setup, &fields);
    std::string text;
    for (const google::protobuf::FieldDescriptor* field : fields) {
        const int count = field->is_repeated() ? reflection->FieldSize(setup, field) : 1;
        for (int i = 0; i < count; ++i) {
            // A copy holding this entry alone prints as the entry's line.
            tarvo_scenario::Scenario entry = setup;
            for (const google::protobuf::FieldDescriptor* other : fields) {
                if (other != field) reflection->ClearField(&entry, other);
            }
            if (field->is_repeated()) {
                reflection->SwapElements(&entry, field, 0, i);
                while (reflection->FieldSize(entry, field) > 1) {
                    reflection->RemoveLast(&entry, field);
                }
            }
            text += FullStepText(entry) + "\n";
        }
    }
    return text;
}

Step ExpectStep(tarvo_message::TarvoMessage message, std::optional<milliseconds> timeout) {
    if (message.type() == tarvo_message::REQUEST) message.clear_token();
    Step step;
    tarvo_scenario::Expect* expect = step.mutable_expect();
    *expect->mutable_message() = std::move(message);
    expect->set_exact_payload(true);
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

Step ExpectStep(const RilRequest& request, std::optional<milliseconds> timeout) {
    Step step;
    tarvo_scenario::ExpectRil* expect = step.mutable_expect_ril();
    expect->set_request(request.request);
    expect->set_selector(request.selector);
    expect->set_data(request.data);
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

Step ExpectStep(const LogLine& line, const std::optional<std::string>& text_regex,
                std::optional<milliseconds> timeout) {
    Step step;
    tarvo_scenario::ExpectLog* expect = step.mutable_expect_log();
    expect->set_priority(static_cast<tarvo_scenario::Priority>(line.priority));
    if (line.tag != kDaemonTag) expect->set_tag(line.tag);
    if (text_regex) {
        expect->set_text_regex(*text_regex);
    } else {
        expect->set_text(line.text);
    }
    if (timeout) expect->set_timeout_ms(static_cast<uint32_t>(timeout->count()));
    return step;
}

std::optional<milliseconds> ReplayTimeout(milliseconds waited) {
    const milliseconds twice = 2 * waited;
    if (twice <= kDefaultStepTimeout) return std::nullopt;
    return twice;
}

ScenarioFile::ScenarioFile(const std::string& header, const tarvo_scenario::Scenario& setup) {
    AddComment(header);
    text_ += "\n" + SetupText(setup);
}

void ScenarioFile::AddStep(const tarvo_scenario::Step& step) {
    if (!step.note().empty()) text_ += "\n";
    text_ += StepLine(step);
}

void ScenarioFile::AddFailedStep(const tarvo_scenario::Step& step) {
    text_ += "# failed: " + StepLine(step);
}

void ScenarioFile::AddComment(const std::string& text) {
    for (const std::string& line : android::base::Split(text, "\n")) text_ += "# " + line + "\n";
}

android::base::Result<void> ScenarioFile::Write(const std::string& path) const {
    if (!android::base::WriteStringToFile(text_, path, /*follow_symlinks=*/true)) {
        return android::base::ErrnoError() << "cannot write " << path;
    }
    return {};
}

}  // namespace tarvo_emu
