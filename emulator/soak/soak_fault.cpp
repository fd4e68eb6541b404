#include "soak/soak_fault.h"

#include <map>

#include <android-base/strings.h>

namespace tarvo_emu {

namespace {

const std::map<std::string, SoakFault>& FaultNames() {
    static const auto* const kNames = new std::map<std::string, SoakFault>{
        {"eof", SoakFault::kEndOfFile},    {"read", SoakFault::kReadError},
        {"write", SoakFault::kWriteError}, {"hangup", SoakFault::kHangUp},
        {"offline", SoakFault::kOffline},  {"restart", SoakFault::kRestart}};
    return *kNames;
}

}  // namespace

bool ParseSoakFaults(const std::string& list, std::set<SoakFault>* faults, std::string* error) {
    faults->clear();
    if (list == "none") return true;
    for (const std::string& name : android::base::Split(list, ",")) {
        if (name == "all") {
            for (const auto& [_, fault] : FaultNames()) faults->insert(fault);
            continue;
        }
        const auto it = FaultNames().find(name);
        if (it == FaultNames().end()) {
            *error = "no fault \"" + name + "\" (eof, read, write, hangup, offline, restart)";
            return false;
        }
        faults->insert(it->second);
    }
    return true;
}

}  // namespace tarvo_emu
