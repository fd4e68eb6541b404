#include "host_property_store.h"

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/file.h>

namespace {

constexpr size_t kMaxValueLength = PROPERTY_VALUE_MAX - 1;

bool IsReadOnly(const std::string& name) { return name.compare(0, 3, "ro.") == 0; }

// Whether `text` decodes as bionic's mbstowcs decodes UTF-8: no stray continuation byte, no
// truncated or overlong sequence, no surrogate, nothing above U+10FFFF.
bool IsUtf8(const std::string& text) {
    size_t i = 0;
    while (i < text.size()) {
        const unsigned char lead = text[i];
        size_t length;
        char32_t code;
        char32_t lowest;
        if (lead < 0x80) {
            ++i;
            continue;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2, code = lead & 0x1F, lowest = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3, code = lead & 0x0F, lowest = 0x800;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4, code = lead & 0x07, lowest = 0x10000;
        } else {
            return false;
        }
        if (text.size() - i < length) return false;
        for (size_t k = 1; k < length; ++k) {
            const unsigned char next = text[i + k];
            if ((next & 0xC0) != 0x80) return false;
            code = (code << 6) | (next & 0x3F);
        }
        if (code < lowest || (code >= 0xD800 && code <= 0xDFFF) || code > 0x10FFFF) return false;
        i += length;
    }
    return true;
}

}  // namespace

// Bionic hands out pointers into its property area; the host only needs a non-null handle.
struct prop_info {};

HostPropertyStore& HostPropertyStore::Default() {
    static HostPropertyStore store(kDefaultDir);
    return store;
}

bool HostPropertyStore::IsValidName(const std::string& name) {
    // As init's property service: no leading or trailing dot and no empty component, which also
    // keeps "." and ".." from naming directories of the store.
    if (name.empty() || name.front() == '.' || name.back() == '.') return false;
    if (name.find("..") != std::string::npos) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || c == '.' || c == '-' || c == ':' ||
                        c == '@';
        if (!ok) return false;
    }
    return true;
}

bool HostPropertyStore::IsValidValue(const std::string& name, const std::string& value) {
    if (value.size() > kMaxValueLength && !IsReadOnly(name)) return false;
    return IsUtf8(value);
}

std::optional<std::string> HostPropertyStore::Get(const std::string& name) const {
    if (!IsValidName(name)) return std::nullopt;
    std::string value;
    if (!android::base::ReadFileToString(dir_ + "/" + name, &value)) return std::nullopt;
    return value;
}

int HostPropertyStore::Set(const std::string& name, const std::string& value) const {
    if (!IsValidName(name) || !IsValidValue(name, value)) return -1;
    // The platform's interface takes C strings, so no value it sets holds a NUL byte.
    if (value.find('\0') != std::string::npos) return -1;
    const std::string path = dir_ + "/" + name;
    if (IsReadOnly(name) && access(path.c_str(), F_OK) == 0) return -1;

    const std::string temp = dir_ + "/.tmp." + name;
    if (!android::base::WriteStringToFile(value, temp, 0644, getuid(), getgid())) {
        unlink(temp.c_str());
        return -1;
    }
    if (rename(temp.c_str(), path.c_str()) != 0) {
        unlink(temp.c_str());
        return -1;
    }
    return 0;
}

int property_get(const char* key, char* value, const char* default_value) {
    std::optional<std::string> found;
    if (key != nullptr) found = HostPropertyStore::Default().Get(key);
    std::string result = found ? *found : (default_value != nullptr ? default_value : "");
    if (result.size() > kMaxValueLength) result.resize(kMaxValueLength);
    memcpy(value, result.c_str(), result.size() + 1);
    return static_cast<int>(result.size());
}

int property_set(const char* key, const char* value) {
    if (key == nullptr) return -1;
    return HostPropertyStore::Default().Set(key, value != nullptr ? value : "");
}

const prop_info* __system_property_find(const char* name) {
    static const prop_info handle{};
    if (name == nullptr || !HostPropertyStore::Default().Get(name)) return nullptr;
    return &handle;
}
