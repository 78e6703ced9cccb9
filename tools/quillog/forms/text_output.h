#ifndef QUILCAT_TOOLS_QUILLOG_FORMS_TEXT_OUTPUT_H_
#define QUILCAT_TOOLS_QUILLOG_FORMS_TEXT_OUTPUT_H_

#include <stddef.h>

#include <string>

/// Standard output, buffered, and the line of progress on standard error.
///
/// After a failed write it takes nothing more; the caller then ends soon.
class TextOutput {
 public:
  /// `isShown`: it is a terminal, or a pager on one; then no control character gets there from a text.
  TextOutput(int file, bool isShown);
  ~TextOutput() { Flush(); }
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;

  void Write(const char* text, size_t size);
  /// As it is, wherever it gets: a terminal obeys it.
  void WriteCode(const std::string& code) { Take(code.data(), code.size()); }
  void Write(const std::string& text) { Write(text.data(), text.size()); }
  void Flush();
  /// A text is to be written line by line then: of one that is cut within a character both parts are shown as bytes.
  bool IsShown() const { return shown; }

  /// False: a write has failed.
  bool Works() const { return error == 0; }
  /// Why (errno). EPIPE: the reader has gone away, such as "| head", which is no failure.
  int Error() const { return error; }
  /// Finds out that the reader has gone away, as a write would: for when there may be nothing to write for long.
  void LookForReader();

  /// Says how far the work is, when standard error is a terminal and the work takes longer than a second.
  void Progress(const std::string& text);
  /// Takes the line of progress away before something else is said.
  void HideProgress();

 private:
  void Take(const char* text, size_t size);
  void WriteAll(const char* text, size_t size);

  const int fd;
  const bool shown;
  const bool showsProgress;
  int error = 0;
  std::string buffer;
  std::string visible;     ///< what is shown of a text
  long long nextProgress;  ///< milliseconds
  bool progressShown = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_FORMS_TEXT_OUTPUT_H_
