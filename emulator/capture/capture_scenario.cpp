#include "capture/capture_scenario.h"

#include <signal.h>

#include <google/protobuf/text_format.h>
#include <google/protobuf/util/message_differencer.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <vector>

#include <android-base/stringprintf.h>

#include "capture/capture_reader.h"
#include "device/device_facts.h"
#include "scenario/daemon_steps.h"
#include "scenario/scenario.pb.h"
#include "scenario/step_text.h"
#include "scenario/step_wait.h"

using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// A modem that answers sooner than this is answered by the rig after its default delay: the
// difference is noise between a device and the host.
constexpr double kReplyDelayKept = 0.1;
// A pause before the modem's next action that is kept as a sleep.
constexpr double kPauseKept = 0.1;
constexpr int kDefaultReplyDelayMs = 20;

// One line of the scenario: a step, or a comment.
struct Line {
    std::optional<Step> step;
    std::string comment;
};

bool IsAction(const Step& step) {
    return step.has_send() || step.has_send_raw() || step.has_fault() || step.has_modem_state() ||
           step.has_signal_daemon() || step.has_sleep_ms();
}

// How the modem answered one request of the daemon, as the rule that makes that answer.
tarvo_scenario::AutoReply RuleOf(const TarvoMessage& request, const TarvoMessage* reply,
                                 double delay) {
    tarvo_scenario::AutoReply rule;
    rule.set_payload_case(request.payload_case());
    if (reply == nullptr) {
        rule.set_no_reply(true);
        return rule;
    }
    if (reply->result() != 0) rule.set_result(reply->result());
    if (delay >= kReplyDelayKept)
        rule.set_delay_ms(static_cast<uint32_t>(std::lround(delay * 1e3)));
    TarvoMessage overrides = *reply;
    overrides.clear_token();
    overrides.clear_result();
    if (overrides.type() == tarvo_message::RESPONSE) overrides.clear_type();
    if (overrides.message_id() == static_cast<uint32_t>(request.payload_case())) {
        overrides.clear_message_id();
    }
    // The rig answers with an empty payload of the request's case: only more is worth saying.
    TarvoMessage empty;
    const google::protobuf::FieldDescriptor* field =
        TarvoMessage::descriptor()->FindFieldByNumber(request.payload_case());
    if (field != nullptr) empty.GetReflection()->MutableMessage(&empty, field);
    if (!google::protobuf::util::MessageDifferencer::Equals(overrides, empty)) {
        *rule.mutable_reply() = overrides;
    }
    return rule;
}

}  // namespace

