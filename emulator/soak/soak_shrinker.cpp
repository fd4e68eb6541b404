#include "soak/soak_shrinker.h"

#include <cctype>
#include <set>

#include <google/protobuf/text_format.h>

#include <android-base/stringprintf.h>

#include "scenario/scenario_player.h"
#include "soak/soak_model.h"

using android::base::StringPrintf;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Where a failure's kind ends: the details after it name bytes, sizes and tokens.
std::string KindOf(const std::string& text) {
    std::string kind;
    for (char c : text) {
        if (c == ':' || c == ';' || c == ',' || c == '\n') break;
        if (!isdigit(static_cast<unsigned char>(c))) kind += c;
    }
    return kind;
}

using google::protobuf::FieldDescriptor;

// Fields that name rather than size: a payload is shrunk without them.
const std::set<std::string>& KeptFields() {
    static const auto* const kKept =
        new std::set<std::string>{"token", "message_id", "random_seed", "timeout_ms"};
    return *kKept;
}

// Halves the `n`th field of `message` that can be smaller, in the order of a walk through its
// fields and those of the messages it holds: a repeated field loses its second half, a string
// its second half, a number above 1 half its value. False when it has fewer such fields.
bool HalveField(google::protobuf::Message* message, size_t* n) {
    const google::protobuf::Reflection* reflection = message->GetReflection();
    std::vector<const FieldDescriptor*> fields;
    reflection->ListFields(*message, &fields);
    const auto halve = [&n](auto value, auto set) {
        if (value == 0 || (*n)-- != 0) return false;
        set(value);
        return true;
    };
    for (const FieldDescriptor* field : fields) {
        if (KeptFields().count(field->name())) continue;
        if (field->is_repeated()) {
            const int size = reflection->FieldSize(*message, field);
            if (halve(size, [&](int) {
                    for (int i = size / 2; i < size; ++i) reflection->RemoveLast(message, field);
                })) {
                return true;
            }
            if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) continue;
            for (int i = 0; i < size; ++i) {
                if (HalveField(reflection->MutableRepeatedMessage(message, field, i), n)) {
                    return true;
                }
            }
            continue;
        }
        bool halved = false;
        switch (field->cpp_type()) {
            case FieldDescriptor::CPPTYPE_MESSAGE:
                halved = HalveField(reflection->MutableMessage(message, field), n);
                break;
            case FieldDescriptor::CPPTYPE_STRING:
                halved = halve(reflection->GetString(*message, field).size(), [&](size_t size) {
                    reflection->SetString(
                        message, field, reflection->GetString(*message, field).substr(0, size / 2));
                });
                break;
            // Never down to 0 from 1: a block size of 0 is another request, not a smaller one.
            case FieldDescriptor::CPPTYPE_UINT32:
                halved = halve(reflection->GetUInt32(*message, field) / 2,
                               [&](uint32_t half) { reflection->SetUInt32(message, field, half); });
                break;
            case FieldDescriptor::CPPTYPE_UINT64:
                halved = halve(reflection->GetUInt64(*message, field) / 2,
                               [&](uint64_t half) { reflection->SetUInt64(message, field, half); });
                break;
            case FieldDescriptor::CPPTYPE_INT64:
                halved = halve(reflection->GetInt64(*message, field) / 2,
                               [&](int64_t half) { reflection->SetInt64(message, field, half); });
                break;
            default:
                break;
        }
        if (halved) return true;
    }
    return false;
}

// `stimulus` with the `n`th field of what it sends halved; none when it has fewer such fields.
std::optional<Step> SmallerPayload(Step stimulus, size_t n) {
    google::protobuf::Message* payload = nullptr;
    if (stimulus.has_send()) payload = stimulus.mutable_send();
    if (stimulus.has_send_generated()) payload = stimulus.mutable_send_generated();
    if (stimulus.has_send_raw() && n == 0 && stimulus.send_raw().size() > 1) {
        stimulus.set_send_raw(stimulus.send_raw().substr(0, stimulus.send_raw().size() / 2));
        return stimulus;
    }
    if (payload == nullptr || !HalveField(payload, &n)) return std::nullopt;
    return stimulus;
}

}  // namespace

std::string SoakSignature(const Step& step, const StepFailure& failure) {
    const google::protobuf::FieldDescriptor* action =
        Step::descriptor()->FindFieldByNumber(step.action_case());
    std::string signature = action != nullptr ? action->name() : "step";
    if (step.has_expect()) {
        const tarvo_message::TarvoMessage& message = step.expect().message();
        signature += StringPrintf(" result %d", message.has_result() ? message.result() : -1);
        std::string payload;
        google::protobuf::TextFormat::Printer printer;
        printer.SetSingleLineMode(true);
        tarvo_message::TarvoMessage shape = message;
        shape.clear_token();
        printer.PrintToString(shape, &payload);
        signature += " " + KindOf(payload);
    } else if (step.has_expect_log()) {
        signature += " " + KindOf(step.expect_log().text() + step.expect_log().text_regex());
    }
    return signature + ": " + (failure.cancelled ? "cancelled" : KindOf(failure.reason));
}

