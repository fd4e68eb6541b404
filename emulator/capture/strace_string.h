#pragma once

#include <string>
#include <string_view>

#include <android-base/result.h>

namespace tarvo_emu {

// The bytes of a string as strace prints it, from its opening quote: `\xNN`, octal, and C
// escapes. `*end` is set after the closing quote. Fails on a string without one.
android::base::Result<std::string> UnquoteStraceString(std::string_view text, size_t* end);

// Appends the bytes of a row of strace's hex dump (`-e read=FD`, `-e write=FD`), "| 00000  08 01
// ...  ..text.. |" (leading spaces trimmed), to `*bytes`; false for a line that is no row.
bool AppendStraceDumpRow(std::string_view line, std::string* bytes);

}  // namespace tarvo_emu
