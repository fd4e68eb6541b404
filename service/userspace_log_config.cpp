#include "userspace_log_config.h"

#include <android-base/strings.h>

namespace tarvo {

std::vector<std::string> split_userspace_log_names(const std::string& text) {
    if (text.empty()) return {};
    std::vector<std::string> lines = android::base::Split(text, "\n");
    if (text.back() == '\n') lines.pop_back();
    return lines;
}

}  // namespace tarvo
