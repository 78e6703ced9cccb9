#ifndef QUILCAT_TESTS_FAULT_INJECTION_H_
#define QUILCAT_TESTS_FAULT_INJECTION_H_

/// Faults for the code under test: the nth call of a kind fails, once. The kinds:
///   allocation   malloc, calloc, strdup, asprintf, vasprintf      new    finds no memory at its first try
///   descriptor   open, opendir, inotify_init1                     sync   fsync, fdatasync; or fdatasync alone
///   read         of a node, by a collector: it never returns, whatever signal comes
///   type         of the entries of a directory: no call tells it
///   watch        a read of what was opened
///   mmap, ftruncate, pwrite, deflateInit, localtime, thread, fork
///
/// A test that uses them links with quilcat_inject_faults (CMakeLists.txt), which redirects the calls of what is linked
/// into the executable; shared libraries keep theirs. In the daemon built that way the variable QUILCAT_FAULT,
/// "allocation:2", sets the fault, and standard error tells when it strikes. With seconds, "sync:2:3", the call
/// succeeds after that time instead, or when the object is gone.
///
/// While an object lives, the nth call of `kind` from its creation on (1 is the next) fails. One may live at a time.
/// Calls of all threads count.
class FailNthCall {
 public:
  FailNthCall(const char* kind, int n, int seconds = 0);
  ~FailNthCall();
  FailNthCall(const FailNthCall&) = delete;

  int count() const;                               ///< calls so far
  bool happened() const { return count() >= n_; }  ///< the nth call came

 private:
  const int n_;
};

#endif  // QUILCAT_TESTS_FAULT_INJECTION_H_
