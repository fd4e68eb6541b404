// The soak's shrinker on a scripted divergence: which stimuli it keeps, how many replays it says it
// took, and which divergences it takes for the one it shrinks. A wrong answer hands the user a
// scenario that does not show the fault, or one buried in stimuli it does not need.

#include "soak/soak_shrinker.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>
#include <gtest/gtest.h>

namespace tarvo_emu {
namespace {

using tarvo_scenario::Step;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;

constexpr size_t kStimuli = 16;
constexpr std::chrono::seconds kBudget{60};
const std::string kSignature = "expect result 0 file: differs";

// Each stimulus names its number in the run, which the script reads back.
std::vector<Step> Stimuli() {
    std::vector<Step> stimuli(kStimuli);
    for (size_t i = 0; i < kStimuli; ++i) stimuli[i].set_note(std::to_string(i));
    return stimuli;
}

std::vector<size_t> Numbers() {
    std::vector<size_t> numbers(kStimuli);
    for (size_t i = 0; i < kStimuli; ++i) numbers[i] = i;
    return numbers;
}

// A run that diverges with kSignature at stimulus `at` when it holds all of `needed` (`at`
// among them), and with `other` when it holds `at` without the others, if `other` is given.
class ScriptedDivergence {
  public:
    ScriptedDivergence(std::set<size_t> needed, size_t at, std::optional<std::string> other = {})
        : needed_(std::move(needed)), at_(at), other_(std::move(other)) {}

    std::optional<SoakDivergence> operator()(const std::vector<Step>& stimuli) {
        ++replays;
        std::set<size_t> held;
        std::optional<size_t> at;
        for (size_t i = 0; i < stimuli.size(); ++i) {
            const size_t number = std::stoul(stimuli[i].note());
            held.insert(number);
            if (number == at_) at = i;
        }
        if (!at) return std::nullopt;
        for (size_t number : needed_) {
            if (held.count(number) == 0) {
                if (!other_) return std::nullopt;
                return SoakDivergence{*at, *other_, "another failure"};
            }
        }
        return SoakDivergence{*at, kSignature, "the failure"};
    }

    size_t replays = 0;

  private:
    const std::set<size_t> needed_;
    const size_t at_;
    const std::optional<std::string> other_;
};

struct Shrunk {
    ShrinkResult result;
    size_t replays = 0;
    std::vector<std::string> reports;
};

Shrunk Shrink(ScriptedDivergence script, size_t diverged_at = kStimuli - 1) {
    Shrunk shrunk;
    shrunk.result = ShrinkStimuli(
        Stimuli(), Numbers(), SoakDivergence{diverged_at, kSignature, "the failure"}, kBudget,
        [&script](const std::vector<Step>& stimuli) { return script(stimuli); },
        [&shrunk](const std::string& line) { shrunk.reports.push_back(line); });
    shrunk.replays = script.replays;
    return shrunk;
}

std::vector<std::string> Notes(const std::vector<Step>& stimuli) {
    std::vector<std::string> notes;
    for (const Step& step : stimuli) notes.push_back(step.note());
    return notes;
}

TEST(SoakShrinkerTest, KeepsExactlyTheStimuliThatTheDivergenceNeeds) {
    const Shrunk shrunk = Shrink(ScriptedDivergence({3, 9, 15}, 15));
    ASSERT_TRUE(shrunk.result.reproduced.has_value());
    EXPECT_EQ(shrunk.result.reproduced->signature, kSignature);
    EXPECT_THAT(shrunk.result.numbers, ElementsAre(3, 9, 15));
    EXPECT_THAT(Notes(shrunk.result.stimuli), ElementsAre("3", "9", "15"));
    EXPECT_EQ(shrunk.result.reproduced->stimulus, 2u);
}

TEST(SoakShrinkerTest, CutsTheRunAfterTheStimulusWhereItDiverges) {
    // Stimuli after the divergence were played in the run but are not needed.
    const Shrunk shrunk = Shrink(ScriptedDivergence({3, 9}, 9));
    ASSERT_TRUE(shrunk.result.reproduced.has_value());
    EXPECT_THAT(shrunk.result.numbers, ElementsAre(3, 9));
}

TEST(SoakShrinkerTest, CountsAndReportsEachReplay) {
    const Shrunk shrunk = Shrink(ScriptedDivergence({3, 9, 15}, 15));
    EXPECT_EQ(shrunk.result.replays, shrunk.replays);
    ASSERT_EQ(shrunk.reports.size(), shrunk.replays);
    EXPECT_THAT(shrunk.reports.front(), HasSubstr("replay 1: 1 stimuli, passes"));
    EXPECT_THAT(shrunk.reports.back(),
                HasSubstr("replay " + std::to_string(shrunk.replays) + ": "));
}

TEST(SoakShrinkerTest, TakesNoOtherDivergenceForTheOneItShrinks) {
    // Without 3 and 9 the run still fails at 15, but otherwise.
    const Shrunk shrunk = Shrink(ScriptedDivergence({3, 9, 15}, 15, "expect_log: timed out"));
    ASSERT_TRUE(shrunk.result.reproduced.has_value());
    EXPECT_EQ(shrunk.result.reproduced->signature, kSignature);
    EXPECT_THAT(shrunk.result.numbers, ElementsAre(3, 9, 15));
    EXPECT_THAT(shrunk.reports.front(), HasSubstr("diverges otherwise"));
}

TEST(SoakShrinkerTest, KeepsTheWholeRunWhenNoReplayDivergesAlike) {
    // The run needs a stimulus that is not there: a timing of its own.
    const Shrunk shrunk = Shrink(ScriptedDivergence({kStimuli}, 15, "expect_log: timed out"));
    EXPECT_FALSE(shrunk.result.reproduced.has_value());
    EXPECT_THAT(shrunk.result.numbers, ElementsAreArray(Numbers()));
    EXPECT_EQ(shrunk.result.stimuli.size(), kStimuli);
    // Tails of 1, 2, 4, 8 and all 16 stimuli.
    EXPECT_EQ(shrunk.result.replays, 5u);
}

Step StepOf(const std::string& text) {
    Step step;
    EXPECT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &step)) << text;
    return step;
}

