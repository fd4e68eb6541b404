#include "cli/command_options.h"

#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// Whether a file can be written at `path`: an existing file writable, or its directory one that
// a file can be created in.
Result<void> CheckOutputPath(const std::string& path) {
    struct stat status;
    if (stat(path.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) return Error() << path << " is a directory";
        if (access(path.c_str(), W_OK) != 0) return ErrnoError() << "cannot write " << path;
        return {};
    }
    const std::string directory = android::base::Dirname(path);
    if (access(directory.c_str(), W_OK | X_OK) != 0) {
        return ErrnoError() << "cannot create " << path << " in " << directory;
    }
    return {};
}

}  // namespace

CLI::Validator WritableOutput(bool dash) {
    return CLI::Validator(
        [dash](std::string& path) -> std::string {
            if (dash && path == "-") return "";
            const Result<void> writable = CheckOutputPath(path);
            return writable.ok() ? "" : writable.error().message();
        },
        "", "WRITABLE");
}

Result<std::unique_ptr<PcapngWriter>> OpenPcapng(const std::string& path, RigHooks* hooks) {
    if (path.empty()) return nullptr;
    Result<std::unique_ptr<PcapngWriter>> opened = PcapngWriter::Open(path);
    if (opened.ok()) (*opened)->Attach(hooks);
    return opened;
}

}  // namespace tarvo_emu
