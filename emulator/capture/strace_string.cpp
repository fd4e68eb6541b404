#include "capture/strace_string.h"

#include <array>
#include <cstdint>

using android::base::Error;
using android::base::Result;

namespace tarvo_emu {

namespace {

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

}  // namespace tarvo_emu
