#include "modem_stat_config.h"

#include <stdio.h>

#include <algorithm>

#include <android-base/strings.h>

namespace tarvo {

namespace {

// The non-empty runs between delimiters, as a tokeniser yields them.
std::vector<std::string> Tokens(const std::string& text, const char* delimiters) {
    std::vector<std::string> tokens = android::base::Split(text, delimiters);
    tokens.erase(std::remove(tokens.begin(), tokens.end(), std::string()), tokens.end());
    return tokens;
}

}  // namespace

std::vector<std::string> split_modem_stat_entries(const std::string& text) {
    return Tokens(text.substr(0, text.find('\0')), "|\r\n");
}

std::optional<ModemStatModuleConfig> parse_modem_stat_entry(const std::string& entry) {
    const std::vector<std::string> pieces = Tokens(entry, ":");
    if (pieces.empty()) return std::nullopt;

    ModemStatModuleConfig config;
    config.module = pieces[0];
    if (pieces.size() < 2) return config;
    for (const std::string& item : Tokens(pieces[1], ",")) {
        char letter = 0;
        int value = 0;
        if (sscanf(item.c_str(), "%c=%d", &letter, &value) != 2) continue;
        if (letter == 't') config.t = static_cast<unsigned int>(value);
        if (letter == 'v') config.v = value;
    }
    return config;
}

}  // namespace tarvo
