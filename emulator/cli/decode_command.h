#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// What `tarvo-emu decode` was given.
struct DecodeOptions {
    // The capture (several: the files of `strace -ff -o PREFIX`); standard input when none.
    std::vector<std::string> files;
    std::optional<int> fd;
    bool full = false;
    bool follow = false;   // each message as soon as its call is complete
    std::string pcapng;    // none when empty
    std::string scenario;  // none when empty
};

// Declares `tarvo-emu decode [FILE] [OPTION...]` on `app`, filling `options`.
CLI::App* AddDecodeCommand(CLI::App& app, DecodeOptions* options);

// Prints a capture (strace's output of the daemon, the rig's transcript, or plain hex) as the
// transcript shows a session, and writes it as a scenario or a pcapng file when asked. Needs no
// root: it runs nothing. Returns the exit status.
int RunDecodeCommand(const DecodeOptions& options);

}  // namespace tarvo_emu
