#include "device/fault.h"

#include <android-base/strings.h>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

struct FaultName {
    Fault fault;
    const char* text;  // in the transcript
    const char* soak;  // in the soak's list
};

constexpr FaultName kFaultNames[] = {
    {Fault::kEndOfFile, "end of file", "eof"},    {Fault::kReadError, "read error", "read"},
    {Fault::kWriteError, "write error", "write"}, {Fault::kHangUp, "hang-up", "hangup"},
    {Fault::kOffline, "offline", "offline"},      {Fault::kRestart, "restart", "restart"},
    {Fault::kFull, "disk full", "full"},          {Fault::kReadOnly, "read-only", "readonly"},
};

}  // namespace

std::string_view FaultText(Fault fault) {
    for (const FaultName& name : kFaultNames) {
        if (name.fault == fault) return name.text;
    }
    return {};
}

std::optional<Fault> FaultOfText(std::string_view text) {
    for (const FaultName& name : kFaultNames) {
        if (name.text == text) return name.fault;
    }
    return std::nullopt;
}

std::string_view FaultSoakName(Fault fault) {
    for (const FaultName& name : kFaultNames) {
        if (name.fault == fault) return name.soak;
    }
    return {};
}

Result<std::set<Fault>> ParseSoakFaults(const std::string& list) {
    std::set<Fault> faults;
    if (list == "none") return faults;
    for (const std::string& item : android::base::Split(list, ",")) {
        const FaultName* found = nullptr;
        for (const FaultName& name : kFaultNames) {
            if (item == "all" || item == name.soak) {
                faults.insert(name.fault);
                found = &name;
            }
        }
        if (found == nullptr) {
            return Error() << "no fault \"" << item
                           << "\" (eof, read, write, hangup, offline, restart, full, readonly)";
        }
    }
    return faults;
}

}  // namespace tarvo_emu
