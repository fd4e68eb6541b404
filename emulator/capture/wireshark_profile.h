#pragma once

#include <string>

#include <android-base/result.h>

namespace tarvo_emu {

// The name under which a profile is meant to be kept in Wireshark's profiles folder.
constexpr char kWiresharkProfileName[] = "tarvo";

// Writes a Wireshark configuration profile into `dir` (made when missing) that decodes the pcapng
// files of PcapngWriter: a copy of the message schema, the protobuf dissector's search path
// pointing at it with every file preloaded, the UDP ports of both ends mapped to TarvoMessage,
// fields as filterable items, and addresses shown by the names the files give them. The search
// path is absolute: a profile moved elsewhere is written again.
android::base::Result<void> WriteWiresharkProfile(const std::string& dir);

}  // namespace tarvo_emu
