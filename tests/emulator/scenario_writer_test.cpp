// The scenario writers: what the daemon did as the steps that expect it, the recorder's file and
// a capture's scenario. Each written file is read back as the player reads it.

#include <signal.h>

#include <chrono>
#include <string>

#include <android/log.h>
#include <gtest/gtest.h>

#include <android-base/result.h>

#include "capture/capture_scenario.h"
#include "scenario/scenario_loader.h"
#include "scenario/scenario_recorder.h"
#include "scenario/scenario_text.h"
#include "scenario/step_handlers.h"

namespace {

using std::chrono::milliseconds;
using tarvo_emu::kDefaultStepTimeout;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

tarvo_scenario::Scenario Loaded(const std::string& text) {
    android::base::Result<tarvo_scenario::Scenario> loaded = tarvo_emu::ParseScenario(text, "w");
    EXPECT_TRUE(loaded.ok()) << loaded.error().message() << "\n" << text;
    return loaded.ok() ? *loaded : tarvo_scenario::Scenario();
}

TarvoMessage PropertyRead(tarvo_message::TarvoMessageType type, uint32_t token) {
    TarvoMessage message;
    message.set_type(type);
    message.set_token(token);
    message.mutable_property()->mutable_read_request()->set_name("persist.vendor.x");
    return message;
}

TEST(ExpectStepTest, DaemonEventsBecomeExactExpectationsThatReplay) {
    // The daemon numbers its own requests: their tokens are left out, an answer's kept.
    const Step request = tarvo_emu::ExpectStep(PropertyRead(tarvo_message::REQUEST, 7));
    EXPECT_FALSE(request.expect().message().has_token());
    EXPECT_TRUE(request.expect().exact_payload());
    EXPECT_FALSE(request.expect().has_timeout_ms());
    const Step response =
        tarvo_emu::ExpectStep(PropertyRead(tarvo_message::RESPONSE, 7), milliseconds(1234));
    EXPECT_EQ(response.expect().message().token(), 7u);
    EXPECT_EQ(response.expect().timeout_ms(), 1234u);

    const Step ril = tarvo_emu::ExpectStep(tarvo_emu::RilRequest{42, 255, "ab"});
    EXPECT_EQ(ril.expect_ril().request(), 42u);
    EXPECT_EQ(ril.expect_ril().data(), "ab");
    EXPECT_EQ(ril.expect_ril().selector(), 255u);

    const Step own = tarvo_emu::ExpectStep(tarvo_emu::LogLine{ANDROID_LOG_WARN, "w"});
    EXPECT_FALSE(own.expect_log().has_tag());
    EXPECT_EQ(own.expect_log().priority(), tarvo_scenario::WARN);
    EXPECT_EQ(own.expect_log().text(), "w");
    const Step other =
        tarvo_emu::ExpectStep(tarvo_emu::LogLine{ANDROID_LOG_INFO, "1 2", "ril"}, "[0-9]+ 2");
    EXPECT_EQ(other.expect_log().tag(), "ril");
    EXPECT_EQ(other.expect_log().text_regex(), "[0-9]+ 2");
    EXPECT_EQ(other.expect_log().text(), "");
}

TEST(ExpectStepTest, WhatCameLateWaitsTwiceAsLongWhenThatIsMoreThanTheDefault) {
    EXPECT_EQ(tarvo_emu::ReplayTimeout(kDefaultStepTimeout / 2), std::nullopt);
    EXPECT_EQ(tarvo_emu::ReplayTimeout(milliseconds(0)), std::nullopt);
    EXPECT_EQ(tarvo_emu::ReplayTimeout(kDefaultStepTimeout / 2 + milliseconds(1)),
              kDefaultStepTimeout + milliseconds(2));
    EXPECT_EQ(tarvo_emu::ReplayTimeout(milliseconds(4000)), milliseconds(8000));
}

TEST(ScenarioRecorderTest, WritesEachStepThenWhatNoStepTookInOrderWithLateOnesWaitedFor) {
    tarvo_scenario::Scenario setup = Loaded(
        "initial_state: 4\nfile { path: \"/data/vendor/radio/a\" content: \"x\" mode: 0640 }\n"
        "step { sleep_ms: 1 }");
    tarvo_emu::ScenarioRecorder recorder(setup);
    using Clock = tarvo_emu::ScenarioRecorder::Clock;
    const Clock::time_point start = Clock::now();
    Step played;
    played.set_modem_state(2);
    recorder.BeforeStep(played, {0, 0, 0, start});
    Step failed;
    failed.set_sleep_ms(9);
    recorder.BeforeStep(failed, {1, 1, 2, start + milliseconds(100)});
    recorder.StepFailed();

    tarvo_emu::ScenarioRecorder::Seen seen;
    seen.messages = {{PropertyRead(tarvo_message::REQUEST, 3), false, start + milliseconds(10)},
                     {PropertyRead(tarvo_message::RESPONSE, 4), true, start + milliseconds(200)},
                     {PropertyRead(tarvo_message::REQUEST, 5), false, start + milliseconds(7000)}};
    seen.ril_requests = {{{42, 255, "ab"}, false, start + milliseconds(5)}};
    seen.log_lines = {
        {{ANDROID_LOG_INFO, "Start modem state monitoring", "tarvo", 77}, false, start},
        {{ANDROID_LOG_INFO, "pid 77 fd: 5", "tarvo", 77}, false, start + milliseconds(20)},
        {{ANDROID_LOG_INFO, "taken", "tarvo", 77}, true, start + milliseconds(300)}};
    const std::string text = recorder.File(seen, start + milliseconds(8000)).text();

    const tarvo_scenario::Scenario written = Loaded(text);
    EXPECT_EQ(written.initial_state(), 4u);
    ASSERT_EQ(written.file_size(), 1);
    EXPECT_NE(text.find("mode: 0640"), std::string::npos) << text;
    // The step played, then by time: the line, the RIL request, the request, the line with a
    // pid loose; the failed step a comment; the late request waited for twice as long.
    ASSERT_EQ(written.step_size(), 6) << text;
    EXPECT_EQ(written.step(0).modem_state(), 2u);
    EXPECT_EQ(written.step(1).expect_log().text(), "Start modem state monitoring") << text;
    EXPECT_EQ(written.step(2).expect_ril().request(), 42u);
    EXPECT_FALSE(written.step(3).expect().message().has_token()) << text;
    EXPECT_FALSE(written.step(3).expect().has_timeout_ms()) << text;
    EXPECT_EQ(written.step(4).expect_log().text_regex(), "pid [0-9]+ fd: [0-9]+") << text;
    EXPECT_NE(text.find("# failed: step { sleep_ms: 9 }\n"), std::string::npos) << text;
    EXPECT_FALSE(written.step(5).expect().message().has_token()) << text;
    EXPECT_EQ(written.step(5).expect().timeout_ms(), 2 * (7000u - 100u)) << text;
    EXPECT_EQ(text.find("taken"), std::string::npos) << text;
}

tarvo_emu::CaptureEvent Event(tarvo_emu::CaptureEvent::Kind kind, double time, int state = 0,
                              const std::string& bytes = "") {
    tarvo_emu::CaptureEvent event;
    event.kind = kind;
    event.time = time;
    event.state = state;
    event.bytes = bytes;
    return event;
}

tarvo_emu::CaptureEvent WriteError(double time) {
    tarvo_emu::CaptureEvent event = Event(tarvo_emu::CaptureEvent::Kind::kFault, time);
    event.fault = tarvo_emu::Fault::kWriteError;
    return event;
}

tarvo_emu::CaptureEvent Message(tarvo_emu::CaptureEvent::Kind kind, const TarvoMessage& message,
                                double time) {
    return Event(kind, time, 0, message.SerializeAsString());
}

TEST(CaptureScenarioTest, TheModemPlaysItsPartAndTheDaemonsIsExpected) {
    using Kind = tarvo_emu::CaptureEvent::Kind;
    TarvoMessage answer = PropertyRead(tarvo_message::RESPONSE, 1);
    answer.mutable_property()->clear_read_request();
    answer.mutable_property()->mutable_read_response()->set_value("v");
    // The rig's own answer: an empty payload of the request's kind.
    TarvoMessage reply;
    reply.set_type(tarvo_message::RESPONSE);
    reply.set_token(9);
    reply.mutable_property();
    tarvo_emu::Capture capture;
    capture.events = {
        Event(Kind::kModemState, 0.0, 4),
        // The modem asks, the daemon reads a property for it: the property is setup.
        Message(Kind::kToDaemon, PropertyRead(tarvo_message::REQUEST, 1), 0.0),
        Message(Kind::kFromDaemon, answer, 0.01),
        WriteError(0.02),
        // The daemon's own request, 6 s later, and the modem's answer to it: a rule before.
        Message(Kind::kFromDaemon, PropertyRead(tarvo_message::REQUEST, 9), 6.01),
        Message(Kind::kToDaemon, reply, 6.5),
        Event(Kind::kSignal, 7.0, SIGUSR1),
        Event(Kind::kModemState, 7.05, 2),
        Event(Kind::kLog, 7.1),
        Event(Kind::kFromDaemon, 7.2, 0, "\xff\xff"),
    };
    capture.events[8].log = {ANDROID_LOG_INFO, "a line"};
    const std::string text = tarvo_emu::CaptureScenarioText(capture, "c.strace");
    EXPECT_EQ(text.rfind("# Decoded by tarvo-emu from c.strace: ", 0), 0u) << text;
    const tarvo_scenario::Scenario written = Loaded(text);
    EXPECT_EQ(written.initial_state(), 4u);
    ASSERT_EQ(written.property_size(), 1) << text;
    EXPECT_EQ(written.property(0).value(), "v");
    ASSERT_EQ(written.step_size(), 8) << text;
    // The write error, and the rule that answers the daemon's request, are in place before the
    // modem's message that led to them.
    EXPECT_EQ(written.step(0).fault(), tarvo_scenario::WRITE_ERROR) << text;
    EXPECT_EQ(written.step(1).auto_reply().delay_ms(), 490u) << text;
    EXPECT_FALSE(written.step(1).auto_reply().has_reply()) << text;
    EXPECT_EQ(written.step(2).send().token(), 1u) << text;
    EXPECT_EQ(written.step(3).expect().message().token(), 1u) << text;
    EXPECT_FALSE(written.step(3).expect().has_timeout_ms()) << text;
    // The daemon's own request, without its token, waited for twice the 5.99 s it took.
    EXPECT_FALSE(written.step(4).expect().message().has_token()) << text;
    EXPECT_EQ(written.step(4).expect().timeout_ms(), 11980u) << text;
    EXPECT_EQ(written.step(5).sleep_ms(), 500u) << text;
    EXPECT_EQ(written.step(6).signal_daemon(), SIGUSR1) << text;
    EXPECT_EQ(written.step(7).modem_state(), 2u) << text;
    EXPECT_NE(text.find("\n# log: I tarvo: a line\n"), std::string::npos) << text;
    EXPECT_NE(text.find("(bytes that do not parse)\n"), std::string::npos) << text;
}

}  // namespace
