#include "capture/strace_string.h"

#include <array>
#include <cstdint>
#include <cstring>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

// A dump row: "| ", the offset in hex, two spaces, then 16 bytes in hex in two groups of eight
// (a last row padded with spaces), then the same as text.
constexpr char kDumpStart[] = "| ";
constexpr size_t kDumpHexWidth = 16 * 3;

// The value of each character as a hex digit, -1 for a character that is not one.
constexpr std::array<int8_t, 256> kHexValues = [] {
    std::array<int8_t, 256> values{};
    for (int8_t& value : values) value = -1;
    for (int digit = 0; digit < 10; ++digit) values['0' + digit] = static_cast<int8_t>(digit);
    for (int digit = 0; digit < 6; ++digit) {
        values['a' + digit] = values['A' + digit] = static_cast<int8_t>(10 + digit);
    }
    return values;
}();

}  // namespace

Result<std::string> UnquoteStraceString(std::string_view text, size_t* end) {
    if (text.empty() || text[0] != '"') return Error() << "no string where one was expected";
    std::string bytes;
    bytes.reserve(text.size() / 4 + 16);
    // Bytes go through a buffer of their own and into the string a chunk at a time: a capture
    // of 64 KiB blocks is mostly this loop.
    char chunk[4096];
    size_t used = 0;
    const auto put = [&](char byte) {
        if (used == sizeof(chunk)) {
            bytes.append(chunk, used);
            used = 0;
        }
        chunk[used++] = byte;
    };
    const char* p = text.data() + 1;
    const char* const last = text.data() + text.size();
    while (p < last) {
        const char c = *p;
        if (c == '"') {
            bytes.append(chunk, used);
            *end = p + 1 - text.data();
            return bytes;
        }
        if (c != '\\') {
            put(c);
            ++p;
            continue;
        }
        if (p + 1 >= last) break;
        const char e = p[1];
        if (e == 'x' && p + 3 < last) {
            const int8_t high = kHexValues[static_cast<uint8_t>(p[2])];
            const int8_t low = kHexValues[static_cast<uint8_t>(p[3])];
            if ((high | low) < 0) return Error() << "a bad \\x escape";
            put(static_cast<char>(high << 4 | low));
            p += 4;
            continue;
        }
        if (e >= '0' && e <= '7') {
            int value = 0;
            int digits = 0;
            for (p += 1; digits < 3 && p < last && *p >= '0' && *p <= '7'; ++p, ++digits) {
                value = value * 8 + (*p - '0');
            }
            put(static_cast<char>(value));
            continue;
        }
        static constexpr std::string_view kEscapes = "ntrfvab\\\"'?";
        static constexpr std::string_view kValues = "\n\t\r\f\v\a\b\\\"'?";
        const size_t known = kEscapes.find(e);
        if (known == std::string_view::npos) return Error() << "an unknown escape \\" << e;
        put(kValues[known]);
        p += 2;
    }
    return Error() << "a string without its closing quote";
}

bool AppendStraceDumpRow(std::string_view line, std::string* bytes) {
    if (line.substr(0, strlen(kDumpStart)) != kDumpStart) return false;
    line.remove_prefix(strlen(kDumpStart));
    const size_t offset_end = line.find("  ");
    if (offset_end == 0 || offset_end == std::string_view::npos) return false;
    for (const char c : line.substr(0, offset_end)) {
        if (kHexValues[static_cast<uint8_t>(c)] < 0) return false;
    }
    std::string row;
    const std::string_view hex = line.substr(offset_end + 2, kDumpHexWidth);
    for (size_t i = 0; i < hex.size(); ++i) {
        if (hex[i] == ' ') continue;
        if (i + 1 >= hex.size() || kHexValues[static_cast<uint8_t>(hex[i])] < 0 ||
            kHexValues[static_cast<uint8_t>(hex[i + 1])] < 0 ||
            (i + 2 < hex.size() && hex[i + 2] != ' ')) {
            return false;
        }
        row.push_back(static_cast<char>(kHexValues[static_cast<uint8_t>(hex[i])] * 16 +
                                        kHexValues[static_cast<uint8_t>(hex[i + 1])]));
        ++i;
    }
    *bytes += row;
    return true;
}

}  // namespace tarvo_emu
