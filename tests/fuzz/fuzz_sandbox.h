#pragma once

#include <android/log.h>

#include "host_property_store.h"

#include <filesystem>
#include <system_error>

// For fuzz targets that run inside the rig's sandbox (tarvo-emu exec), where the daemon's paths
// are the sandbox's.

// The daemon's log lines, every priority, are formatted as always but not printed: at millions of
// inputs, printing them would be most of the time and all of the output.
inline void DropLogLines() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
}

// Puts /data, /mnt and the property store back as a fresh sandbox has them, so that every input
// starts from the same tree and what one input wrote cannot decide what the next does (nor pile
// up: the trees are on the host's disk).
inline void ResetDeviceTrees() {
    namespace fs = std::filesystem;
    std::error_code ec;
    for (const char* tree : {"/data", "/mnt"}) {
        for (const fs::directory_entry& entry : fs::directory_iterator(tree, ec)) {
            fs::remove_all(entry.path(), ec);
        }
    }
    // Emptied in place: the process keeps the store's area mapped.
    HostPropertyStore::Default().Clear();
    for (const char* dir : {"/data/vendor/radio/modem_temp_file", "/data/vendor/radio/mds",
                            "/data/vendor/radio/extended_logs", "/data/vendor/modem_stat",
                            "/mnt/vendor/modem_userdata/replay"}) {
        fs::create_directories(dir, ec);
    }
}
