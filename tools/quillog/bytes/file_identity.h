#ifndef QUILCAT_TOOLS_QUILLOG_BYTES_FILE_IDENTITY_H_
#define QUILCAT_TOOLS_QUILLOG_BYTES_FILE_IDENTITY_H_

#include <stddef.h>

#include <string>

/// Bytes of text that FileIdentity() looks at, at most.
constexpr size_t kIdentityBytes = 4096;

/// A name for a plain file of factory mode that stays when it is rotated or packed, made of the beginning of its text:
/// 16 hexadecimal digits. Lines up to the first with a time of day count, or the first eight, or 4096 bytes: whatever
/// is complete first, so that a file that grows keeps its name. Empty while none of these is complete.
///
/// Two files have the same name when a title and the first time and its line are equal: those of two boots, perhaps, in
/// which the clock was not set.
std::string FileIdentity(const char* text, size_t size);

#endif  // QUILCAT_TOOLS_QUILLOG_BYTES_FILE_IDENTITY_H_
