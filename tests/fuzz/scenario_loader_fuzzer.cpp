// The rig's scenario files: each input is the text of one scenario, parsed as `tarvo-emu run`
// loads it.

#include <cstddef>
#include <cstdint>
#include <string>

#include "scenario/scenario_loader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tarvo_emu::ParseScenario(std::string(reinterpret_cast<const char*>(data), size), "input");
    return 0;
}
