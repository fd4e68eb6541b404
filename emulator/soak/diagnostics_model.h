#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"
#include "soak/model_steps.h"

namespace tarvo_emu {

// What the daemon must do with the modem's diagnostics and with its own requests: statistics
// reports and extended logs written to their files, userspace-log lines, the configuration sent
// each time the modem comes online, the requests that signals make, and what it logs of the
// modem's answers to them (as the emulated modem is told to answer).
class DiagnosticsModel {
  public:
    // The configurations that the sandbox's files hold.
    static constexpr char kStatConfig[] = "L1:v=3,t=10|RRC";
    static constexpr char kUserspaceConfig[] = "mac\nrlc\n";
    // An extended log longer than this is rotated before the next piece.
    static constexpr size_t kRotationSize = 1048576;

    DiagnosticsModel(ModelFileSystem& files, ModelSteps& steps);

    // What the daemon sends each time it sees the modem online.
    void Configuration();
    // The modem offline, then online again: the configuration follows.
    void OfflineAndBack();
    // How the emulated modem answers the daemon's requests from now on.
    void SetReply(const tarvo_scenario::AutoReply& rule);
    // A signal that makes the daemon send a request of its own.
    void Signal(uint32_t signal);

    void StatReport(const tarvo_message::ModemStatMessage& stat);
    void ExtendedLog(const tarvo_message::ExtendedLogMessage& log);
    void UserspaceLog(const tarvo_message::UserspaceLogMessage& log);

  private:
    // How the emulated modem answers the daemon's requests of one payload case.
    enum class Reply { kSuccess, kFailure, kSilent };

    void AnsweredRequest(int payload_case, const std::string& success, int success_priority,
                         const std::string& failure);

    ModelFileSystem& files_;
    ModelSteps& steps_;
    std::map<int, Reply> replies_;
};

}  // namespace tarvo_emu
