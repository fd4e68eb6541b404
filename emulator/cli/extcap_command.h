#pragma once

#include <string>

#include <CLI/CLI.hpp>

namespace tarvo_emu {

// What Wireshark asked of `tarvo-emu extcap`.
struct ExtcapOptions {
    bool interfaces = false;    // --extcap-interfaces
    std::string version;        // --extcap-version, Wireshark's
    std::string interface;      // --extcap-interface
    bool dlts = false;          // --extcap-dlts
    bool config = false;        // --extcap-config
    std::string reload_option;  // --extcap-reload-option: one option's values again
    bool capture = false;       // --capture
    std::string fifo;           // --fifo: where the pcapng stream goes
    std::string capture_filter;
    // tarvo-rig: the scenario (the demo when empty) and the client run after it.
    std::string scenario;
    std::string client;
    // tarvo-rig: a soak's seed, played instead of the scenario when not empty.
    std::string soak_seed;
    // tarvo-device: the adb serial, a command of the user's instead of adb, and whether the
    // daemon is restarted under strace.
    std::string serial;
    std::string device_command;
    bool from_start = false;
};

// Declares `tarvo-emu extcap`, the command that Wireshark runs through the launcher that
// `tarvo-emu wireshark-install` writes, on `app`, filling `options`.
CLI::App* AddExtcapCommand(CLI::App& app, ExtcapOptions* options);

// Answers Wireshark's extcap calls: the interfaces, their link type, their options, and a
// capture written to the fifo until Wireshark stops it with SIGTERM. What goes wrong is said on
// standard error, which Wireshark shows. Returns the exit status.
int RunExtcapCommand(const ExtcapOptions& options);

}  // namespace tarvo_emu
