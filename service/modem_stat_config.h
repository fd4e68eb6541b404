#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tarvo {

// The grammar of "modem_stat.conf": entries `module` or `module:v=N,t=N`, separated by any run of
// '|', CR and LF.

struct ModemStatModuleConfig {
    std::string module;
    int v = -1;          // -1: not sent
    unsigned int t = 0;  // 0: not sent
};

// The non-empty entries in file order. The text ends at its first NUL byte, as the C string it
// is read into does.
std::vector<std::string> split_modem_stat_entries(const std::string& text);

// One entry; nullopt when no module name is left once ':' runs are taken out. Only the first two
// ':'-separated pieces count. Each ','-separated item is scanned as "%c=%d": an item that does
// not scan, or whose letter is neither 'v' nor 't', is ignored; the last 'v' and 't' win.
std::optional<ModemStatModuleConfig> parse_modem_stat_entry(const std::string& entry);

}  // namespace tarvo
