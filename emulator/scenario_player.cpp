#include "scenario_player.h"

#include <fcntl.h>

#include <thread>

#include <google/protobuf/io/tokenizer.h>
#include <google/protobuf/text_format.h>

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;
using android::base::StringPrintf;
using std::chrono::milliseconds;
using tarvo_scenario::ExpectFile;
using tarvo_scenario::ExpectLog;
using tarvo_scenario::ExpectNoLog;
using tarvo_scenario::ExpectProperty;
using tarvo_scenario::Fault;
using tarvo_scenario::Scenario;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Collects parse errors with their line numbers.
class ErrorCollector : public google::protobuf::io::ErrorCollector {
  public:
    void AddError(int line, int column, const std::string& message) override {
        errors += StringPrintf("line %d column %d: %s\n", line + 1, column + 1, message.c_str());
    }
    std::string errors;
};

RigOptions OptionsOf(const tarvo_scenario::Scenario& scenario, std::ostream* transcript) {
    RigOptions options;
    options.initial_state = scenario.initial_state();
    for (const tarvo_scenario::SeedFile& file : scenario.file()) {
        options.files.push_back({file.path(), file.content(),
                                 static_cast<mode_t>(file.has_mode() ? file.mode() : 0664)});
    }
    for (const tarvo_scenario::Property& property : scenario.property()) {
        options.properties.emplace_back(property.name(), property.value());
    }
    options.remove.assign(scenario.remove().begin(), scenario.remove().end());
    options.transcript = transcript;
    return options;
}

milliseconds TimeoutOf(bool has_timeout, uint32_t timeout_ms) {
    return has_timeout ? milliseconds(timeout_ms) : kDefaultStepTimeout;
}

IpcFault FaultOf(Fault fault) {
    switch (fault) {
        case tarvo_scenario::READ_ERROR:
            return IpcFault::kReadError;
        case tarvo_scenario::WRITE_ERROR:
            return IpcFault::kWriteError;
        case tarvo_scenario::HANG_UP:
            return IpcFault::kHangUp;
        default:
            return IpcFault::kEndOfFile;
    }
}

std::string Quoted(const std::string& bytes) {
    return "\"" + google::protobuf::CEscape(bytes) + "\"";
}

// Plays one step; an empty result means it held.
class StepPlayer {
  public:
    explicit StepPlayer(Rig* rig) : rig_(rig) {}

    std::string Play(const Step& step) {
        switch (step.action_case()) {
            case Step::kModemState:
                rig_->SetModemState(step.modem_state());
                return {};
            case Step::kSend:
                rig_->Send(step.send());
                return {};
            case Step::kExpect:
                return Expect(step.expect());
            case Step::kExpectSilenceMs:
                return ExpectSilence(step.expect_silence_ms());
            case Step::kExpectLog:
                return ExpectLogLine(step.expect_log());
            case Step::kExpectNoLog:
                return ExpectNoLogLine(step.expect_no_log());
            case Step::kExpectFile:
                return ExpectFileState(step.expect_file());
            case Step::kExpectProperty:
                return ExpectPropertyValue(step.expect_property());
            case Step::kAutoReply:
                SetAutoReply(step.auto_reply());
                return {};
            case Step::kClient:
                return RunClient(step.client(), step.exit_status());
            case Step::kSleepMs:
                std::this_thread::sleep_for(milliseconds(step.sleep_ms()));
                return {};
            case Step::kFault:
                if (step.fault() == tarvo_scenario::NO_FAULT) return "no fault named";
                rig_->InjectFault(FaultOf(step.fault()));
                return {};
            case Step::ACTION_NOT_SET:
                return {};
        }
        return "unknown step";
    }

  private:
    std::string Expect(const tarvo_scenario::Expect& expect) {
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        if (rig_->AwaitMessage(expect.message(), timeout)) return {};
        return StringPrintf("no such message from the daemon within %lld ms",
                            static_cast<long long>(timeout.count()));
    }

    std::string ExpectSilence(uint32_t ms) {
        std::optional<tarvo_message::TarvoMessage> message =
            rig_->modem().NextNew(milliseconds(ms));
        if (!message) return {};
        return "the daemon sent { " + ShortText(*message) + " }";
    }

