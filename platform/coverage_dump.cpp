// Linked into the daemon of a coverage build only. The rig ends that daemon with SIGTERM, whose
// default action, like SIGKILL, would lose the counters that only a normal exit writes.

#include <signal.h>
#include <unistd.h>

extern "C" void __gcov_dump(void);

namespace tarvo {
namespace {

void DumpCountersAndExit(int /*signal*/) {
    __gcov_dump();
    _exit(0);
}

[[maybe_unused]] const bool kInstalled = [] {
    signal(SIGTERM, DumpCountersAndExit);
    return true;
}();

}  // namespace
}  // namespace tarvo
