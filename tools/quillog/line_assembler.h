#ifndef QUILCAT_TOOLS_QUILLOG_LINE_ASSEMBLER_H_
#define QUILCAT_TOOLS_QUILLOG_LINE_ASSEMBLER_H_

#include <functional>
#include <string>

#include "quillog/line.h"
#include "quillog/text_sink.h"

/// Puts together whole lines from the text of files. Pieces of text need not end with a line.
///
/// At a gap the fragments on both sides are dropped: the beginning of one line and the end of another are no line that
/// was ever logged. What follows a gap counts as the beginning of a line when it begins with a time in the form that
/// the daemon writes; otherwise it is dropped up to the first line feed.
class LineAssembler : public TextSink {
 public:
  using OnDamageCall = std::function<void(uint64_t offset, const std::string& what)>;

  LineAssembler(LineSink& lines, OnDamageCall damages) : sink(lines), reporter(std::move(damages)) {}

  void OnStart() override;
  void OnText(const char* text, size_t size, bool verified) override;
  void OnGap() override;
  void OnDamage(uint64_t offset, const std::string& what) override { reporter(offset, what); }

  /// The file ends here: hands on the unfinished line, or drops it. Returns the bytes dropped.
  size_t Finish(bool keepUnfinished);

 private:
  LineSink& sink;
  OnDamageCall reporter;
  std::string unfinished;
  bool unfinishedVerified = true;
  bool afterGap = false;
};

#endif  // QUILCAT_TOOLS_QUILLOG_LINE_ASSEMBLER_H_
