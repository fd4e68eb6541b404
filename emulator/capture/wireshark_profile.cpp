#include "capture/wireshark_profile.h"

#include <filesystem>
#include <system_error>

#include <android-base/file.h>
#include <fmt/format.h>

#include "capture/message_schema.h"
#include "capture/pcapng_writer.h"

using android::base::ErrnoError;
using android::base::Result;

namespace tarvo_emu {

namespace {

constexpr char kSchemaFolder[] = "proto";
constexpr char kSchemaFile[] = "tarvo_message.proto";
constexpr char kMessageType[] = "tarvo_message.TarvoMessage";

// The files of a profile that Wireshark reads: its preferences, and one per table ("UAT") of
// quoted, comma-separated fields, named after the table.
constexpr char kPreferences[] = "preferences";
constexpr char kSearchPaths[] = "protobuf_search_paths";
constexpr char kUdpMessageTypes[] = "protobuf_udp_message_types";
constexpr char kHeader[] = "# Written by tarvo-emu wireshark-profile.\n";

Result<void> Write(const std::string& text, const std::string& path) {
    if (!android::base::WriteStringToFile(text, path))
        return ErrnoError() << "cannot write " << path;
    return {};
}

}  // namespace

Result<void> WriteWiresharkProfile(const std::string& dir) {
    std::error_code error;
    const std::string absolute = std::filesystem::absolute(dir, error).lexically_normal();
    const std::string schema_dir = fmt::format("{}/{}", absolute, kSchemaFolder);
    std::filesystem::create_directories(schema_dir, error);
    if (error)
        return android::base::Error() << "cannot make " << schema_dir << ": " << error.message();

    // A table's second field says whether to load every file under the path at start, which
    // the message type mapping needs.
    const std::string files[][2] = {
        {fmt::format("{}/{}", schema_dir, kSchemaFile), kMessageSchema},
        {fmt::format("{}/{}", absolute, kSearchPaths),
         fmt::format("{}\"{}\",\"TRUE\"\n", kHeader, schema_dir)},
        {fmt::format("{}/{}", absolute, kUdpMessageTypes),
         fmt::format("{}\"{}-{}\",\"{}\"\n", kHeader, PcapngWriter::kModemPort,
                     PcapngWriter::kDaemonPort, kMessageType)},
        {fmt::format("{}/{}", absolute, kPreferences), fmt::format("{}"
                                                                   "protobuf.preload_protos: TRUE\n"
                                                                   "protobuf.pbf_as_hf: TRUE\n"
                                                                   "nameres.network_name: TRUE\n",
                                                                   kHeader)},
    };
    for (const auto& [path, text] : files) {
        if (Result<void> written = Write(text, path); !written.ok()) return written.error();
    }
    return {};
}

}  // namespace tarvo_emu
