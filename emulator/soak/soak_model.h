#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"

namespace tarvo_emu {

// What the daemon must do with the soak's traffic. Given one stimulus (a message from the modem,
// a fault, a signal, a restart), the model says what the daemon must answer, which log lines it
// must print, and what the files and properties must then hold, as scenario steps: a run's
// stimuli with the model's steps after each one are a scenario that `tarvo-emu run` plays.
// The model follows the daemon's documented behaviour on its own state, so the same stimuli
// always give the same steps: a subset of them is again a scenario, which is what shrinking
// needs.
class SoakModel {
  public:
    // The largest message the daemon reads whole.
    static constexpr size_t kLargestMessage = 65568;
    // The directories of the modem's file transfers, by the id the modem sends.
    static const std::vector<std::string>& Directories();
    static constexpr char kStagingDirectory[] = "/data/vendor/radio/modem_temp_file/";
    // A property the model reads after a step that the daemon does not answer: its answer shows
    // that the daemon has handled everything sent before.
    static constexpr char kPingProperty[] = "ro.soak.ping";

    // The sandbox a soak run sets up; `seed` chooses among its variants.
    static tarvo_scenario::Scenario Setup(uint64_t seed);

    explicit SoakModel(const tarvo_scenario::Scenario& setup);

    // What the daemon must do once started: its modem state seen, the configuration sent.
    std::vector<tarvo_scenario::Step> Start();
    // The stimulus, followed by the steps that check what the daemon must do with it.
    std::vector<tarvo_scenario::Step> Play(const tarvo_scenario::Step& stimulus);

    const ModelFileSystem& files() const { return files_; }
    // The size of the staging file that `name` uses, when there is one.
    std::optional<size_t> StagedSize(const std::string& name) const;
    std::optional<size_t> FileSize(uint32_t directory, const std::string& name) const;

  private:
    // How the emulated modem answers the daemon's requests of one payload case.
    enum class Reply { kSuccess, kFailure, kSilent };

    void Respond(uint32_t token, int result, tarvo_message::TarvoMessage payload);
    void Log(int priority, const std::string& text);
    void LogRegex(int priority, const std::string& regex);
    void CheckFile(const std::optional<std::string>& resolved);
    void Ping();
    void Configuration();
    void AnsweredRequest(int payload_case, const std::string& success, int success_priority,
                         const std::string& failure);
    void UsageCheck();

    void BlockWrite(const tarvo_message::FileWriteRequest& request, uint32_t token,
                    bool indication);
    void Append(const tarvo_message::FileAppendRequest& request, uint32_t token);
    void Read(const tarvo_message::FileReadRequest& request, uint32_t token);
    void PropertyRequest(const tarvo_message::PropertyMessage& property, uint32_t token);
    void Temperature(const tarvo_message::ModemTemperatureMessage& temperature, uint32_t token);
    void UecapRead(const tarvo_message::UecapFileMessage& uecap, uint32_t token);
    void StatReport(const tarvo_message::ModemStatMessage& stat);
    void ExtendedLog(const tarvo_message::ExtendedLogMessage& log);
    void UserspaceLog(const tarvo_message::UserspaceLogMessage& log);
    void Message(const tarvo_message::TarvoMessage& message);
    void Signal(uint32_t signal);

    ModelFileSystem files_;
    std::map<std::string, std::string> properties_;
    std::map<int, Reply> replies_;
    uint32_t next_ping_token_;
    size_t steps_since_mark_ = 0;
    // The steps of the stimulus being played.
    std::vector<tarvo_scenario::Step> steps_;
};

// The bytes that a scenario's generated data stands for, as the player makes them.
std::string GeneratedData(const tarvo_scenario::Generated& generated);

}  // namespace tarvo_emu
