#pragma once

#include <cstdint>

namespace tarvo {

// The vendor RIL client library's callbacks and entry points, as the daemon calls them.
// Called once per request, from a thread of the library: request id, RIL error code, response
// data and its length, and the selector the request was sent with.
using RilResponseCallback = void (*)(unsigned int request, int error, void* data,
                                     unsigned long length, unsigned int selector);
// Called for each unsolicited message: message id, data, length, selector.
using RilUnsolicitedHandler = void (*)(unsigned int id, void* data, unsigned long length,
                                       unsigned int selector);
using RilcOpenFunction = void* (*)();
using RilcOpenV2Function = void* (*)(const char* argument);
using RilcCloseFunction = int (*)(void* handle);
using RilcReconnectFunction = int (*)(void* handle);
using RilcRegisterUnsolicitedHandlerFunction = int (*)(void* handle, RilUnsolicitedHandler handler);
using RilcSendFunction = int (*)(void* handle, unsigned int request, void* data,
                                 unsigned long length, RilResponseCallback callback,
                                 unsigned int selector);
using RilcSetIndicationFilterFunction = int (*)(void* handle, int32_t* filter, unsigned long count);

// The daemon's way into the vendor RIL client library. Every operation forwards to the library's
// entry point of the same meaning; without the library each answers as a failure.
class RilClientHelper {
  public:
    // The process-wide helper, bound to the library on first use. It stays (unbound) when the
    // library or one of its entry points is missing.
    static RilClientHelper* GetInstance();

    virtual ~RilClientHelper() = default;

    virtual bool Init() = 0;
    virtual void Release() = 0;
    virtual void* Open() = 0;
    virtual void* Open(const char* argument) = 0;
    virtual int Close(void* handle) = 0;
    virtual int Reconnect(void* handle) = 0;
    virtual int Send(void* handle, unsigned int request, void* data, unsigned long length,
                     RilResponseCallback callback) = 0;
    virtual int Send(void* handle, unsigned int request, void* data, unsigned long length,
                     RilResponseCallback callback, unsigned int selector) = 0;
    virtual int RegisterUnsolicitedResponseHandler(void* handle, RilUnsolicitedHandler handler) = 0;
    virtual int SetIndicationFilter(void* handle, int* filter, unsigned long count) = 0;
};

// Binds to "libvekril-client.so" with dlopen and dlsym. Logs every call to the radio buffer.
class RilClientHelperDLImpl : public RilClientHelper {
  public:
    // The status of a call that has no entry point to go to.
    static constexpr int kStatusUnbound = 1;

    RilClientHelperDLImpl();
    RilClientHelperDLImpl(const RilClientHelperDLImpl&) = delete;
    RilClientHelperDLImpl& operator=(const RilClientHelperDLImpl&) = delete;
    ~RilClientHelperDLImpl() override;

    // Loads the library and resolves all seven entry points; false, unbound, when any is missing.
    bool Init() override;
    // Forgets the library. It stays mapped: a callback of its own may still be running.
    void Release() override;
    // The client handle of the latest successful open, or null.
    void* Open() override;
    void* Open(const char* argument) override;
    // kStatusUnbound when unbound (or, for Close, without a handle); otherwise the library's
    // result.
    int Close(void* handle) override;
    int Reconnect(void* handle) override;
    // Selector 255.
    int Send(void* handle, unsigned int request, void* data, unsigned long length,
             RilResponseCallback callback) override;
    int Send(void* handle, unsigned int request, void* data, unsigned long length,
             RilResponseCallback callback, unsigned int selector) override;
    int RegisterUnsolicitedResponseHandler(void* handle, RilUnsolicitedHandler handler) override;
    int SetIndicationFilter(void* handle, int* filter, unsigned long count) override;

  private:
    void* library_ = nullptr;
    void* client_ = nullptr;
    RilcOpenFunction open_ = nullptr;
    RilcOpenV2Function open_v2_ = nullptr;
    RilcCloseFunction close_ = nullptr;
    RilcReconnectFunction reconnect_ = nullptr;
    RilcRegisterUnsolicitedHandlerFunction register_unsolicited_handler_ = nullptr;
    RilcSendFunction send_ = nullptr;
    RilcSetIndicationFilterFunction set_indication_filter_ = nullptr;
};

}  // namespace tarvo
