#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "scenario/scenario.pb.h"
#include "soak/model_file_system.h"
#include "soak/model_steps.h"

namespace tarvo_emu {

// What the daemon must answer to the modem's requests outside file transfers: property reads
// and writes (with the properties it then holds), temperature reports (with the thermal writes
// they make) and UE-capability reads.
class RequestModel {
  public:
    // The properties start as `setup` sets them.
    RequestModel(const tarvo_scenario::Scenario& setup, const ModelFileSystem& files,
                 ModelSteps& steps);

    void Property(const tarvo_message::PropertyMessage& property, uint32_t token);
    void Temperature(const tarvo_message::ModemTemperatureMessage& temperature, uint32_t token);
    void UecapRead(const tarvo_message::UecapFileMessage& uecap, uint32_t token);

  private:
    const ModelFileSystem& files_;
    ModelSteps& steps_;
    std::map<std::string, std::string> properties_;
};

}  // namespace tarvo_emu
