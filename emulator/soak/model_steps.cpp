#include "soak/model_steps.h"

#include <cctype>
#include <chrono>

#include <android-base/stringprintf.h>

#include "scenario/scenario_text.h"

using android::base::StringPrintf;
using tarvo_message::TarvoMessage;
using tarvo_scenario::Step;

namespace tarvo_emu {

namespace {

// Pings take tokens far above the traffic's, so that their answers are never mistaken.
constexpr uint32_t kFirstPingToken = 0x80000000;
// Files up to this size are checked byte for byte by regular expression (their time stamps
// vary); longer ones by size.
constexpr size_t kRegexCheckedSize = 4096;

// A regular expression that matches `file` with its time stamps as any time.
std::string StampedRegex(const ModelFileSystem::File& file) {
    std::string regex;
    size_t next_stamp = 0;
    for (size_t i = 0; i < file.content.size();) {
        if (next_stamp < file.stamps.size() && file.stamps[next_stamp] == i) {
            regex += "\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d\\d\\d\\n";
            i += ModelFileSystem::kStampSize;
            ++next_stamp;
            continue;
        }
        const unsigned char c = file.content[i++];
        if (isalnum(c)) {
            regex += static_cast<char>(c);
        } else {
            regex += StringPrintf("\\x%02x", c);
        }
    }
    return regex;
}

// A wait given in milliseconds, none for 0.
std::optional<std::chrono::milliseconds> TimeoutOf(uint32_t timeout_ms) {
    if (timeout_ms == 0) return std::nullopt;
    return std::chrono::milliseconds(timeout_ms);
}

}  // namespace

ModelSteps::ModelSteps(const ModelFileSystem& files)
    : files_(files), next_ping_token_(kFirstPingToken) {}

std::vector<Step> ModelSteps::Take() {
    std::vector<Step> taken = std::move(steps_);
    steps_.clear();
    return taken;
}

void ModelSteps::Respond(uint32_t token, int result, TarvoMessage payload) {
    payload.set_type(tarvo_message::RESPONSE);
    payload.set_token(token);
    if (result >= 0) payload.set_result(static_cast<tarvo_message::TarvoResult>(result));
    steps_.push_back(ExpectStep(std::move(payload)));
}

void ModelSteps::ExpectRequest(TarvoMessage request, uint32_t timeout_ms) {
    request.set_type(tarvo_message::REQUEST);
    ++requests_;
    steps_.push_back(ExpectStep(std::move(request), TimeoutOf(timeout_ms)));
}

void ModelSteps::Log(int priority, const std::string& text, uint32_t timeout_ms) {
    steps_.push_back(ExpectStep(LogLine{priority, text}, std::nullopt, TimeoutOf(timeout_ms)));
}

void ModelSteps::LogRegex(int priority, const std::string& regex) {
    steps_.push_back(ExpectStep(LogLine{priority, ""}, regex));
}

void ModelSteps::CheckFile(const std::optional<std::string>& resolved) {
    if (!resolved || files_.IsDirectory(*resolved)) return;
    Step step;
    tarvo_scenario::ExpectFile* expect = step.mutable_expect_file();
    expect->set_path(*resolved);
    const ModelFileSystem::File* file = files_.Find(*resolved);
    if (file == nullptr) {
        expect->set_absent(true);
    } else if (file->stamps.empty()) {
        expect->set_content(file->content);
        if (file->mode != ModelFileSystem::kUmaskMode) expect->set_mode(file->mode);
    } else {
        expect->set_size(file->content.size());
        expect->set_mode(file->mode);
        if (file->content.size() <= kRegexCheckedSize) {
            expect->set_content_regex(StampedRegex(*file));
        }
    }
    steps_.push_back(std::move(step));
}

void ModelSteps::Ping() {
    const uint32_t token = next_ping_token_++;
    Step send;
    send.mutable_send()->set_type(tarvo_message::REQUEST);
    send.mutable_send()->set_token(token);
    send.mutable_send()->mutable_property()->mutable_read_request()->set_name(kPingProperty);
    steps_.push_back(std::move(send));
    TarvoMessage payload;
    payload.mutable_property()->mutable_read_response()->set_value(kPingValue);
    Respond(token, tarvo_message::RESULT_SUCCESS, std::move(payload));
}

}  // namespace tarvo_emu
