#include "ril_client_helper.h"

#include <dlfcn.h>

#include <log/log.h>

namespace tarvo {

namespace {

constexpr const char* kLibrary = "libvekril-client.so";
constexpr const char* kClass = "RilClientHelperDLImpl";
constexpr unsigned int kDefaultSelector = 255;

// The client's lines go to the radio buffer under the library's own tag; the format's first two
// placeholders are the class and the operation.
template <typename... Args>
void RilLog(int priority, const char* format, const char* operation, Args... args) {
    __android_log_buf_print(LOG_ID_RADIO, priority, "libvekril-client", format, kClass, operation,
                            args...);
}

// Resolves one entry point into `function`; logs and answers false when the library lacks it.
template <typename Function>
bool Resolve(void* library, const char* name, Function* function) {
    *function = reinterpret_cast<Function>(dlsym(library, name));
    if (*function != nullptr) return true;
    RilLog(ANDROID_LOG_ERROR, "%s::%s error: dlsym failure(%s)", "Init", name);
    return false;
}

}  // namespace

RilClientHelper* RilClientHelper::GetInstance() {
    // Lives until the process ends, bound or not.
    static RilClientHelper* const instance = [] {
        RilClientHelper* helper = new RilClientHelperDLImpl();
        helper->Init();
        return helper;
    }();
    return instance;
}

RilClientHelperDLImpl::RilClientHelperDLImpl() {
    RilLog(ANDROID_LOG_INFO, "%s::%s create instance", "RilClientHelperDLImpl");
}

RilClientHelperDLImpl::~RilClientHelperDLImpl() {
    RilLog(ANDROID_LOG_INFO, "%s::%s release instance", "~RilClientHelperDLImpl");
    Release();
}

bool RilClientHelperDLImpl::Init() {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Init");
    library_ = dlopen(kLibrary, RTLD_NOW);
    if (library_ == nullptr) {
        RilLog(ANDROID_LOG_ERROR, "%s::%s error: dlopen failure", "Init");
        return false;
    }
    if (!Resolve(library_, "RILC_Open", &open_) || !Resolve(library_, "RILC_OpenV2", &open_v2_) ||
        !Resolve(library_, "RILC_Close", &close_) ||
        !Resolve(library_, "RILC_Reconnect", &reconnect_) ||
        !Resolve(library_, "RILC_RegisterUnsolicitedHandler", &register_unsolicited_handler_) ||
        !Resolve(library_, "RILC_Send", &send_) ||
        !Resolve(library_, "RILC_SetIndicationFilter", &set_indication_filter_)) {
        Release();
        return false;
    }
    return true;
}

void RilClientHelperDLImpl::Release() {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Release");
    // The filter function and the client handle stay: nothing reaches them without the library.
    library_ = nullptr;
    open_ = nullptr;
    open_v2_ = nullptr;
    close_ = nullptr;
    reconnect_ = nullptr;
    register_unsolicited_handler_ = nullptr;
    send_ = nullptr;
}

void* RilClientHelperDLImpl::Open() {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Open");
    if (library_ != nullptr && open_ != nullptr) client_ = open_();
    return client_;
}

void* RilClientHelperDLImpl::Open(const char* argument) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Open");
    if (library_ != nullptr && open_v2_ != nullptr) client_ = open_v2_(argument);
    return client_;
}

int RilClientHelperDLImpl::Close(void* handle) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Close");
    if (library_ == nullptr || handle == nullptr || close_ == nullptr) return kStatusUnbound;
    return close_(handle);
}

int RilClientHelperDLImpl::Reconnect(void* handle) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Reconnect");
    if (library_ == nullptr || reconnect_ == nullptr) return kStatusUnbound;
    return reconnect_(handle);
}

int RilClientHelperDLImpl::Send(void* handle, unsigned int request, void* data,
                                unsigned long length, RilResponseCallback callback) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Send");
    return Send(handle, request, data, length, callback, kDefaultSelector);
}

int RilClientHelperDLImpl::Send(void* handle, unsigned int request, void* data,
                                unsigned long length, RilResponseCallback callback,
                                unsigned int selector) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "Send");
    if (library_ == nullptr || send_ == nullptr) return kStatusUnbound;
    return send_(handle, request, data, length, callback, selector);
}

int RilClientHelperDLImpl::RegisterUnsolicitedResponseHandler(void* handle,
                                                              RilUnsolicitedHandler handler) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "RegisterUnsolicitedResponseHandler");
    if (library_ == nullptr || register_unsolicited_handler_ == nullptr) return kStatusUnbound;
    return register_unsolicited_handler_(handle, handler);
}

int RilClientHelperDLImpl::SetIndicationFilter(void* handle, int* filter, unsigned long count) {
    RilLog(ANDROID_LOG_INFO, "%s::%s", "SetIndicationFilter");
    // Logged at error on every call, as the platform's own client does.
    RilLog(ANDROID_LOG_ERROR, "%s::%s filter=%p size=%zu", "SetIndicationFilter", filter,
           static_cast<size_t>(count));
    if (library_ == nullptr || set_indication_filter_ == nullptr) return kStatusUnbound;
    return set_indication_filter_(handle, filter, count);
}

}  // namespace tarvo
