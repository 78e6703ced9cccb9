#ifndef QUILCAT_PLATFORM_SYSTEM_PROPERTIES_H_
#define QUILCAT_PLATFORM_SYSTEM_PROPERTIES_H_

/// The system property calls of the device.
///
/// On Android these are the C library's own. Elsewhere a stand-in with the same signatures keeps one file per property,
/// named after it and holding its value, in /dev/__properties__.

#ifdef __ANDROID__
#include <sys/system_properties.h>
#else

/// Size in bytes of the buffer for a property's value, terminator included.
#define PROP_VALUE_MAX 92

extern "C" {

/// Copies the value of property `name` into `value`, a buffer of PROP_VALUE_MAX bytes, and terminates it. Returns the
/// length of the value; 0, with an empty `value`, when there is no such property. Longer values are cut to 91
/// characters. Any thread may call it.
int __system_property_get(const char* name, char* value);

/// Sets property `name` to at most 91 characters of `value`, replacing the file in one step so that a reader sees the
/// old value or the new one. Returns 0, or -1 with the property unchanged. Any thread may call it.
int __system_property_set(const char* name, const char* value);
}

#endif  // __ANDROID__
#endif  // QUILCAT_PLATFORM_SYSTEM_PROPERTIES_H_
