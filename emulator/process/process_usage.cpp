#include "process/process_usage.h"

#include <dirent.h>

#include <memory>
#include <string>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <fmt/format.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// The entries of `dir` that are not "." or "..".
Result<size_t> EntryCount(const std::string& dir) {
    std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(dir.c_str()), closedir);
    if (!entries) return ErrnoError() << "opendir " << dir;
    size_t count = 0;
    while (dirent* entry = readdir(entries.get())) count += entry->d_name[0] != '.';
    return count;
}

}  // namespace

Result<ProcessUsage> ReadProcessUsage(pid_t pid) {
    const std::string proc = fmt::format("/proc/{}", pid);
    Result<size_t> descriptors = EntryCount(proc + "/fd");
    if (!descriptors.ok()) return descriptors.error();
    Result<size_t> threads = EntryCount(proc + "/task");
    if (!threads.ok()) return threads.error();
    std::string status;
    if (!android::base::ReadFileToString(proc + "/status", &status)) {
        return ErrnoError() << "read " << proc << "/status";
    }
    for (const std::string& line : android::base::Split(status, "\n")) {
        if (!android::base::StartsWith(line, "VmRSS:")) continue;
        // "VmRSS:	    6260 kB"
        const std::string number = android::base::Trim(line.substr(6));
        long rss_kib;
        if (!android::base::ParseInt(number.substr(0, number.find(' ')), &rss_kib)) break;
        return ProcessUsage{*descriptors, *threads, rss_kib};
    }
    return Error() << "no resident size in " << proc << "/status";
}

}  // namespace tarvo_emu
