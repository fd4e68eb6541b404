#pragma once

// The entry points of the vendor RIL client library "libvekril-client.so", as the platform
// exports them with C linkage. The daemon never links against the library: it resolves these
// names at run time.

#include <cstdint>

extern "C" {

// Called once per request, from a thread of the library: request id, RIL error code, response
// data and its length, and the selector the request was sent with.
typedef void (*RilResponseCallback)(unsigned int request, int error, void* data,
                                    unsigned long length, unsigned int selector);
// Called for each unsolicited message: message id, data, length, selector.
typedef void (*RilUnsolicitedHandler)(unsigned int id, void* data, unsigned long length,
                                      unsigned int selector);

typedef void* (*RilcOpenFunction)();
typedef void* (*RilcOpenV2Function)(const char* argument);
typedef int (*RilcCloseFunction)(void* handle);
typedef int (*RilcReconnectFunction)(void* handle);
typedef int (*RilcRegisterUnsolicitedHandlerFunction)(void* handle, RilUnsolicitedHandler handler);
typedef int (*RilcSendFunction)(void* handle, unsigned int request, void* data,
                                unsigned long length, RilResponseCallback callback,
                                unsigned int selector);
typedef int (*RilcSetIndicationFilterFunction)(void* handle, int32_t* filter, unsigned long count);

void* RILC_Open();
void* RILC_OpenV2(const char* argument);
int RILC_Close(void* handle);
int RILC_Reconnect(void* handle);
int RILC_RegisterUnsolicitedHandler(void* handle, RilUnsolicitedHandler handler);
int RILC_Send(void* handle, unsigned int request, void* data, unsigned long length,
              RilResponseCallback callback, unsigned int selector);
int RILC_SetIndicationFilter(void* handle, int32_t* filter, unsigned long count);

}  // extern "C"
