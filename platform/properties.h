#pragma once

// System properties. The device has them in libcutils and bionic; a host has none, so there the
// same three calls reach HostPropertyStore, which keeps Android's rules.
#ifdef __ANDROID__
#include <cutils/properties.h>
#include <sys/system_properties.h>
#else
#include "host_property_store.h"
#endif
