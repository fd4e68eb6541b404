#pragma once

#include <regex>
#include <string>

#include <android-base/result.h>

namespace tarvo_emu {

// A step's ECMAScript regular expression; an unusable one is an error, not an exception.
inline android::base::Result<std::regex> CompiledRegex(const std::string& regex) {
    try {
        return std::regex(regex, std::regex::ECMAScript);
    } catch (const std::regex_error& e) {
        return android::base::Error() << "bad regular expression \"" << regex << "\": " << e.what();
    }
}

}  // namespace tarvo_emu
