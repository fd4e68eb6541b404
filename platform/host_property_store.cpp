#include "host_property_store.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include <android-base/unique_fd.h>

namespace {

constexpr size_t kMaxValueLength = PROPERTY_VALUE_MAX - 1;
constexpr size_t kValueWords = (PROPERTY_VALUE_MAX + 3) / 4;
constexpr uint32_t kMagic = 0x504f5250;  // "PROP"
constexpr uint32_t kVersion = 1;
// Room for thousands of properties; the file is sparse, so only what is used takes disk space.
constexpr uint32_t kAreaSize = 1 << 20;
constexpr uint32_t kBucketCount = 1024;
// A value being changed is waited for this many times before the writer's lock is taken
// instead: a writer that died in the middle must not hang its readers.
constexpr int kSpinsBeforeLock = 1000;
constexpr uint32_t kDirty = 1;
constexpr uint32_t kLengthShift = 24;
constexpr uint32_t kChangeMask = (1u << kLengthShift) - 2;

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

// Eight bytes at a time: every lookup hashes the name, and most names are a few dozen bytes.
uint32_t Hash(const char* name, size_t length) {
    constexpr uint64_t kMultiplier = 0xff51afd7ed558ccdull;
    uint64_t hash = 0x9e3779b97f4a7c15ull ^ length;
    size_t i = 0;
    for (; i + sizeof(uint64_t) <= length; i += sizeof(uint64_t)) {
        uint64_t word;
        memcpy(&word, name + i, sizeof(word));
        hash = (hash ^ word) * kMultiplier;
        hash ^= hash >> 32;
    }
    uint64_t tail = 0;
    memcpy(&tail, name + i, length - i);
    hash = (hash ^ tail) * kMultiplier;
    return static_cast<uint32_t>(hash ^ (hash >> 29));
}

constexpr uint32_t Align(size_t size) { return static_cast<uint32_t>((size + 3) & ~size_t{3}); }

}  // namespace

// One property. Its name follows the record; a long "ro." value lies elsewhere in the area, and
// never changes once the record is published.
struct prop_info {
    std::atomic<uint32_t> next;  // the next record of the same bucket, 0 for none
    // The value's length above kLengthShift, a change count, and kDirty while it changes.
    std::atomic<uint32_t> serial;
    uint32_t long_value;  // offset of a long value (its length, then its bytes), 0 for none
    uint32_t name_length;
    std::atomic<uint32_t> value[kValueWords];

    const char* name() const { return reinterpret_cast<const char*>(this + 1); }
    char* name() { return reinterpret_cast<char*>(this + 1); }
};

struct HostPropertyStore::Area {
    uint32_t magic;
    uint32_t version;
    std::atomic<uint32_t> used;  // the end of the last record
    uint32_t reserved;
    std::atomic<uint32_t> buckets[kBucketCount];  // offset of each chain's first record

    static constexpr uint32_t kFirstRecord = Align(sizeof(uint32_t) * (4 + kBucketCount));

    char* base() { return reinterpret_cast<char*>(this); }
    const char* base() const { return reinterpret_cast<const char*>(this); }

    // The record at `offset` when a whole one fits there, else null: the area is shared with
    // other processes and is checked, not trusted.
    const prop_info* At(uint32_t offset) const {
        if (offset < kFirstRecord || offset > kAreaSize - sizeof(prop_info)) return nullptr;
        const auto* info = reinterpret_cast<const prop_info*>(base() + offset);
        if (info->name_length >= kAreaSize - offset - sizeof(prop_info)) return nullptr;
        return info;
    }

    const prop_info* Find(const char* name, size_t length) const {
        uint32_t offset =
            buckets[Hash(name, length) % kBucketCount].load(std::memory_order_acquire);
        while (offset != 0) {
            const prop_info* info = At(offset);
            if (info == nullptr) return nullptr;
            if (info->name_length == length && memcmp(info->name(), name, length) == 0) {
                return info;
            }
            offset = info->next.load(std::memory_order_acquire);
        }
        return nullptr;
    }

    // Copies at most `size` bytes of the value; its length. False when the value is changing.
    bool TryRead(const prop_info* info, char* out, size_t size, size_t* length) const {
        if (info->long_value != 0) {
            uint32_t total = 0;
            if (info->long_value > kAreaSize - sizeof(total)) return true;
            memcpy(&total, base() + info->long_value, sizeof(total));
            *length = std::min<size_t>({size, total, kAreaSize - info->long_value - sizeof(total)});
            memcpy(out, base() + info->long_value + sizeof(total), *length);
            return true;
        }
        const uint32_t serial = info->serial.load(std::memory_order_acquire);
        if (serial & kDirty) return false;
        const size_t value_length = std::min<size_t>(serial >> kLengthShift, kMaxValueLength);
        uint32_t words[kValueWords];
        for (size_t i = 0; i < (value_length + 3) / 4; ++i) {
            // Acquire: the serial's second load below cannot move before these, and a word
            // that a set wrote carries the set's dirty serial with it.
            words[i] = info->value[i].load(std::memory_order_acquire);
        }
        if (info->serial.load(std::memory_order_relaxed) != serial) return false;
        *length = std::min(size, value_length);
        memcpy(out, words, *length);
        return true;
    }

