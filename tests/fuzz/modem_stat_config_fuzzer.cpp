// The statistics configuration, "modem_stat.conf": each input is the file's text, split into
// entries and each entry parsed as the loader does.

#include <cstddef>
#include <cstdint>
#include <string>

#include "modem_stat_config.h"

namespace tarvo {

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    for (const std::string& entry : split_modem_stat_entries(text)) {
        parse_modem_stat_entry(entry);
    }
    return 0;
}

}  // namespace tarvo