    std::string ExpectLogLine(const ExpectLog& expect) {
        const milliseconds timeout = TimeoutOf(expect.has_timeout_ms(), expect.timeout_ms());
        const std::string tag = expect.has_tag() ? expect.tag() : "tarvo";
        if (rig_->AwaitLog(expect.priority(), expect.text(), timeout, tag)) return {};
        return StringPrintf("no such log line within %lld ms",
                            static_cast<long long>(timeout.count()));
    }

    std::string ExpectNoLogLine(const ExpectNoLog& expect) {
        const std::string tag = expect.has_tag() ? expect.tag() : "tarvo";
        const size_t count = rig_->CountLog(expect.priority(), expect.text(), tag);
        if (count == 0) return {};
        return StringPrintf("the line was printed %zu time(s)", count);
    }

    std::string ExpectFileState(const ExpectFile& expect) {
        const std::optional<std::string> content = rig_->ReadFile(expect.path());
        if (expect.absent()) return content ? "the file exists" : "";
        if (!content) return "no such file";
        if (expect.has_content() && *content != expect.content()) {
            return "content is " + Quoted(*content);
        }
        if (expect.has_size() && content->size() != expect.size()) {
            return StringPrintf("size is %zu", content->size());
        }
        const std::optional<mode_t> mode = rig_->FileMode(expect.path());
        if (expect.has_mode() && mode != expect.mode()) {
            return StringPrintf("mode is 0%o", mode.value_or(0));
        }
        return {};
    }

    std::string ExpectPropertyValue(const ExpectProperty& expect) {
        const std::optional<std::string> value = rig_->Property(expect.name());
        if (!expect.has_value()) return value ? "the property is " + Quoted(*value) : "";
        if (!value) return "the property is not set";
        if (*value != expect.value()) return "the property is " + Quoted(*value);
        return {};
    }

    void SetAutoReply(const tarvo_scenario::AutoReply& step) {
        tarvo_emu::AutoReply rule;
        rule.no_reply = step.no_reply();
        rule.result = step.result();
        if (step.has_delay_ms()) rule.delay = milliseconds(step.delay_ms());
        rule.overrides = step.reply();
        rig_->SetAutoReply(step.payload_case(), std::move(rule));
    }

    std::string RunClient(const std::string& args, int exit_status) {
        std::vector<std::string> argv;
        for (const std::string& arg : android::base::Split(args, " ")) {
            if (!arg.empty()) argv.push_back(arg);
        }
        const ProcessResult result = rig_->RunClient(argv);
        if (result.timed_out) return "the client did not end within 10 s";
        if (result.status != exit_status) {
            return StringPrintf("the client exited with %d, not %d", result.status, exit_status);
        }
        return {};
    }

    Rig* rig_;
};

}  // namespace

Result<Scenario> LoadScenario(const std::string& path) {
    std::string text;
    if (!android::base::ReadFileToString(path, &text))
        return ErrnoError() << "cannot read " << path;
    google::protobuf::TextFormat::Parser parser;
    ErrorCollector errors;
    parser.RecordErrorsTo(&errors);
    Scenario scenario;
    if (!parser.ParseFromString(text, &scenario)) return Error() << path << ": " << errors.errors;
    return scenario;
}

Result<void> PlayScenario(const Scenario& scenario, std::ostream* transcript) {
    Rig rig(OptionsOf(scenario, transcript));
    if (Result<void> started = rig.Start(); !started.ok()) {
        return Error() << "the rig did not start: " << started.error();
    }
    StepPlayer player(&rig);
    for (int i = 0; i < scenario.step_size(); ++i) {
        const Step& step = scenario.step(i);
        if (!step.note().empty()) rig.transcript().Note("# " + step.note());
        if (step.action_case() == Step::ACTION_NOT_SET) continue;
        Step shown = step;
        shown.clear_note();
        const std::string text = ShortText(shown);
        rig.transcript().Note(StringPrintf("step %d: %s", i, text.c_str()));
        const std::string why = player.Play(step);
        if (why.empty()) continue;
        Result<void> health = rig.CheckHealth();
        return Error() << "step " << i << " (" << text << ") failed: " << why
                       << (health.ok() ? "" : "; " + health.error().message());
    }
    if (Result<void> health = rig.CheckHealth(); !health.ok()) return health.error();
    return {};
}

}  // namespace tarvo_emu
