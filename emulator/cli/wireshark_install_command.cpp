#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <android-base/file.h>
#include <android-base/result.h>
#include <android-base/strings.h>
#include <fmt/format.h>

#include "capture/pcapng_writer.h"
#include "cli/command.h"

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// Wireshark's folders: the profiles, and the extcap programs it runs to list its interfaces (the
// user's of 4.0, the user's that 4.2 added, the system's).
constexpr char kUserProfiles[] = ".config/wireshark/profiles";
constexpr char kUserExtcap40[] = ".config/wireshark/extcap";
constexpr char kUserExtcap42[] = ".local/lib/wireshark/extcap";
constexpr char kSystemProfiles[] = "/usr/share/wireshark/profiles";
constexpr char kSystemExtcap[] = "/usr/lib/x86_64-linux-gnu/wireshark/extcap";
constexpr char kLauncherName[] = "tarvo-emu-extcap";
constexpr mode_t kLauncherMode = 0755;

// `text` quoted for sh.
std::string ShellQuoted(const std::string& text) {
    return "'" + android::base::StringReplace(text, "'", "'\\''", true) + "'";
}

Result<void> WriteLauncher(const std::string& dir, const std::string& executable) {
    std::error_code error;
    std::filesystem::create_directories(dir, error);
    if (error) return Error() << "cannot make " << dir << ": " << error.message();
    const std::string path = dir + "/" + kLauncherName;
    const std::string script = fmt::format(
        "#!/bin/sh\n"
        "# Written by `tarvo-emu wireshark-install`: Wireshark's live captures of the tarvo rig.\n"
        "exec {} extcap \"$@\"\n",
        ShellQuoted(executable));
    if (!android::base::WriteStringToFile(script, path) ||
        chmod(path.c_str(), kLauncherMode) != 0) {
        return ErrnoError() << "cannot write " << path;
    }
    return {};
}

// Writes the Wireshark profile and the extcap launcher that runs this very `tarvo-emu` into the
// system's folders or the user's, and says what it wrote.
int Install(bool system) {
    std::string profiles = kSystemProfiles;
    std::vector<std::string> extcap_dirs = {kSystemExtcap};
    if (!system) {
        const char* home = getenv("HOME");
        if (home == nullptr || *home == '\0') {
            return Failed("tarvo-emu wireshark-install",
                          "HOME is not set; give --system or set HOME");
        }
        profiles = fmt::format("{}/{}", home, kUserProfiles);
        extcap_dirs = {fmt::format("{}/{}", home, kUserExtcap40),
                       fmt::format("{}/{}", home, kUserExtcap42)};
    }
    const std::string profile = profiles + "/" + kWiresharkProfileName;
    if (Result<void> written = WriteWiresharkProfile(profile); !written.ok()) {
        return Failed("tarvo-emu wireshark-install", written.error().message());
    }
    fmt::print("profile {}: wrote {}\n", kWiresharkProfileName, profile);
    const std::string executable = android::base::GetExecutablePath();
    for (const std::string& dir : extcap_dirs) {
        if (Result<void> written = WriteLauncher(dir, executable); !written.ok()) {
            return Failed("tarvo-emu wireshark-install", written.error().message());
        }
        fmt::print("extcap launcher of {}: wrote {}/{}\n", executable, dir, kLauncherName);
    }
    return 0;
}

}  // namespace

// `tarvo-emu wireshark-install [--system]`. Writes files only, so it needs neither root nor the
// rig.
Command AddWiresharkInstallCommand(CLI::App& app) {
    auto system = std::make_shared<bool>(false);
    CLI::App* install = app.add_subcommand(
        "wireshark-install",
        fmt::format(
            "Makes the rig a live capture interface of Wireshark: writes the profile that\n"
            "decodes the daemon's messages (as `wireshark-profile` does) to\n"
            "~/.config/wireshark/profiles/{}, and a launcher of this tarvo-emu, by its absolute\n"
            "path, to Wireshark's extcap folders ~/{} (4.0) and ~/{} (4.2).\n"
            "Then pick the interface tarvo-rig in Wireshark with the profile {}, or capture\n"
            "headless: `tshark -C {} -i tarvo-rig -a duration:30 -w OUT.pcapng`. Run it again\n"
            "after moving tarvo-emu.",
            kWiresharkProfileName, kUserExtcap40, kUserExtcap42, kWiresharkProfileName,
            kWiresharkProfileName));
    install->add_flag(
        "--system", *system,
        fmt::format("into the system's folders instead: {}, {}", kSystemProfiles, kSystemExtcap));
    return {install, [system] { return Install(*system); }, [] { return false; }};
}

}  // namespace tarvo_emu
