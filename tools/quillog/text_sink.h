#ifndef QUILCAT_TOOLS_QUILLOG_TEXT_SINK_H_
#define QUILCAT_TOOLS_QUILLOG_TEXT_SINK_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

/// Takes the text of one file after the other as it is decoded: in pieces of any size, in order, no byte twice.
class TextSink {
 public:
  virtual ~TextSink() = default;

  /// The text that follows is the beginning of a file, and so of a line.
  virtual void OnStart() = 0;

  /// The next `size` bytes of text, right after those before; the caller's until the call returns. `verified`:
  /// their checksum was right, or the format has none.
  virtual void OnText(const char* text, size_t size, bool verified) = 0;

  /// Text is missing here: what comes next need not begin a line, and what came before need not end one.
  virtual void OnGap() = 0;

  /// One damage at byte `offset` of the file; `what` says what is lost, for a person.
  virtual void OnDamage(uint64_t offset, const std::string& what) = 0;
};

#endif  // QUILCAT_TOOLS_QUILLOG_TEXT_SINK_H_
