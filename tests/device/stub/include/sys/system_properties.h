#pragma once

// The part of Android's header that the daemon uses.

#define PROP_VALUE_MAX 92

extern "C" {
int __system_property_get(const char* name, char* value);
int __system_property_set(const char* name, const char* value);
}
