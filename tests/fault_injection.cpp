#include "fault_injection.h"

#include <dirent.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <new>

namespace {

std::atomic<const char*> failing{""};
std::atomic<int> calls{0};
std::atomic<int> failingCall{0};
std::atomic<int> stallSeconds{0};
bool reports = false;

void Inject(const char* kind, int n, int seconds) {
  calls = 0;
  failingCall = n;
  stallSeconds = seconds;
  failing = kind;
}

bool Fails(const char* kind, int error) {
  if (strcmp(failing, kind) != 0 || ++calls != failingCall) return false;
  if (reports && write(STDERR_FILENO, "fault injected\n", 15) < 0) return false;
  for (const time_t end = time(nullptr) + stallSeconds; time(nullptr) < end && strcmp(failing, kind) == 0;)
    usleep(1000);
  errno = error;
  return stallSeconds == 0;
}

[[gnu::constructor]] void InjectFromEnvironment() {
  static char kind[32];
  int n = 0, seconds = 0;
  const char* fault = getenv("QUILCAT_FAULT");
  reports = fault != nullptr && sscanf(fault, "%31[a-zA-Z]:%d:%d", kind, &n, &seconds) >= 2;
  if (reports) Inject(kind, n, seconds);
}

}  // namespace

FailNthCall::FailNthCall(const char* kind, int n, int seconds) : n_(n) {
  Inject(kind, n, seconds);
}
FailNthCall::~FailNthCall() {
  failing = "";
}
int FailNthCall::count() const {
  return calls;
}

/// Defines __wrap_<name>, which gives `failure` when the fault strikes and otherwise what the call itself gives.
#define WRAP(type, name, parameters, arguments, kind, error, failure) \
  extern "C" type __real_##name parameters;                           \
  extern "C" type __wrap_##name parameters {                          \
    return Fails(kind, error) ? (failure) : __real_##name arguments;  \
  }

WRAP(void*, malloc, (size_t size), (size), "allocation", ENOMEM, nullptr)
WRAP(void*, calloc, (size_t count, size_t size), (count, size), "allocation", ENOMEM, nullptr)
WRAP(char*, strdup, (const char* text), (text), "allocation", ENOMEM, nullptr)
// glibc leaves the pointer undefined on failure: so does this.
WRAP(int, vasprintf, (char** text, const char* format, va_list arguments), (text, format, arguments), "allocation",
     ENOMEM, (*text = reinterpret_cast<char*>(1), -1))
// The mode of a call without one is whatever stands in its register, here as there.
WRAP(int, open64, (const char* path, int flags, mode_t mode), (path, flags, mode), "descriptor", EMFILE, -1)
WRAP(DIR*, opendir, (const char* path), (path), "descriptor", EMFILE, nullptr)
WRAP(int, inotify_init1, (int flags), (flags), "descriptor", EMFILE, -1)
WRAP(void*, mmap64, (void* address, size_t length, int protection, int flags, int fd, off_t offset),
     (address, length, protection, flags, fd, offset), "mmap", ENOMEM, MAP_FAILED)
WRAP(int, ftruncate64, (int fd, off_t length), (fd, length), "ftruncate", EIO, -1)
WRAP(int, fsync, (int fd), (fd), "sync", EIO, -1)
WRAP(int, deflateInit2_,
     (z_streamp stream, int level, int method, int bits, int memory, int strategy, const char* version, int size),
     (stream, level, method, bits, memory, strategy, version, size), "deflateInit", ENOMEM, Z_MEM_ERROR)
extern "C" [[gnu::weak]] void* __real_libdeflate_alloc_compressor(int level);  // in the builds with libdeflate
WRAP(void*, libdeflate_alloc_compressor, (int level), (level), "deflateInit", ENOMEM, nullptr)
WRAP(tm*, localtime_r, (const time_t* time, tm* result), (time, result), "localtime", EOVERFLOW, nullptr)
WRAP(int, pthread_create, (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
     (thread, attributes, run, argument), "thread", EAGAIN, EAGAIN)
WRAP(pid_t, fork, (), (), "fork", EAGAIN, -1)
// The child of a vfork may not return from a function.
extern "C" pid_t __wrap_vfork() {
  return __wrap_fork();
}

extern "C" {

int __real_fdatasync(int fd);
ssize_t __real_pwrite64(int fd, const void* data, size_t size, off_t offset);
void* __real__Znwm(size_t size);
ssize_t __real_read(int fd, void* buffer, size_t size);
struct dirent* __real_readdir64(DIR* directory);

struct dirent* __wrap_readdir64(DIR* directory) {
  struct dirent* entry = __real_readdir64(directory);
  if (entry != nullptr && strcmp(failing, "type") == 0) entry->d_type = DT_UNKNOWN;
  return entry;
}
int __wrap_asprintf(char** text, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = __wrap_vasprintf(text, format, arguments);
  va_end(arguments);
  return length;
}
int __wrap_fdatasync(int fd) {
  return Fails("sync", EIO) || Fails("fdatasync", EIO) ? -1 : __real_fdatasync(fd);
}
ssize_t __wrap_pwrite64(int fd, const void* data, size_t size, off_t offset) {
  return __real_pwrite64(fd, data, Fails("pwrite", ENOSPC) ? size / 2 : size, offset);
}
ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  if (size > 8192 && Fails("watch", EIO)) return -1;
  if (size >= 4096 && size <= 8192 && Fails("read", 0)) {  // smaller ones are of timers
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    while (true) pause();
  }
  return __real_read(fd, buffer, size);
}
/// As the C++ library does: a first try that fails calls the handler, which waits for memory, and then tries again.
void* __wrap__Znwm(size_t size) {
  if (Fails("new", ENOMEM) && std::get_new_handler() != nullptr) std::get_new_handler()();
  return __real__Znwm(size);
}
}
