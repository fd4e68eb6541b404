#include "device/device_facts.h"

#include <filesystem>
#include <set>

namespace fs = std::filesystem;

namespace tarvo_emu {

std::vector<std::string> DeviceTree() {
    std::set<std::string> tree;
    for (const char* directory : kDeviceDirectories) {
        for (fs::path path = directory; path != "/"; path = path.parent_path()) tree.insert(path);
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
