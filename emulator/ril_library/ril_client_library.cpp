// The emulated vendor RIL client library "libvekril-client.so": what the platform's library is
// to the daemon, with the rig in place of the radio. RILC_Open connects to the rig's socket, each
// request goes there as one packet, and a thread of the library reads the rig's answers and calls
// the response callbacks, as the platform's library does.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include <android-base/thread_annotations.h>
#include <android-base/unique_fd.h>

#include "ril_library/ril_wire.h"

using android::base::unique_fd;
using tarvo_emu::RilWireAnswer;
using tarvo_emu::RilWireRequest;

extern "C" {

// The platform's callback types.
typedef void (*RilResponseCallback)(unsigned int request, int error, void* data,
                                    unsigned long length, unsigned int selector);
typedef void (*RilUnsolicitedHandler)(unsigned int id, void* data, unsigned long length,
                                      unsigned int selector);

}  // extern "C"

namespace {

class RilClient {
  public:
    ~RilClient() { Disconnect(); }

    // Connects to the rig; false when nobody listens.
    bool Open() {
        unique_fd fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        if (fd == -1) return false;
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, tarvo_emu::kRilSocketPath, sizeof(address.sun_path) - 1);
        if (connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            return false;
        }
        const int reader_fd = fd.get();
        {
            std::lock_guard<std::mutex> lock(mutex_);
            fd_ = std::move(fd);
        }
        reader_ = std::thread([this, reader_fd] { ReadAnswers(reader_fd); });
        return true;
    }

    bool Reconnect() {
        Disconnect();
        return Open();
    }

    int Send(unsigned int request, const void* data, unsigned long length,
             RilResponseCallback callback, unsigned int selector) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (fd_ == -1) return -1;
        const uint32_t serial = next_serial_++;
        RilWireRequest header = {serial, request, selector};
        std::string packet(reinterpret_cast<const char*>(&header), sizeof(header));
        if (length > 0) packet.append(static_cast<const char*>(data), length);
        if (send(fd_.get(), packet.data(), packet.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(packet.size())) {
            return -1;
        }
        pending_[serial] = {request, selector, callback};
        return 0;
    }

  private:
    struct Pending {
        unsigned int request;
        unsigned int selector;
        RilResponseCallback callback;
    };

    void Disconnect() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            if (fd_ != -1) shutdown(fd_.get(), SHUT_RDWR);
        }
        if (reader_.joinable()) reader_.join();
        std::lock_guard<std::mutex> lock(mutex_);
        fd_.reset();
        pending_.clear();
    }

    void ReadAnswers(int fd) {
        RilWireAnswer answer;
        while (recv(fd, &answer, sizeof(answer), 0) == static_cast<ssize_t>(sizeof(answer))) {
            Pending pending;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                auto it = pending_.find(answer.serial);
                if (it == pending_.end()) continue;
                pending = it->second;
                pending_.erase(it);
            }
            if (pending.callback != nullptr) {
                pending.callback(pending.request, answer.error, nullptr, 0, pending.selector);
            }
        }
    }

    std::mutex mutex_;
    unique_fd fd_ GUARDED_BY(mutex_);
    std::thread reader_;
    uint32_t next_serial_ = 1;
    std::map<uint32_t, Pending> pending_ GUARDED_BY(mutex_);
};

RilClient* ClientOf(void* handle) { return static_cast<RilClient*>(handle); }

}  // namespace

extern "C" {

void* RILC_Open() {
    auto client = std::make_unique<RilClient>();
    return client->Open() ? client.release() : nullptr;
}

// The argument means nothing to the emulated radio.
void* RILC_OpenV2(const char* /*argument*/) { return RILC_Open(); }

int RILC_Close(void* handle) {
    if (handle == nullptr) return -1;
    delete ClientOf(handle);
    return 0;
}

int RILC_Reconnect(void* handle) {
    if (handle == nullptr) return -1;
    return ClientOf(handle)->Reconnect() ? 0 : -1;
}

// The emulated radio sends nothing unsolicited: there is nothing to deliver or to filter.
int RILC_RegisterUnsolicitedHandler(void* handle, RilUnsolicitedHandler /*handler*/) {
    return handle == nullptr ? -1 : 0;
}

int RILC_Send(void* handle, unsigned int request, void* data, unsigned long length,
              RilResponseCallback callback, unsigned int selector) {
    if (handle == nullptr || (data == nullptr && length > 0)) return -1;
    return ClientOf(handle)->Send(request, data, length, callback, selector);
}

int RILC_SetIndicationFilter(void* handle, int32_t* filter, unsigned long count) {
    return handle == nullptr || (filter == nullptr && count > 0) ? -1 : 0;
}

}  // extern "C"
