#include "capture/strace_files.h"

#include <algorithm>
#include <cstdlib>
#include <optional>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// A call's line with the lines that belong to it (its dump's rows), at its time.
struct Block {
    double time;
    std::string text;
};

// The seconds of a time stamp of -t, -tt (HH:MM:SS[.us]) or -ttt (seconds[.us]); none for a word
// that is no time stamp.
std::optional<double> Seconds(const std::string& word) {
    if (word.empty() || word.find_first_not_of("0123456789:.") != std::string::npos) {
        return std::nullopt;
    }
    double seconds = 0;
    for (const std::string& part : android::base::Split(word, ":")) {
        seconds = seconds * 60 + strtod(part.c_str(), nullptr);
    }
    return seconds;
}

}  // namespace

Result<std::string> MergeStraceFiles(const std::vector<std::string>& paths) {
    std::vector<Block> blocks;
    for (const std::string& path : paths) {
        int pid = 0;
        const size_t dot = path.rfind('.');
        if (dot == std::string::npos || !android::base::ParseInt(path.substr(dot + 1), &pid)) {
            return Error() << path << " is not named PREFIX.PID, as the files of strace -ff -o "
                           << "PREFIX are; give one capture, or all of one -ff capture";
        }
        std::string text;
        if (!android::base::ReadFileToString(path, &text)) {
            return ErrnoError() << "cannot read " << path;
        }
        const std::string prefix = std::to_string(pid) + " ";
        size_t line_number = 0;
        for (const std::string& line : android::base::Split(text, "\n")) {
            ++line_number;
            if (android::base::Trim(line).empty()) continue;
            const std::optional<double> stamp = Seconds(line.substr(0, line.find(' ')));
            if (stamp) {
                blocks.push_back({*stamp, prefix + line + "\n"});
            } else if (!blocks.empty() && android::base::StartsWith(blocks.back().text, prefix)) {
                blocks.back().text += line + "\n";
            } else {
                return Error() << path << " line " << line_number << ": no time stamp, by which "
                               << "the files of strace -ff merge; capture with -ttt";
            }
        }
    }
    // Each file is in its own order already; equal times keep it.
    std::stable_sort(blocks.begin(), blocks.end(),
                     [](const Block& a, const Block& b) { return a.time < b.time; });
    std::string merged;
    for (const Block& block : blocks) merged += block.text;
    return merged;
}

}  // namespace tarvo_emu
