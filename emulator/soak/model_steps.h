#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"

namespace tarvo_emu {

// The steps that the soak's model writes for one stimulus: the answers and log lines the daemon
// must give, the files it must leave, and a ping where the daemon gives no answer of its own.
class ModelSteps {
  public:
    // A property the model reads after a step that the daemon does not answer: its answer shows
    // that the daemon has handled everything sent before.
    static constexpr char kPingProperty[] = "ro.soak.ping";
    static constexpr char kPingValue[] = "pong";

    // `files` is what the checks of files compare against.
    explicit ModelSteps(const ModelFileSystem& files);

    void Add(tarvo_scenario::Step step) { steps_.push_back(std::move(step)); }
    // The daemon's answer to `token`, payload exact; a negative `result` is an answer without one.
    void Respond(uint32_t token, int result, tarvo_message::TarvoMessage payload);
    // A request of the daemon's own, payload exact.
    void ExpectRequest(tarvo_message::TarvoMessage request, uint32_t timeout_ms = 0);
    // The daemon draws its requests' tokens from 0 up, from each start on.
    void ForgetRequests() { requests_ = 0; }
    std::optional<uint32_t> LastRequestToken() const {
        if (requests_ == 0) return std::nullopt;
        return requests_ - 1;
    }
    void Log(int priority, const std::string& text, uint32_t timeout_ms = 0);
    void LogRegex(int priority, const std::string& regex);
    // The file at `resolved` as the model holds it: bytes and mode, or absent.
    void CheckFile(const std::optional<std::string>& resolved);
    void Ping();

    std::vector<tarvo_scenario::Step>& steps() { return steps_; }
    // The steps written so far; the list starts again empty.
    std::vector<tarvo_scenario::Step> Take();

  private:
    const ModelFileSystem& files_;
    uint32_t next_ping_token_;
    uint32_t requests_ = 0;
    std::vector<tarvo_scenario::Step> steps_;
};

}  // namespace tarvo_emu
