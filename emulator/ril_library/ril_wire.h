#pragma once

// What the emulated RIL client library and the rig's RIL side say to each other over a
// SOCK_SEQPACKET Unix socket, one packet per request or answer, in host byte order.

#include <cstdint>

namespace tarvo_emu {

// Where the rig listens, as processes in the sandbox see it.
constexpr const char* kRilSocketDir = "/dev/socket";
constexpr const char* kRilSocketPath = "/dev/socket/vekril-client";

// Library to rig: the header, then the request's data.
struct RilWireRequest {
    uint32_t serial;  // numbers the library's outstanding requests
    uint32_t request;
    uint32_t selector;
};

// Rig to library.
struct RilWireAnswer {
    uint32_t serial;
    int32_t error;
};

}  // namespace tarvo_emu
