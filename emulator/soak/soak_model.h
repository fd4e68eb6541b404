#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "scenario/scenario.pb.h"
#include "soak/diagnostics_model.h"
#include "soak/file_transfer_model.h"
#include "soak/model_file_system.h"
#include "soak/model_steps.h"
#include "soak/request_model.h"

namespace tarvo_emu {

// What the daemon must do with the soak's traffic. Given one stimulus (a message from the modem,
// a fault, a signal, a restart), the model says what the daemon must answer, which log lines it
// must print, and what the files and properties must then hold, as scenario steps: a run's
// stimuli with the model's steps after each one are a scenario that `tarvo-emu run` plays.
// The model follows the daemon's documented behaviour on its own state, so the same stimuli
// always give the same steps: a subset of them is again a scenario, which is what shrinking
// needs. Each family of messages has a model of its own; this one plays faults and restarts.
class SoakModel {
  public:
    // The sandbox a soak run sets up; `seed` chooses among its variants.
    static tarvo_scenario::Scenario Setup(uint64_t seed);

    explicit SoakModel(const tarvo_scenario::Scenario& setup);

    // What the daemon must do once started: its modem state seen, the configuration sent.
    std::vector<tarvo_scenario::Step> Start();
    // The stimulus, followed by the steps that check what the daemon must do with it.
    std::vector<tarvo_scenario::Step> Play(const tarvo_scenario::Step& stimulus);

    // The size of the staging file that `name` uses, when there is one.
    std::optional<size_t> StagedSize(const std::string& name) const {
        return file_transfers_.StagedSize(name);
    }
    std::optional<size_t> FileSize(uint32_t directory, const std::string& name) const {
        return file_transfers_.FileSize(directory, name);
    }
    // The token of the daemon's last request since it started, when it made one.
    std::optional<uint32_t> LastDaemonToken() const { return steps_.LastRequestToken(); }
    const ModelFileSystem& files() const { return files_; }
    // The trees that a remount may turn read-only.
    const std::vector<std::string>& own_mounts() const { return own_mounts_; }

  private:
    // The start's steps, after those already written.
    void Started();
    void Fault(tarvo_scenario::Fault fault);
    // After a fault: every staging file holds what was acknowledged, nothing more or less.
    void CheckStaged();
    void Message(const tarvo_message::TarvoMessage& message);
    void UsageCheck();
    // The steps written, closed by the check that the daemon sent nothing else.
    std::vector<tarvo_scenario::Step> AllTaken();

    ModelFileSystem files_;
    ModelSteps steps_;
    FileTransferModel file_transfers_;
    RequestModel requests_;
    DiagnosticsModel diagnostics_;
    size_t steps_since_mark_ = 0;
    std::vector<std::string> own_mounts_;
};

}  // namespace tarvo_emu