tarvo_scenario::Scenario SoakScenario(const tarvo_scenario::Scenario& setup,
                                      const std::vector<Step>& stimuli,
                                      const std::vector<size_t>& numbers) {
    tarvo_scenario::Scenario scenario = setup;
    SoakModel model(setup);
    for (Step& step : model.Start()) *scenario.add_step() = std::move(step);
    for (size_t i = 0; i < stimuli.size(); ++i) {
        std::vector<Step> steps = model.Play(stimuli[i]);
        if (i < numbers.size()) steps.front().set_note(StringPrintf("stimulus %zu", numbers[i]));
        for (Step& step : steps) *scenario.add_step() = std::move(step);
    }
    return scenario;
}

std::optional<SoakDivergence> PlayStimuli(const tarvo_scenario::Scenario& setup,
                                          const std::vector<Step>& stimuli) {
    ScenarioSession session(setup, nullptr);
    if (android::base::Result<void> started = session.Start(); !started.ok()) {
        return SoakDivergence{0, "start", started.error().message()};
    }
    SoakModel model(setup);
    int index = 0;
    const auto play = [&](const std::vector<Step>& steps,
                          size_t stimulus) -> std::optional<SoakDivergence> {
        for (const Step& step : steps) {
            StepResult played = session.Play(step, index++);
            if (!played.ok()) {
                return SoakDivergence{stimulus, SoakSignature(step, played.error()),
                                      played.error().message()};
            }
        }
        return std::nullopt;
    };
    if (std::optional<SoakDivergence> diverged = play(model.Start(), 0)) return diverged;
    for (size_t i = 0; i < stimuli.size(); ++i) {
        if (std::optional<SoakDivergence> diverged = play(model.Play(stimuli[i]), i)) {
            return diverged;
        }
    }
    if (android::base::Result<void> health = session.rig().CheckHealth(); !health.ok()) {
        return SoakDivergence{stimuli.empty() ? 0 : stimuli.size() - 1, "health",
                              health.error().message()};
    }
    return std::nullopt;
}

ShrinkResult ShrinkStimuli(std::vector<Step> stimuli, std::vector<size_t> numbers,
                           const SoakDivergence& divergence, std::chrono::seconds budget,
                           const StimuliReplay& replay,
                           const std::function<void(const std::string&)>& report) {
    const auto deadline = std::chrono::steady_clock::now() + budget;
    ShrinkResult result;
    // Plays a candidate; keeps it, cut after the stimulus that failed, when it fails alike.
    const auto keeps = [&](const std::vector<Step>& candidate,
                           const std::vector<size_t>& candidate_numbers) {
        ++result.replays;
        std::optional<SoakDivergence> diverged = replay(candidate);
        const bool same = diverged && diverged->signature == divergence.signature;
        report(StringPrintf("replay %zu: %zu stimuli, %s", result.replays, candidate.size(),
                            same       ? "diverges alike"
                            : diverged ? "diverges otherwise"
                                       : "passes"));
        if (!same) return false;
        const size_t end = std::min(diverged->stimulus + 1, candidate.size());
        result.stimuli.assign(candidate.begin(), candidate.begin() + end);
        result.numbers.assign(candidate_numbers.begin(), candidate_numbers.begin() + end);
        result.reproduced = std::move(diverged);
        return true;
    };
    const auto in_time = [&deadline] { return std::chrono::steady_clock::now() < deadline; };

    // The shortest tail, doubling: a divergence usually needs only the stimuli just before it.
    for (size_t tail = 1; in_time(); tail = std::min(tail * 2, stimuli.size())) {
        const size_t start = stimuli.size() - tail;
        if (keeps({stimuli.begin() + start, stimuli.end()},
                  {numbers.begin() + start, numbers.end()}) ||
            tail == stimuli.size()) {
            break;
        }
    }
    if (!result.reproduced) {
        result.stimuli = std::move(stimuli);
        result.numbers = std::move(numbers);
        return result;
    }
    // Without each stretch, the last stimulus (where it diverges) kept.
    for (size_t chunk = result.stimuli.size() / 2; chunk >= 1 && in_time(); chunk /= 2) {
        for (size_t start = 0; start + 1 < result.stimuli.size() && in_time();) {
            const size_t end = std::min(start + chunk, result.stimuli.size() - 1);
            std::vector<Step> candidate = result.stimuli;
            std::vector<size_t> candidate_numbers = result.numbers;
            candidate.erase(candidate.begin() + start, candidate.begin() + end);
            candidate_numbers.erase(candidate_numbers.begin() + start,
                                    candidate_numbers.begin() + end);
            if (!keeps(candidate, candidate_numbers)) start = end;
        }
    }
    // Then what each stimulus sends, a field at a time, again while any field got smaller.
    for (bool smaller = true; smaller && in_time();) {
        smaller = false;
        for (size_t i = 0; i < result.stimuli.size() && in_time(); ++i) {
            for (size_t n = 0; in_time();) {
                std::optional<Step> candidate = SmallerPayload(result.stimuli[i], n);
                if (!candidate) break;
                std::vector<Step> stimuli_left = result.stimuli;
                stimuli_left[i] = std::move(*candidate);
                if (keeps(stimuli_left, result.numbers)) {
                    smaller = true;
                } else {
                    ++n;
                }
                if (i >= result.stimuli.size()) break;
            }
        }
    }
    return result;
}

}  // namespace tarvo_emu
