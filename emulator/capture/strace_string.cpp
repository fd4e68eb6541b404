#include "capture/strace_string.h"

#include <ctype.h>

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

// Where the quoted string starting at `at` ends (after the closing quote), or npos. A quote
// closes the string unless an odd run of backslashes escapes it; strace's buffers are long,
// so the search goes by quotes rather than by characters.
size_t SkipQuoted(std::string_view text, size_t at) {
    for (size_t quote = text.find('"', at + 1); quote != std::string_view::npos;
         quote = text.find('"', quote + 1)) {
        size_t backslashes = 0;
        while (text[quote - 1 - backslashes] == '\\') ++backslashes;
        if (backslashes % 2 == 0) return quote + 1;
    }
    return std::string_view::npos;
}

}  // namespace

std::string_view TrimView(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

bool SplitStraceArguments(std::string_view text, std::vector<std::string_view>* args,
                          size_t* close) {
    int depth = 0;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '"') {
            i = SkipQuoted(text, i);
            if (i == std::string_view::npos) return false;
            --i;
        } else if (c == '(' || c == '{' || c == '[' ||
                   (c == '<' && i > 0 && isdigit(static_cast<unsigned char>(text[i - 1])))) {
            ++depth;
        } else if ((c == ')' && depth == 0)) {
            if (i > start || !args->empty())
                args->push_back(TrimView(text.substr(start, i - start)));
            *close = i;
            return true;
        } else if (c == ')' || c == '}' || c == ']' || (c == '>' && depth > 0)) {
            --depth;
        } else if (c == ',' && depth == 0) {
            args->push_back(TrimView(text.substr(start, i - start)));
            start = i + 1;
        }
    }
    return false;
}

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
