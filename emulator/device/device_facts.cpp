#include "device/device_facts.h"

#include <set>

namespace tarvo_emu {

std::vector<std::string> DeviceTree() {
    std::set<std::string> tree;
    for (const std::string directory : kDeviceDirectories) {
        for (size_t slash = directory.find('/', 1); slash != std::string::npos;
             slash = directory.find('/', slash + 1)) {
            tree.insert(directory.substr(0, slash));
        }
        tree.insert(directory);
    }
    return {tree.begin(), tree.end()};
}

std::optional<std::string> FileDirectory(uint32_t id) {
    static constexpr const char* kFileDirectories[] = {kMdsDirectory, kReplayDirectory,
                                                       kUecapDirectory};
    if (id < 1 || id > std::size(kFileDirectories)) return std::nullopt;
    return std::string(kFileDirectories[id - 1]) + "/";
}

std::string StateChangeText(int from, int to) {
    return kStateChangePrefix + std::to_string(from) + " to " + std::to_string(to);
}

}  // namespace tarvo_emu
