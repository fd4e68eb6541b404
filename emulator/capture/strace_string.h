#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <android-base/result.h>

namespace tarvo_emu {

// The bytes of a string as strace prints it, from its opening quote: `\xNN`, octal, and C
// escapes. `*end` is set after the closing quote. Fails on a string without one.
android::base::Result<std::string> UnquoteStraceString(std::string_view text, size_t* end);

// `text` without the spaces and tabs around it, and a carriage return at its end.
std::string_view TrimView(std::string_view text);

// The arguments of a call as strace prints it, from after its opening parenthesis, trimmed;
// `*close` is set to the matching parenthesis. A string, a `-y` path (`5</dev/oem_ipc1>`) and
// nested braces stay within their argument. False for arguments that do not close.
bool SplitStraceArguments(std::string_view text, std::vector<std::string_view>* args,
                          size_t* close);

// Appends the bytes of a row of strace's hex dump (`-e read=FD`, `-e write=FD`), "| 00000  08 01
// ...  ..text.. |" (leading spaces trimmed), to `*bytes`; false for a line that is no row.
bool AppendStraceDumpRow(std::string_view line, std::string* bytes);

}  // namespace tarvo_emu
