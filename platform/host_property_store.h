#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

// Handle of an existing property, as bionic hands it out: here, its record in the area.
struct prop_info;

// A property store that refuses what Android's property service refuses: names of letters, digits
// and "_.-:@" with no leading, trailing or doubled dot; values of valid UTF-8 and at most 91 bytes
// except under "ro."; an "ro." property is set once.
//
// As on a device, the properties live in one shared memory area, a file of the store's directory
// that every process maps: a lookup or a read makes no system call. Records are only ever added,
// and published once whole; a value changes in place under a sequence counter, so a reader never
// sees half of one. Writers, in any process, take the file's lock; a set is visible to every
// mapping at once.
class HostPropertyStore {
  public:
    // The store the daemon uses: a fixed directory inside the host sandbox.
    static constexpr const char* kDefaultDir = "/dev/__properties__";
    // The area's file in that directory.
    static constexpr const char* kAreaFile = "property_area";

    explicit HostPropertyStore(std::string dir);
    HostPropertyStore(const HostPropertyStore&) = delete;
    HostPropertyStore& operator=(const HostPropertyStore&) = delete;
    ~HostPropertyStore();

    static HostPropertyStore& Default();

    static bool IsValidName(const std::string& name);
    static bool IsValidValue(const std::string& name, const std::string& value);

    std::optional<std::string> Get(const std::string& name) const;
    // The property's record, null when it is not set.
    const prop_info* Find(const char* name) const;
    // Reads at most `size` bytes of the value into `value` (not terminated); its length.
    std::optional<size_t> GetPrefix(const char* name, char* value, size_t size) const;
    // 0, or -1 when the set is refused or the area is full; a refused set changes nothing.
    int Set(const std::string& name, const std::string& value) const;
    // Forgets every property, for a tool that starts each run from an empty store.
    void Clear() const;

    struct Area;

  private:
    // The mapped area, or null while there is none; `create` makes it first.
    Area* Map(bool create) const;

    std::string dir_;
    mutable std::mutex map_lock_;
    mutable std::atomic<Area*> area_{nullptr};
    mutable int fd_ = -1;
};

int property_get(const char* key, char* value, const char* default_value);
int property_set(const char* key, const char* value);
const prop_info* __system_property_find(const char* name);
