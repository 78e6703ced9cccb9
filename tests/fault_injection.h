#ifndef QUILCAT_TESTS_FAULT_INJECTION_H_
#define QUILCAT_TESTS_FAULT_INJECTION_H_

/// Faults for the code under test: the nth call of a kind fails, once. An allocation is malloc, calloc, strdup,
/// asprintf or vasprintf; "new" finds no memory at its first try; what takes a descriptor is open, opendir or
/// inotify_init1.
///
/// A test that uses them adds fault_injection.cpp and the link options of quilcat_inject_faults (CMakeLists.txt). These
/// redirect the calls of what is linked into the executable; shared libraries keep theirs. In the daemon built that way
/// the variable QUILCAT_FAULT, "allocation:2", sets the fault, and standard error tells when it strikes.
enum class FaultyCall {
  kAllocation,
  kNew,
  kDescriptor,
  kMmap,
  kFtruncate,
  kPwrite,
  kSync,
  kDeflateInit,
  kLocalTime,
  kThread,
  kFork,
  kCount
};

/// While one lives, the nth call of that kind from its creation on (1 is the next) fails. Only one may live at a time.
/// Calls of all threads count.
class FailNthCall {
 public:
  FailNthCall(FaultyCall call, int n);
  ~FailNthCall();
  FailNthCall(const FailNthCall&) = delete;

  int count() const;                               ///< calls so far
  bool happened() const { return count() >= n_; }  ///< the nth call came

 private:
  const int n_;
};

class FailNthAllocation : public FailNthCall {
 public:
  explicit FailNthAllocation(int n) : FailNthCall(FaultyCall::kAllocation, n) {}
};

#endif  // QUILCAT_TESTS_FAULT_INJECTION_H_
