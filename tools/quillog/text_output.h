#ifndef QUILCAT_TOOLS_QUILLOG_TEXT_OUTPUT_H_
#define QUILCAT_TOOLS_QUILLOG_TEXT_OUTPUT_H_

#include <stddef.h>

#include <string>

/// Standard output, buffered, and the line of progress on standard error.
///
/// A reader that has gone away, such as "| head", ends the program at once with status 0; any other failed write ends
/// it with 2 and a message.
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
  /// Ends the program where the reader has gone away, as a write would: for when there may be nothing to write for
  /// long.
  void EndWithoutReader() const;

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
  std::string buffer;
  std::string visible;     ///< what is shown of a text
  long long nextProgress;  ///< milliseconds
  bool progressShown = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_TEXT_OUTPUT_H_
