#pragma once

#include <memory>
#include <string>

#include <android-base/result.h>

#include "capture/pcapng_writer.h"
#include "scenario/scenario.pb.h"
#include "scenario/scenario_loader.h"
#include "scenario/scenario_player.h"

namespace tarvo_emu {

// A rig session captured as it happens: a scenario played with every message, fault and log line
// written to a pcapng stream (a fifo that Wireshark reads) the moment it happens, exactly as
// `run --pcapng` writes them; then the daemon left running, so that what it does next (a
// restart, a client's request, nothing) is captured too, until Stop.
class LiveRig {
  public:
    // Opens `output` (blocking until a fifo's reader opens it) and starts the rig with the
    // scenario's setup.
    static android::base::Result<std::unique_ptr<LiveRig>> Start(
        const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
        const std::string& output);
    ~LiveRig();

    // Plays the scenario's steps, then runs `tarvo` with `client`'s arguments when not empty. A
    // step that fails ends the steps; it is a note in the capture and the error says which.
    android::base::Result<void> Play(const std::string& client);
    // Ends the step being played at its next wait; callable from a signal handler.
    void Stop();
    // Stops the daemon and the rig, then closes the stream; an error when it could not be
    // written.
    android::base::Result<void> Close();

  private:
    LiveRig(const tarvo_scenario::Scenario& scenario, const ScenarioOrigin& origin,
            std::unique_ptr<PcapngWriter> recorder);

    tarvo_scenario::Scenario scenario_;
    ScenarioOrigin origin_;
    std::unique_ptr<PcapngWriter> recorder_;
    std::unique_ptr<ScenarioSession> session_;
};

}  // namespace tarvo_emu
