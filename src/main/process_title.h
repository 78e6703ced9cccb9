#ifndef QUILCAT_MAIN_PROCESS_TITLE_H_
#define QUILCAT_MAIN_PROCESS_TITLE_H_

#include <stddef.h>

/// The area of the program's argument and environment strings, which tools such as ps show as its command line.
///
/// Made on the main thread before there are others, and used only there.
class ProcessTitle {
 public:
  /// Notes the area, from the first string of `argv` over those of it and of the environment that follow one another in
  /// memory, and moves the environment to the heap, where it stays for the life of the process, so that PATH and TZ
  /// outlive the title. `argv` must be unchanged since main() got it: getopt() reorders it.
  explicit ProcessTitle(char** argv);

  /// Makes `name` the command line and (its first 15 characters) the name of the calling thread. False: the area
  /// is too small, both stay.
  bool Set(const char* name);

 private:
  void Extend(char** strings);

  char* begin;
  char* end;  ///< the terminator of the last string
};

#endif  // QUILCAT_MAIN_PROCESS_TITLE_H_
