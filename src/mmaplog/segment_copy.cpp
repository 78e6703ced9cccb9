#include "mmaplog/segment_copy.h"

#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/mman.h>

#include <atomic>

#include "mmaplog/log_format.h"

using LogFormat::kSegmentSize;
using LogFormat::kSmallestPage;

namespace {

/// What a thread is storing to.
struct Copy {
  uint8_t* segment;
  volatile sig_atomic_t pageMissing;
};

// A key rather than a thread_local: where the system has no thread-local variables of its own, the first use of one in
// a thread allocates memory, which a handler must not.
pthread_key_t currentCopy;
// One for all kinds of stores: installed twice, the handler would have itself for the previous one.
pthread_once_t installation = PTHREAD_ONCE_INIT;
bool handlerInstalled = false;
struct sigaction previousAction;

bool IsInSegment(const void* address, const uint8_t* segment) {
  const auto at = reinterpret_cast<uintptr_t>(address), begin = reinterpret_cast<uintptr_t>(segment);
  return at >= begin && at - begin < kSegmentSize;
}

/// Maps memory where the store found none, so that it is repeated there and the copy goes on to its end. What it
/// calls is safe in a handler: mmap is a plain system call, and reading the key allocates nothing.
void HandleMissingPage(int number, siginfo_t* info, void*) {
  const int error = errno;
  auto* copy = static_cast<Copy*>(pthread_getspecific(currentCopy));
  const bool raisedByStore = info->si_code > 0 && copy != nullptr && IsInSegment(info->si_addr, copy->segment);
  if (raisedByStore && mmap(copy->segment, kSegmentSize, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED) {
    copy->pageMissing = 1;
    errno = error;
    return;
  }
  // A fault repeats itself on return; a signal that was sent has to be sent again.
  sigaction(number, &previousAction, nullptr);
  if (info->si_code <= 0) {
    raise(number);
  }
}

void InstallHandler() {
  struct sigaction action = {};
  action.sa_sigaction = HandleMissingPage;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESTART;
  sigemptyset(&action.sa_mask);
  handlerInstalled = pthread_key_create(&currentCopy, nullptr) == 0 && sigaction(SIGBUS, &action, &previousAction) == 0;
}

/// Tells the handler; without one, stores are unguarded.
void SetCurrentCopy(const Copy* copy) {
  if (handlerInstalled) {
    pthread_setspecific(currentCopy, copy);
  }
}

/// Calls `store`, which stores to `segment`. False: a page was missing.
template <typename Store>
bool StoreGuarded(uint8_t* segment, const Store& store) {
  pthread_once(&installation, InstallHandler);
  Copy copy = {segment, 0};
  SetCurrentCopy(&copy);
  std::atomic_signal_fence(std::memory_order_seq_cst);
  store();
  std::atomic_signal_fence(std::memory_order_seq_cst);
  SetCurrentCopy(nullptr);
  return copy.pageMissing == 0;
}

}  // namespace

bool openPages(uint8_t* segment, size_t position, size_t size) {
  return StoreGuarded(segment, [=] {
    for (size_t at = position; at < position + size; at = (at / kSmallestPage + 1) * kSmallestPage) {
      *static_cast<volatile uint8_t*>(segment + at) = 0;
    }
  });
}

bool copyToSegment(uint8_t* segment, size_t position, const uint8_t* bytes, size_t size) {
  return StoreGuarded(segment, [=] { memcpy(segment + position, bytes, size); });
}
