#include "cli/wireshark_profile_command.h"

#include <android-base/result.h>
#include <fmt/format.h>

#include "capture/pcapng_writer.h"

namespace tarvo_emu {

CLI::App* AddWiresharkProfileCommand(CLI::App& app, std::string* directory) {
    CLI::App* profile = app.add_subcommand(
        "wireshark-profile",
        fmt::format(
            "Writes a Wireshark configuration profile into DIR that decodes the pcapng files of\n"
            "`decode --pcapng`, `run --pcapng` and `console --pcapng`: a copy of the message\n"
            "schema, the protobuf search path pointing at it, UDP ports 40001-40002 (the modem "
            "and\n"
            "the daemon) as TarvoMessage, every field filterable (pbf.tarvo_message.TarvoMessage.\n"
            "token), the ends named modem and tarvo. Kept as\n"
            "~/.config/wireshark/profiles/{0}, it is chosen with `wireshark -C {0} FILE` or\n"
            "`tshark -C {0} -r FILE -V -O protobuf`; as DIR of its own, with\n"
            "`WIRESHARK_CONFIG_DIR=DIR wireshark FILE`. Write it again after moving it.",
            kWiresharkProfileName));
    profile->add_option("DIR", *directory, "the profile's folder, made when missing")
        ->required()
        ->type_name("");
    return profile;
}

int RunWiresharkProfileCommand(const std::string& directory) {
    if (android::base::Result<void> written = WriteWiresharkProfile(directory); !written.ok()) {
        fmt::print(stderr, "tarvo-emu wireshark-profile: {}\n", written.error().message());
        return 1;
    }
    return 0;
}

}  // namespace tarvo_emu
