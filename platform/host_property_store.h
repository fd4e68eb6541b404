#pragma once

#include <optional>
#include <string>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

// Opaque handle of an existing property, as bionic hands it out.
struct prop_info;

// A property store that refuses what Android's property service refuses: names of letters, digits
// and "_.-:@" with no leading, trailing or doubled dot; values of valid UTF-8 and at most 91 bytes
// except under "ro."; an "ro." property is set once. One file per property in a
// directory, each replaced atomically, so that tools outside the daemon can seed and read it.
class HostPropertyStore {
  public:
    // The store the daemon uses: a fixed directory inside the host sandbox.
    static constexpr const char* kDefaultDir = "/dev/__properties__";

    explicit HostPropertyStore(std::string dir) : dir_(std::move(dir)) {}

    static HostPropertyStore& Default();

    static bool IsValidName(const std::string& name);
    static bool IsValidValue(const std::string& name, const std::string& value);

    std::optional<std::string> Get(const std::string& name) const;
    // 0, or -1 when the set is refused; a refused set changes nothing.
    int Set(const std::string& name, const std::string& value) const;

  private:
    std::string dir_;
};

int property_get(const char* key, char* value, const char* default_value);
int property_set(const char* key, const char* value);
const prop_info* __system_property_find(const char* name);
