#ifndef QUILCAT_PLATFORM_PROPERTY_H_
#define QUILCAT_PLATFORM_PROPERTY_H_

#include "platform/system_properties.h"

/// Reads system property `name` into `value`, a zero-filled buffer of PROP_VALUE_MAX (92) bytes, and returns the length
/// of the value. When the property is empty or missing and `defaultText` is not null, at most 91 characters of it are
/// stored instead and their count is returned. Any thread may call it.
int property_get(const char* name, char* value, const char* defaultText);

/// Sets system property `name` to `value`. Returns the platform's result, 0 on success. Any thread may call it.
int property_set(const char* name, const char* value);

#endif  // QUILCAT_PLATFORM_PROPERTY_H_
