#ifndef QUILCAT_MAIN_PROCESS_TITLE_H_
#define QUILCAT_MAIN_PROCESS_TITLE_H_

#include <stddef.h>

/// The area of the program's argument and environment strings, which ps and the like show as its command line.
///
/// Made on the main thread before there are others, and used only there.
class ProcessTitle {
 public:
  /// Notes the area, from the first string of `argv` over those of it and of the environment that follow one another in
  /// memory, and moves the environment to the heap, where it stays for the life of the process, so that PATH and TZ
  /// outlive the title. `argv` is as main() got it: getopt() changes its order.
  explicit ProcessTitle(char** argv);

  /// Shows `name` as the command line and as the name of the calling thread (its first 15 characters). False: the area
  /// is too small, both stay.
  bool Set(const char* name);

 private:
  void Extend(char** strings);

  char* begin;
  char* end;  ///< the terminator of the last string
};

#endif  // QUILCAT_MAIN_PROCESS_TITLE_H_
