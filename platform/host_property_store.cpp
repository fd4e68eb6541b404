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

}  // namespace

// Bionic hands out pointers into its property area; the host only needs a non-null handle.
struct prop_info {};

HostPropertyStore& HostPropertyStore::Default() {
    static HostPropertyStore store(kDefaultDir);
    return store;
}

bool HostPropertyStore::IsValidName(const std::string& name) {
    if (name.empty()) return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                        (c >= '0' && c <= '9') || c == '_' || c == '.' || c == '-' || c == ':' ||
                        c == '@';
        if (!ok) return false;
    }
    // The name is a file name in the store; "." and ".." would name directories.
    return name != "." && name != "..";
}

std::optional<std::string> HostPropertyStore::Get(const std::string& name) const {
    if (!IsValidName(name)) return std::nullopt;
    std::string value;
    if (!android::base::ReadFileToString(dir_ + "/" + name, &value)) return std::nullopt;
    return value;
}

int HostPropertyStore::Set(const std::string& name, const std::string& value) const {
    if (!IsValidName(name)) return -1;
    if (value.size() > kMaxValueLength && !IsReadOnly(name)) return -1;
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