    static void StoreValue(prop_info* info, const std::string& value) {
        uint32_t words[kValueWords] = {};
        memcpy(words, value.data(), value.size());
        for (size_t i = 0; i < kValueWords; ++i) {
            info->value[i].store(words[i], std::memory_order_release);
        }
    }

    // Changes a value in place; the caller holds the writers' lock.
    static void Update(prop_info* info, const std::string& value) {
        const uint32_t serial = info->serial.load(std::memory_order_relaxed);
        info->serial.store(serial | kDirty, std::memory_order_relaxed);
        // Each word is stored with release, so a reader that sees it sees the dirty serial too.
        StoreValue(info, value);
        const uint32_t changed = (serial + 2) & kChangeMask;
        info->serial.store(static_cast<uint32_t>(value.size()) << kLengthShift | changed,
                           std::memory_order_release);
    }

    // Adds a record and publishes it; the caller holds the writers' lock. False when the area
    // has no room, and then nothing changed.
    bool Add(const std::string& name, const std::string& value) {
        const uint32_t record = Align(sizeof(prop_info) + name.size() + 1);
        const bool is_long = value.size() > kMaxValueLength;
        const uint32_t long_size = is_long ? Align(sizeof(uint32_t) + value.size()) : 0;
        const uint32_t offset = used.load(std::memory_order_relaxed);
        if (offset < kFirstRecord || offset > kAreaSize ||
            kAreaSize - offset < uint64_t{record} + long_size) {
            return false;
        }
        auto* info = reinterpret_cast<prop_info*>(base() + offset);
        info->name_length = static_cast<uint32_t>(name.size());
        memcpy(info->name(), name.c_str(), name.size() + 1);
        if (is_long) {
            const uint32_t total = static_cast<uint32_t>(value.size());
            info->long_value = offset + record;
            memcpy(base() + info->long_value, &total, sizeof(total));
            memcpy(base() + info->long_value + sizeof(total), value.data(), value.size());
            StoreValue(info, {});
            info->serial.store(0, std::memory_order_relaxed);
        } else {
            info->long_value = 0;
            StoreValue(info, value);
            info->serial.store(static_cast<uint32_t>(value.size()) << kLengthShift,
                               std::memory_order_relaxed);
        }
        std::atomic<uint32_t>& bucket = buckets[Hash(name.data(), name.size()) % kBucketCount];
        info->next.store(bucket.load(std::memory_order_relaxed), std::memory_order_relaxed);
        used.store(offset + record + long_size, std::memory_order_relaxed);
        bucket.store(offset, std::memory_order_release);
        return true;
    }

    void Clear() {
        const uint32_t end = std::min(used.load(std::memory_order_relaxed), kAreaSize);
        for (std::atomic<uint32_t>& bucket : buckets) bucket.store(0, std::memory_order_release);
        if (end > kFirstRecord) memset(base() + kFirstRecord, 0, end - kFirstRecord);
        used.store(kFirstRecord, std::memory_order_relaxed);
    }
};

namespace {

// Writers of every process take the area file's lock; the threads of one process also take
// a mutex of their own, since the file lock belongs to the descriptor they share.
class WriterLock {
  public:
    WriterLock(std::mutex& mutex, int fd) : guard_(mutex), fd_(fd) { flock(fd_, LOCK_EX); }
    WriterLock(const WriterLock&) = delete;
    WriterLock& operator=(const WriterLock&) = delete;
    ~WriterLock() { flock(fd_, LOCK_UN); }

  private:
    std::lock_guard<std::mutex> guard_;
    int fd_;
};

std::mutex& WriterMutex() {
    static std::mutex mutex;
    return mutex;
}

// A new area appears under its name only once it is whole, so a reader never maps a file that
// is still being laid out.
bool CreateArea(const std::string& dir, const std::string& path) {
    std::string temporary = dir + "/." + HostPropertyStore::kAreaFile + ".XXXXXX";
    android::base::unique_fd fd(mkostemp(temporary.data(), O_CLOEXEC));
    if (fd < 0) return false;
    HostPropertyStore::Area header = {};
    header.magic = kMagic;
    header.version = kVersion;
    header.used = HostPropertyStore::Area::kFirstRecord;
    const bool laid_out = fchmod(fd, 0644) == 0 && ftruncate(fd, kAreaSize) == 0 &&
                          pwrite(fd, &header, sizeof(header), 0) == sizeof(header);
    const bool linked = laid_out && (link(temporary.c_str(), path.c_str()) == 0 || errno == EEXIST);
    unlink(temporary.c_str());
    return linked;
}

}  // namespace

