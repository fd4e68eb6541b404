#pragma once

#include <set>
#include <string>

namespace tarvo_emu {

// Kinds of fault that a soak run may play between the modem's messages.
enum class SoakFault { kEndOfFile, kReadError, kWriteError, kHangUp, kOffline, kRestart };

// Parses a comma-separated list of fault names ("eof,read,write,hangup,offline,restart", "all"
// or "none"); the error names the first unknown one.
bool ParseSoakFaults(const std::string& list, std::set<SoakFault>* faults, std::string* error);

}  // namespace tarvo_emu