std::string CaptureScenarioText(const Capture& capture, const std::string& source) {
    using Kind = CaptureEvent::Kind;
    const std::vector<CaptureEvent>& events = capture.events;
    std::vector<std::optional<TarvoMessage>> messages(events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        if (events[i].kind != Kind::kToDaemon && events[i].kind != Kind::kFromDaemon) continue;
        TarvoMessage message;
        if (message.ParseFromString(events[i].bytes)) messages[i] = std::move(message);
    }
    const auto is_request = [&](size_t i, Kind from) {
        return events[i].kind == from && messages[i] &&
               messages[i]->type() == tarvo_message::REQUEST && messages[i]->has_token();
    };

    // The answers to each side's requests, by token: the modem's become rules, the daemon's
    // show the properties and files it read.
    std::map<size_t, size_t> replies;  // request's event -> answer's event
    std::set<size_t> answers;          // the modem's answers, not sent by steps
    for (const Kind from : {Kind::kFromDaemon, Kind::kToDaemon}) {
        const Kind to = from == Kind::kFromDaemon ? Kind::kToDaemon : Kind::kFromDaemon;
        std::map<uint32_t, size_t> open;
        for (size_t i = 0; i < events.size(); ++i) {
            if (is_request(i, from)) open[messages[i]->token()] = i;
            if (events[i].kind != to || !messages[i] ||
                messages[i]->type() != tarvo_message::RESPONSE) {
                continue;
            }
            const auto request = open.find(messages[i]->token());
            if (request == open.end()) continue;
            replies[request->second] = i;
            if (to == Kind::kToDaemon) answers.insert(i);
            open.erase(request);
        }
    }

    tarvo_scenario::Scenario setup;
    std::map<std::string, std::string> properties;
    std::set<std::string> written;  // properties and files that the session itself wrote
    std::map<std::string, std::string> files;
    std::vector<Line> lines;
    std::map<int, tarvo_scenario::AutoReply> rules;
    std::optional<size_t> last_action;  // index in `lines`
    std::optional<double> last_time;
    bool state_known = false;

    const auto add = [&](Step step) {
        lines.push_back({std::move(step), {}});
        if (IsAction(*lines.back().step)) last_action = lines.size() - 1;
    };
    const auto comment = [&](const std::string& text) { lines.push_back({std::nullopt, text}); };
    // A step that must be in place before whatever led the daemon to its next move.
    const auto before_cause = [&](Step step) {
        const size_t at = last_action ? *last_action : 0;
        lines.insert(lines.begin() + at, {std::move(step), {}});
        if (last_action) ++*last_action;
    };
    const auto pause = [&](const CaptureEvent& event) {
        if (event.time && last_time && *event.time - *last_time >= kPauseKept) {
            Step step;
            step.set_sleep_ms(static_cast<uint32_t>(std::lround((*event.time - *last_time) * 1e3)));
            add(std::move(step));
        }
    };

    for (size_t i = 0; i < events.size(); ++i) {
        const CaptureEvent& event = events[i];
        const auto [label, text] = DescribeEvent(event, false);
        Step step;
        switch (event.kind) {
            case Kind::kToDaemon: {
                if (answers.count(i) != 0) break;
                pause(event);
                if (messages[i]) {
                    *step.mutable_send() = *messages[i];
                } else {
                    step.set_send_raw(event.bytes);
                }
                add(std::move(step));
                const TarvoMessage* request = messages[i] ? &*messages[i] : nullptr;
                const auto reply = replies.find(i);
                if (request == nullptr || reply == replies.end()) break;
                const TarvoMessage& answer = *messages[reply->second];
                if (answer.result() != tarvo_message::RESULT_SUCCESS) break;
                // What the daemon read for the modem was there before the session.
                if (request->property().has_write_request()) {
                    written.insert(request->property().write_request().name());
                }
                if (request->property().has_read_request() &&
                    answer.property().has_read_response()) {
                    const std::string& name = request->property().read_request().name();
                    if (written.count(name) == 0 && properties.count(name) == 0) {
                        properties[name] = answer.property().read_response().value();
                    }
                }
                const std::optional<std::string> directory =
                    FileDirectory(request->file().has_write_request()
                                      ? request->file().write_request().file_dir()
                                      : request->file().read_request().file_dir());
                if (!directory) break;
                if (request->file().has_write_request()) {
                    written.insert(*directory + request->file().write_request().file_name());
                }
                if (request->file().has_read_request() && answer.file().has_read_response() &&
                    answer.file().read_response().has_data()) {
                    const std::string path =
                        *directory + request->file().read_request().file_name();
                    if (written.count(path) != 0) break;
                    std::string& content = files[path];
                    const size_t offset = request->file().read_request().offset();
                    const std::string& data = answer.file().read_response().data();
                    if (content.size() < offset + data.size()) content.resize(offset + data.size());
                    content.replace(offset, data.size(), data);
                }
                break;
            }
            case Kind::kFromDaemon: {
                if (!messages[i]) {
                    comment(label + ": " + text + " (bytes that do not parse)");
                    break;
                }
                tarvo_scenario::Expect* expect = step.mutable_expect();
                *expect->mutable_message() = *messages[i];
                expect->set_exact_payload(true);
                if (is_request(i, Kind::kFromDaemon)) {
                    // The daemon numbers its own requests.
                    expect->mutable_message()->clear_token();
                    const auto reply = replies.find(i);
                    const tarvo_scenario::AutoReply rule =
                        reply == replies.end() ? RuleOf(*messages[i], nullptr, 0)
                                               : RuleOf(*messages[i], &*messages[reply->second],
                                                        events[reply->second].time.value_or(0) -
                                                            event.time.value_or(0));
                    tarvo_scenario::AutoReply standing;
                    standing.set_payload_case(rule.payload_case());
                    if (rules.count(rule.payload_case()) != 0)
                        standing = rules[rule.payload_case()];
                    if (!google::protobuf::util::MessageDifferencer::Equals(rule, standing)) {
                        rules[rule.payload_case()] = rule;
                        Step reply_step;
                        *reply_step.mutable_auto_reply() = rule;
                        before_cause(std::move(reply_step));
                    }
                }
                // A step waits 5 s by default; a daemon that took longer is waited for twice as
                // long as it took.
                if (event.time && last_time) {
                    const double twice_ms = 2e3 * (*event.time - *last_time);
                    if (twice_ms > kDefaultStepTimeout.count()) {
                        expect->set_timeout_ms(static_cast<uint32_t>(twice_ms));
                    }
                }
                add(std::move(step));
                break;
            }
            case Kind::kFault:
                step.set_fault(SchemaFault(event.fault));
                // A write's failure is armed before the write that met it.
                if (event.fault == Fault::kWriteError) {
                    before_cause(std::move(step));
                    break;
                }
                pause(event);
                add(std::move(step));
                break;
            case Kind::kModemState:
                if (!state_known) {
                    setup.set_initial_state(event.state);
                    state_known = true;
                    break;
                }
                pause(event);
                step.set_modem_state(event.state);
                add(std::move(step));
                break;
            case Kind::kSignal:
                if (event.state != SIGUSR1 && event.state != SIGUSR2 && event.state != SIGWINCH) {
                    comment(text);
                    break;
                }
                pause(event);
                step.set_signal_daemon(event.state);
                add(std::move(step));
                break;
            case Kind::kLog:
                comment((label.empty() ? "" : label + ": ") + text);
                break;
            case Kind::kNote:
                comment(text);
                break;
        }
        if (event.time) last_time = event.time;
    }

    for (const auto& [name, value] : properties) {
        tarvo_scenario::Property* property = setup.add_property();
        property->set_name(name);
        property->set_value(value);
    }
    for (const auto& [path, content] : files) {
        tarvo_scenario::SeedFile* file = setup.add_file();
        file->set_path(path);
        file->set_content(content);
    }
    std::string text;
    google::protobuf::TextFormat::PrintToString(setup, &text);
    std::string header =
        "# Decoded by tarvo-emu from " + source +
        ": the modem's messages as steps, the daemon's as\n"
        "# expectations, the modem's answers to its requests as rules, and the properties and "
        "files\n# its answers show as setup. Play it with `tarvo-emu run FILE`.\n";
    if (!state_known) header += "# The capture holds no state of the boot node: 0 is assumed.\n";
    for (const Line& line : lines) {
        text +=
            line.step ? "step { " + FullStepText(*line.step) + " }\n" : "# " + line.comment + "\n";
    }
    return header + text;
}

}  // namespace tarvo_emu
