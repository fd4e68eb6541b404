#include "cli/output_path.h"

#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>

using android::base::ErrnoError;
using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

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

}  // namespace tarvo_emu