HostPropertyStore::HostPropertyStore(std::string dir) : dir_(std::move(dir)) {}

HostPropertyStore::~HostPropertyStore() {
    if (Area* area = area_.load()) munmap(area, kAreaSize);
    if (fd_ >= 0) close(fd_);
}

HostPropertyStore& HostPropertyStore::Default() {
    static HostPropertyStore* store = new HostPropertyStore(kDefaultDir);
    return *store;
}

HostPropertyStore::Area* HostPropertyStore::Map(bool create) const {
    if (Area* area = area_.load(std::memory_order_acquire)) return area;
    std::lock_guard<std::mutex> guard(map_lock_);
    if (Area* area = area_.load(std::memory_order_acquire)) return area;
    const std::string path = dir_ + "/" + kAreaFile;
    android::base::unique_fd fd(open(path.c_str(), O_RDWR | O_CLOEXEC));
    if (fd < 0 && errno == ENOENT && create && CreateArea(dir_, path)) {
        fd.reset(open(path.c_str(), O_RDWR | O_CLOEXEC));
    }
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0 || st.st_size < static_cast<off_t>(kAreaSize)) {
        return nullptr;
    }
    void* mapped = mmap(nullptr, kAreaSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (mapped == MAP_FAILED) return nullptr;
    auto* area = static_cast<Area*>(mapped);
    if (area->magic != kMagic || area->version != kVersion) {
        munmap(mapped, kAreaSize);
        return nullptr;
    }
    fd_ = fd.release();
    area_.store(area, std::memory_order_release);
    return area;
}

bool HostPropertyStore::IsValidName(const std::string& name) {
    // As init's property service: no leading or trailing dot and no empty component.
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

const prop_info* HostPropertyStore::Find(const char* name) const {
    const Area* area = Map(false);
    return area != nullptr ? area->Find(name, strlen(name)) : nullptr;
}

std::optional<size_t> HostPropertyStore::GetPrefix(const char* name, char* value,
                                                   size_t size) const {
    const Area* area = Map(false);
    const prop_info* info = area != nullptr ? area->Find(name, strlen(name)) : nullptr;
    if (info == nullptr) return std::nullopt;
    size_t length = 0;
    for (int spins = 0; !area->TryRead(info, value, size, &length); ++spins) {
        if (spins < kSpinsBeforeLock) {
            sched_yield();
            continue;
        }
        // Once no writer runs, a value still marked as changing was left by one that died: it
        // is taken as it stands.
        WriterLock lock(WriterMutex(), fd_);
        const_cast<prop_info*>(info)->serial.fetch_and(~kDirty, std::memory_order_release);
    }
    return length;
}

std::optional<std::string> HostPropertyStore::Get(const std::string& name) const {
    // A long "ro." value may take up to the whole area.
    std::string value(kAreaSize, '\0');
    const std::optional<size_t> length = GetPrefix(name.c_str(), value.data(), value.size());
    if (!length) return std::nullopt;
    value.resize(*length);
    return value;
}

int HostPropertyStore::Set(const std::string& name, const std::string& value) const {
    if (!IsValidName(name) || !IsValidValue(name, value)) return -1;
    // The platform's interface takes C strings, so no value it sets holds a NUL byte.
    if (value.find('\0') != std::string::npos) return -1;
    Area* area = Map(true);
    if (area == nullptr) return -1;

    WriterLock lock(WriterMutex(), fd_);
    if (const prop_info* found = area->Find(name.data(), name.size())) {
        if (IsReadOnly(name)) return -1;
        Area::Update(const_cast<prop_info*>(found), value);
        return 0;
    }
    return area->Add(name, value) ? 0 : -1;
}

void HostPropertyStore::Clear() const {
    Area* area = Map(false);
    if (area == nullptr) return;
    WriterLock lock(WriterMutex(), fd_);
    area->Clear();
}

int property_get(const char* key, char* value, const char* default_value) {
    // Only as much as the caller's buffer takes is read: a long "ro." value is cut anyway.
    std::optional<size_t> length;
    if (key != nullptr)
        length = HostPropertyStore::Default().GetPrefix(key, value, kMaxValueLength);
    if (!length) {
        const size_t fallback = default_value != nullptr ? strlen(default_value) : 0;
        length = std::min(fallback, kMaxValueLength);
        if (*length > 0) memcpy(value, default_value, *length);
    }
    value[*length] = '\0';
    return static_cast<int>(*length);
}

int property_set(const char* key, const char* value) {
    if (key == nullptr) return -1;
    return HostPropertyStore::Default().Set(key, value != nullptr ? value : "");
}

const prop_info* __system_property_find(const char* name) {
    if (name == nullptr) return nullptr;
    return HostPropertyStore::Default().Find(name);
}
