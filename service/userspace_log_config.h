#pragma once

#include <string>
#include <vector>

namespace tarvo {

// The names in "modem_userspace_logging.conf", one per line, taken exactly as they stand: a CR
// before the line feed stays in the name and an empty line is an empty name. A last line
// without a line feed counts; the end of the file after a line feed starts no further line.
std::vector<std::string> split_userspace_log_names(const std::string& text);

}  // namespace tarvo
