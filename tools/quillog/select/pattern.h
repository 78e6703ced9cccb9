#ifndef QUILCAT_TOOLS_QUILLOG_SELECT_PATTERN_H_
#define QUILCAT_TOOLS_QUILLOG_SELECT_PATTERN_H_

#include <stddef.h>

#include <memory>
#include <string>

/// What -g looks for in a line: a regular expression as egrep has it, with \d, \s, \w, \b, \< and \> too, or a plain
/// text. Lines are bytes: a dot matches one of any value.
///
/// Matching takes time linear in the text and bounded memory, whatever the expression. A build without RE2 matches by
/// the C library, which gives no such promise; it takes POSIX expressions only, and no long ones.
class Pattern {
 public:
  /// Which lines are meant.
  struct How {
    bool ignoreCase = false;
    bool plain = false;     ///< the text is no expression
    bool inverted = false;  ///< lines that do not match
  };

  Pattern();
  ~Pattern();
  Pattern(const Pattern&) = delete;
  Pattern& operator=(const Pattern&) = delete;

  /// Once. False: it is no expression, or one too costly, and `error` says why.
  bool Set(const std::string& text, const How& asked, std::string* error);

  /// False until Set(): then every line matches.
  bool IsSet() const { return isSet; }

  /// True when a line is meant; `text` is without its line feed.
  bool Matches(const char* text, size_t size) const;

  /// A place in the first line of [`from`, `end`) that may match, nullptr when none does: one fast pass over whole
  /// lines, `from` at the beginning of one. The place may be the line feed that ends the line. Lines before it do not
  /// match for sure; that line is to be asked for, and the search to go on after it.
  const char* Find(const char* from, const char* end) const;

 private:
  class Expression;

  bool isSet = false;
  bool inverted = false;
  std::string literal;                           ///< what is looked for where there is no expression
  std::unique_ptr<const Expression> expression;  ///< null: a plain text in the same case
};

#endif  // QUILCAT_TOOLS_QUILLOG_SELECT_PATTERN_H_
