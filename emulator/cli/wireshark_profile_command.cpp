#include <android-base/result.h>
#include <fmt/format.h>

#include "capture/pcapng_writer.h"
#include "cli/command.h"

using android::base::Result;

namespace tarvo_emu {

// `tarvo-emu wireshark-profile DIR`: writes the profile into DIR. Reads and runs nothing, so it
// needs neither root nor the rig.
Command AddWiresharkProfileCommand(CLI::App& app) {
    auto directory = std::make_shared<std::string>();
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
    return {profile,
            [directory] {
                Result<void> written = WriteWiresharkProfile(*directory);
                if (!written.ok()) {
                    return Failed("tarvo-emu wireshark-profile", written.error().message());
                }
                return 0;
            },
            [] { return false; }};
}

}  // namespace tarvo_emu