TEST(SoakShrinkerTest, ShrinksWhatTheStimuliSendWhileTheyDivergeAlike) {
    // 15 diverges while 3 reports two readings or more and 9 writes at least 300 bytes; nothing
    // else that they send matters, and tokens and seeds are never shrunk.
    std::vector<Step> stimuli = Stimuli();
    const std::string reading = "sensors { sensor: 4 temperature: -36000 update: true } ";
    stimuli[3].MergeFrom(StepOf("send { token: 5 modem_temperature { set_request { " + reading +
                                reading + reading + reading + "} } }"));
    stimuli[9].MergeFrom(
        StepOf("send_generated { message { token: 7 file { write_request { file_name: \"abcdef\" "
               "total_size: 5000 offset: 40 } } } data { random_seed: 3 size: 5000 } }"));
    const auto script = [](const std::vector<Step>& played) -> std::optional<SoakDivergence> {
        std::optional<size_t> at;
        bool readings = false;
        bool written = false;
        for (size_t i = 0; i < played.size(); ++i) {
            const Step& step = played[i];
            if (step.note() == "15") at = i;
            if (step.note() == "3") {
                readings = step.send().modem_temperature().set_request().sensors_size() >= 2;
            }
            if (step.note() == "9") written = step.send_generated().data().size() >= 300;
        }
        if (!at || !readings || !written) return std::nullopt;
        return SoakDivergence{*at, kSignature, "the failure"};
    };
    const ShrinkResult shrunk = ShrinkStimuli(Stimuli(), Numbers(), {15, kSignature, ""}, kBudget,
                                              script, [](const std::string&) {});
    // Shrunk from the stimuli above, not the plain ones.
    const ShrinkResult result = ShrinkStimuli(stimuli, Numbers(), {15, kSignature, ""}, kBudget,
                                              script, [](const std::string&) {});
    EXPECT_FALSE(shrunk.reproduced.has_value());
    ASSERT_TRUE(result.reproduced.has_value());
    ASSERT_THAT(result.numbers, ElementsAre(3, 9, 15));
    const std::string small_reading = "sensors { sensor: 1 temperature: -1 update: true } ";
    Step readings = StepOf("send { token: 5 modem_temperature { set_request { " + small_reading +
                           small_reading + "} } }");
    readings.set_note("3");
    Step written = StepOf(
        "send_generated { message { token: 7 file { write_request { file_name: \"\" "
        "total_size: 1 offset: 1 } } } data { random_seed: 3 size: 312 } }");
    written.set_note("9");
    std::string differences;
    google::protobuf::util::MessageDifferencer differencer;
    differencer.ReportDifferencesToString(&differences);
    EXPECT_TRUE(differencer.Compare(readings, result.stimuli[0])) << differences;
    EXPECT_TRUE(differencer.Compare(written, result.stimuli[1])) << differences;
}

}  // namespace
}  // namespace tarvo_emu
