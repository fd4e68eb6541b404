#include "process/process_usage.h"

#include <dirent.h>

#include <memory>
#include <string>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/stringprintf.h>
#include <android-base/strings.h>

namespace tarvo_emu {

namespace {

// The entries of `dir` that are not "." or "..".
std::optional<size_t> EntryCount(const std::string& dir) {
    std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(dir.c_str()), closedir);
    if (!entries) return std::nullopt;
    size_t count = 0;
    while (dirent* entry = readdir(entries.get())) count += entry->d_name[0] != '.';
    return count;
}

}  // namespace

std::optional<ProcessUsage> ReadProcessUsage(pid_t pid) {
    const std::string proc = android::base::StringPrintf("/proc/%d", pid);
    const std::optional<size_t> descriptors = EntryCount(proc + "/fd");
    const std::optional<size_t> threads = EntryCount(proc + "/task");
    std::string status;
    if (!descriptors || !threads || !android::base::ReadFileToString(proc + "/status", &status)) {
        return std::nullopt;
    }
    for (const std::string& line : android::base::Split(status, "\n")) {
        if (!android::base::StartsWith(line, "VmRSS:")) continue;
        // "VmRSS:	    6260 kB"
        const std::string number = android::base::Trim(line.substr(6));
        long rss_kib;
        if (!android::base::ParseInt(number.substr(0, number.find(' ')), &rss_kib)) break;
        return ProcessUsage{*descriptors, *threads, rss_kib};
    }
    return std::nullopt;
}

}  // namespace tarvo_emu
