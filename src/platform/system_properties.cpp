#include "platform/system_properties.h"

#ifndef __ANDROID__

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <atomic>

namespace {

constexpr char kPropertyDirectory[] = "/dev/__properties__";

/// Forms the path of a property's file. A name that holds a "/" or is too long is no property.
bool FormPath(const char* name, char (&path)[PATH_MAX]) {
  if (name == nullptr || *name == '\0' || strchr(name, '/') != nullptr) {
    return false;
  }
  const int length = snprintf(path, sizeof path, "%s/%s", kPropertyDirectory, name);
  return length > 0 && static_cast<size_t>(length) < sizeof path;
}

bool WriteWholeFile(const char* path, const char* text, size_t length) {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) {
    return false;
  }
  const bool written = write(fd, text, length) == static_cast<ssize_t>(length);
  return close(fd) == 0 && written;
}

}  // namespace

int __system_property_get(const char* name, char* value) {
  value[0] = '\0';
  char path[PATH_MAX];
  if (!FormPath(name, path)) {
    return 0;
  }
  const int fd = open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    return 0;
  }
  const ssize_t length = read(fd, value, PROP_VALUE_MAX - 1);
  close(fd);
  value[length > 0 ? length : 0] = '\0';
  return static_cast<int>(strlen(value));
}

int __system_property_set(const char* name, const char* value) {
  static std::atomic<unsigned> sequence{0};
  char path[PATH_MAX];
  char temporary[PATH_MAX];
  if (value == nullptr || !FormPath(name, path)) {
    return -1;
  }
  const int length = snprintf(temporary, sizeof temporary, "%s/.%d.%u", kPropertyDirectory, getpid(), sequence++);
  if (length < 0 || !WriteWholeFile(temporary, value, strnlen(value, PROP_VALUE_MAX - 1))) {
    unlink(temporary);
    return -1;
  }
  if (rename(temporary, path) != 0) {
    unlink(temporary);
    return -1;
  }
  return 0;
}

#endif  // !__ANDROID__
