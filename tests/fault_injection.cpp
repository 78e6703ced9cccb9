#include "fault_injection.h"

#include <errno.h>
#include <pthread.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <iterator>
#include <new>

namespace {

constexpr const char* kNames[] = {"allocation", "new",         "mmap",      "ftruncate", "pwrite",
                                  "sync",       "deflateInit", "localtime", "thread",    "fork"};

std::atomic<int> failing{static_cast<int>(FaultyCall::kCount)};
std::atomic<int> calls{0};
std::atomic<int> failingCall{0};
bool reports = false;

void Inject(FaultyCall call, int n) {
  calls = 0;
  failingCall = n;
  failing = static_cast<int>(call);
}

bool Fails(FaultyCall call, int error) {
  if (failing != static_cast<int>(call) || ++calls != failingCall) {
    return false;
  }
  if (reports && write(STDERR_FILENO, "fault injected\n", 15) < 0) {
    return false;
  }
  errno = error;
  return true;
}

[[gnu::constructor]] void InjectFromEnvironment() {
  const char* fault = getenv("QUILCAT_FAULT");
  for (size_t i = 0; fault != nullptr && i < std::size(kNames); ++i) {
    const size_t length = strlen(kNames[i]);
    if (strncmp(fault, kNames[i], length) == 0 && fault[length] == ':') {
      reports = true;
      Inject(static_cast<FaultyCall>(i), atoi(fault + length + 1));
    }
  }
}

}  // namespace

FailNthCall::FailNthCall(FaultyCall call, int n) : n_(n) {
  Inject(call, n);
}
FailNthCall::~FailNthCall() {
  failing = static_cast<int>(FaultyCall::kCount);
}
int FailNthCall::count() const {
  return calls;
}

extern "C" {

void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
char* __real_strdup(const char* text);
int __real_vasprintf(char** text, const char* format, va_list arguments);
void* __real__Znwm(size_t size);
void* __real_mmap64(void* address, size_t length, int protection, int flags, int fd, off_t offset);
int __real_ftruncate64(int fd, off_t length);
ssize_t __real_pwrite64(int fd, const void* data, size_t size, off_t offset);
int __real_fsync(int fd);
int __real_fdatasync(int fd);
int __real_deflateInit2_(z_streamp stream, int level, int method, int windowBits, int memLevel, int strategy,
                         const char* version, int size);
tm* __real_localtime_r(const time_t* time, tm* result);
int __real_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument);
pid_t __real_fork();

void* __wrap_malloc(size_t size) {
  return Fails(FaultyCall::kAllocation, ENOMEM) ? nullptr : __real_malloc(size);
}
void* __wrap_calloc(size_t count, size_t size) {
  return Fails(FaultyCall::kAllocation, ENOMEM) ? nullptr : __real_calloc(count, size);
}
char* __wrap_strdup(const char* text) {
  return Fails(FaultyCall::kAllocation, ENOMEM) ? nullptr : __real_strdup(text);
}
int __wrap_vasprintf(char** text, const char* format, va_list arguments) {
  // glibc leaves the pointer undefined on failure: so does this.
  *text = reinterpret_cast<char*>(1);
  return Fails(FaultyCall::kAllocation, ENOMEM) ? -1 : __real_vasprintf(text, format, arguments);
}
int __wrap_asprintf(char** text, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = __wrap_vasprintf(text, format, arguments);
  va_end(arguments);
  return length;
}
/// As the C++ library does: a first try that fails calls the handler, which waits for memory, and then tries again.
void* __wrap__Znwm(size_t size) {
  if (Fails(FaultyCall::kNew, ENOMEM) && std::get_new_handler() != nullptr) {
    std::get_new_handler()();
  }
  return __real__Znwm(size);
}
void* __wrap_mmap64(void* address, size_t length, int protection, int flags, int fd, off_t offset) {
  return Fails(FaultyCall::kMmap, ENOMEM) ? MAP_FAILED : __real_mmap64(address, length, protection, flags, fd, offset);
}
int __wrap_ftruncate64(int fd, off_t length) {
  return Fails(FaultyCall::kFtruncate, EIO) ? -1 : __real_ftruncate64(fd, length);
}
ssize_t __wrap_pwrite64(int fd, const void* data, size_t size, off_t offset) {
  return __real_pwrite64(fd, data, Fails(FaultyCall::kPwrite, ENOSPC) ? size / 2 : size, offset);
}
int __wrap_fsync(int fd) {
  return Fails(FaultyCall::kSync, EIO) ? -1 : __real_fsync(fd);
}
int __wrap_fdatasync(int fd) {
  return Fails(FaultyCall::kSync, EIO) ? -1 : __real_fdatasync(fd);
}
int __wrap_deflateInit2_(z_streamp stream, int level, int method, int windowBits, int memLevel, int strategy,
                         const char* version, int size) {
  return Fails(FaultyCall::kDeflateInit, ENOMEM)
             ? Z_MEM_ERROR
             : __real_deflateInit2_(stream, level, method, windowBits, memLevel, strategy, version, size);
}
tm* __wrap_localtime_r(const time_t* time, tm* result) {
  return Fails(FaultyCall::kLocalTime, EOVERFLOW) ? nullptr : __real_localtime_r(time, result);
}
int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
  return Fails(FaultyCall::kThread, EAGAIN) ? EAGAIN : __real_pthread_create(thread, attributes, run, argument);
}
pid_t __wrap_fork() {
  return Fails(FaultyCall::kFork, EAGAIN) ? -1 : __real_fork();
}
}
