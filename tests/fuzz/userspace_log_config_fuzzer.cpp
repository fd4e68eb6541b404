// The userspace-log configuration, "modem_userspace_logging.conf": each input is the file's
// text, split into the names that the daemon enables.

#include <cstddef>
#include <cstdint>
#include <string>

#include "userspace_log_config.h"

namespace tarvo {

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    split_userspace_log_names(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}

}  // namespace tarvo
