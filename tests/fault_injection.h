#ifndef QUILCAT_TESTS_FAULT_INJECTION_H_
#define QUILCAT_TESTS_FAULT_INJECTION_H_

/// Faults for the code under test: the nth call of a kind fails, once.
///
/// A test that uses them adds fault_injection.cpp and the link options of quilcat_inject_faults (CMakeLists.txt). These
/// redirect the calls of what is linked into the executable; shared libraries keep theirs. In the daemon built that way
/// the variable QUILCAT_FAULT, "<call>:<n>", sets the fault, and standard error tells when it strikes.
enum class FaultyCall {
  kAllocation,   ///< "allocation": malloc, calloc, strdup, asprintf, vasprintf
  kNew,          ///< "new": operator new finds no memory at its first try
  kMmap,         ///< "mmap"
  kFtruncate,    ///< "ftruncate"
  kPwrite,       ///< "pwrite"
  kSync,         ///< "sync": fsync, fdatasync
  kDeflateInit,  ///< "deflateInit"
  kLocalTime,    ///< "localtime"
  kThread,       ///< "thread": pthread_create
  kFork,         ///< "fork"
  kCount,
};

/// While one lives, the nth call of that kind from its creation on (1 is the next) fails. Only one may live at a time.
/// Calls of all threads count.
class FailNthCall {
 public:
  FailNthCall(FaultyCall call, int n);
  ~FailNthCall();
  FailNthCall(const FailNthCall&) = delete;
  FailNthCall& operator=(const FailNthCall&) = delete;

  /// Calls so far.
  int count() const;
  /// Tells whether the nth call came.
  bool happened() const { return count() >= n_; }

 private:
  const int n_;
};

class FailNthAllocation : public FailNthCall {
 public:
  explicit FailNthAllocation(int n) : FailNthCall(FaultyCall::kAllocation, n) {}
};

#endif  // QUILCAT_TESTS_FAULT_INJECTION_H_
