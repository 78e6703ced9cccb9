#ifndef QUILCAT_TOOLS_QUILLOG_FORMS_TERMINAL_H_
#define QUILCAT_TOOLS_QUILLOG_FORMS_TERMINAL_H_

#include <stddef.h>
#include <sys/types.h>

#include <string>

/// What is written for a person to see.
namespace Terminal {

/// True when standard output is a terminal. Ask before a pager takes its place.
bool IsShown();
/// True when it is a terminal that can do more than add lines: a pager asks for that.
bool HasCursor();
/// True when colours are wanted there: it knows them, and NO_COLOR is not set or empty.
bool TakesColors();

/// The colour of a level, as "1;31" for "\033[1;31m"; nullptr: none. "\033[0m" ends it.
const char* ColorOf(int level);

/// Appends text that a terminal shows and does not obey. Control characters become "^[" or, above ASCII, "<U+009B>",
/// and so do those that turn the direction of writing; bytes that are no UTF-8 become "<9B>". Tabs and line feeds stay,
/// so does all other text.
void AppendVisible(std::string& to, const char* text, size_t size);

/// Shows what is written to standard output, and to standard error where that is a terminal, a screen at a time.
class Pager {
 public:
  Pager() = default;
  /// Stop().
  ~Pager() { Stop(); }
  Pager(const Pager&) = delete;
  Pager& operator=(const Pager&) = delete;

  /// Starts $QUILLOG_PAGER, $PAGER or "less -FRX", the first that is set; words are separated by blanks. Does nothing
  /// when that is empty or "cat" or cannot be started: output then goes where it went. From then on SIGINT is the
  /// pager's alone. When it ends early, writes fail with EPIPE.
  void Start();
  /// Shows the rest and waits for the pager's end; output goes again where it went. Does nothing when there is none.
  /// What is still in a buffer has to be written before.
  void Stop();

 private:
  pid_t process = -1;
  int saved[2] = {-1, -1};  ///< standard output and standard error as they were
};

}  // namespace Terminal

#endif  // QUILCAT_TOOLS_QUILLOG_FORMS_TERMINAL_H_
