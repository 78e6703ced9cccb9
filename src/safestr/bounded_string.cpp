#include <algorithm>
#include <cstdint>
#include <cstring>

#include "safestr/format_output.h"
#include "safestr/safestr.h"

namespace {

bool IsSize(size_t size) {
  return size != 0 && size <= safestr::kMaxSize;
}

int Reset(char* dest, int code) {
  dest[0] = '\0';
  return code;
}

/// Bytes from `low` up to `high`. Of two pointers into different objects only their addresses may be compared.
size_t Distance(const char* low, const char* high) {
  return reinterpret_cast<uintptr_t>(high) - reinterpret_cast<uintptr_t>(low);
}

bool LiesBefore(const char* first, const char* second) {
  return reinterpret_cast<uintptr_t>(first) < reinterpret_cast<uintptr_t>(second);
}

bool Overlap(const char* first, const char* second, size_t length) {
  return LiesBefore(first, second) ? Distance(first, second) < length : Distance(second, first) < length;
}

/// Appends to the string of `length` bytes in `dest`; `src` is another address than `dest`.
int Append(char* dest, size_t length, size_t destMax, const char* src) {
  const size_t room = destMax - length;
  // Bytes that can be moved before the reading meets the destination, or the writing the source.
  const size_t apart = LiesBefore(src, dest) ? Distance(src, dest) : Distance(dest + length, src);
  const size_t limit = std::min(room, apart);
  const size_t sourceLength = strnlen(src, limit);
  if (apart == 0) {
    return safestr::kOk;  // the source is the destination's own terminator: an empty string
  }
  if (sourceLength < limit) {
    memcpy(dest + length, src, sourceLength + 1);
    return safestr::kOk;
  }
  memcpy(dest + length, src, limit);
  return Reset(dest, room <= apart ? safestr::kResetDoesNotFit : safestr::kResetOverlap);
}

/// What is wrong with the arguments of a copy, with the destination reset where the code says so; kOk: nothing.
int ArgumentError(char* dest, size_t destMax, const char* src) {
  if (!IsSize(destMax)) {
    return safestr::kBadDestinationSize;
  }
  if (dest == nullptr) {
    return safestr::kNullDestination;
  }
  if (src == nullptr) {
    return Reset(dest, safestr::kResetNoString);
  }
  return safestr::kOk;
}

}  // namespace

int strncpy_s(char* dest, size_t destMax, const char* src, size_t count) {
  if (count == 0 || count > safestr::kMaxSize || src == nullptr || dest == nullptr || !IsSize(destMax)) {
    return strncpy_error(dest, destMax, src, count);
  }
  const size_t length = strnlen(src, std::min(count, destMax));
  if (length == destMax) {
    return Reset(dest, safestr::kResetDoesNotFit);
  }
  if (dest == src) {
    dest[length] = '\0';
    return safestr::kOk;
  }
  if (Overlap(dest, src, length + 1)) {
    return Reset(dest, safestr::kResetOverlap);
  }
  memcpy(dest, src, length);
  dest[length] = '\0';
  return safestr::kOk;
}

int strncpy_error(char* dest, size_t destMax, const char* src, size_t count) {
  if (const int error = ArgumentError(dest, destMax, src); error != safestr::kOk) {
    return error;
  }
  if (count > safestr::kMaxSize) {
    return Reset(dest, safestr::kResetDoesNotFit);
  }
  if (count == 0) {
    return Reset(dest, safestr::kOk);
  }
  if (strnlen(src, std::min(count, destMax)) < destMax) {
    return safestr::kOk;
  }
  return Reset(dest, safestr::kResetDoesNotFit);
}

int strcat_s(char* dest, size_t destMax, const char* src) {
  if (const int error = ArgumentError(dest, destMax, src); error != safestr::kOk) {
    return error;
  }

  const size_t toSource = LiesBefore(dest, src) ? Distance(dest, src) : destMax;
  const size_t length = strnlen(dest, std::min(destMax, toSource));
  if (length == destMax) {
    return Reset(dest, safestr::kResetNoString);
  }
  if (dest[length] != '\0') {
    return Reset(dest, safestr::kResetOverlap);
  }
  if (dest != src) {
    return Append(dest, length, destMax, src);
  }
  // A string appended to itself loses its terminator to the first byte and then never ends.
  return length == 0 ? safestr::kOk : Reset(dest, safestr::kResetDoesNotFit);
}

int memset_s(void* dest, size_t destMax, int c, size_t count) {
  if (destMax <= safestr::kMaxSize && dest != nullptr && count <= destMax) {
    memset(dest, c, count);
    return safestr::kOk;
  }
  if (!IsSize(destMax)) {
    return safestr::kBadDestinationSize;
  }
  if (dest == nullptr) {
    return safestr::kNullDestination;
  }
  memset(dest, c, destMax);
  return safestr::kResetDoesNotFit;
}
