#include "quillog/select/pattern.h"

#include <string.h>

#include <utility>

#ifdef QUILLOG_RE2
#include <re2/re2.h>
#else
#include <regex.h>
#endif

namespace {

constexpr char kSpecial[] = "\\^$.|?*+()[]{}";
constexpr size_t kMostError = 200;  // what is wrong may be quoted, at any length

/// The place after the bracket expression that begins at `at`.
size_t AfterBrackets(const std::string& text, size_t at) {
  at += text[at + 1] == '^' ? 2 : 1;
  at += text[at] == ']' ? 1 : 0;
  while (at < text.size() && text[at] != ']') {
    const size_t end = text.compare(at, 2, "[:") == 0 ? text.find(":]", at) : std::string::npos;
    at = end != std::string::npos ? end + 2 : at + (text[at] == '\\' ? 2 : 1);
  }
  return at < text.size() ? at + 1 : text.size();
}

/// True when the expression has a backslash before one of these characters.
bool HasEscaped(const std::string& text, const char* characters) {
  for (size_t at = 0; at < text.size();) {
    if (text[at] == '\\' && at + 1 < text.size() && strchr(characters, text[at + 1]) != nullptr) {
      return true;
    }
    at = text[at] == '[' ? AfterBrackets(text, at) : at + (text[at] == '\\' ? 2 : 1);
  }
  return false;
}

}  // namespace

#ifdef QUILLOG_RE2

namespace {

RE2::Options OptionsOf(const Pattern::How& how) {
  RE2::Options options;
  options.set_encoding(RE2::Options::EncodingLatin1);
  options.set_literal(how.plain);
  options.set_case_sensitive(!how.ignoreCase);
  // As egrep has it, and no anchors but those of a line: a search in many lines finds what a search in each would.
  options.set_posix_syntax(true);
  options.set_perl_classes(true);
  options.set_word_boundary(true);
  options.set_one_line(false);
  options.set_never_nl(true);
  options.set_never_capture(true);
  options.set_log_errors(false);
  return options;
}

/// What egrep has and RE2 takes for other things: "\<" and "\>" become "\b", "{,3}" becomes "{0,3}".
std::string Translated(const std::string& text) {
  std::string result;
  for (size_t at = 0; at < text.size();) {
    const std::string pair = text.substr(at, 2);
    const size_t end = text[at] == '[' ? AfterBrackets(text, at) : at + (text[at] == '\\' ? 2 : 1);
    if (pair == "\\<" || pair == "\\>") {
      result += "\\b";
    } else if (pair == "{,") {
      result += "{0";
    } else {
      result.append(text, at, end - at);
    }
    at = end;
  }
  return result;
}

}  // namespace

class Pattern::Expression {
 public:
  Expression(const std::string& text, const How& how)
      : expression(how.plain ? text : Translated(text), OptionsOf(how)) {}

  std::string Error() const { return expression.error(); }
  bool Matches(const char* text, size_t size) const {
    return expression.Match({text, size}, 0, size, RE2::UNANCHORED, nullptr, 0);
  }
  const char* Find(const char* from, const char* end) const {
    const re2::StringPiece text(from, static_cast<size_t>(end - from));
    re2::StringPiece found;
    return expression.Match(text, 0, text.size(), RE2::UNANCHORED, &found, 1) ? found.data() : nullptr;
  }

 private:
  const RE2 expression;
};

#else

class Pattern::Expression {
 public:
  Expression(const std::string& text, const How& how) {
    constexpr size_t kMost = 256;
    if (text.size() > kMost) {
      error = "longer than " + std::to_string(kMost) + " bytes";
      return;
    }
    // Each C library takes these for something else.
    if (!how.plain && HasEscaped(text, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0<>")) {
      error = "this build knows POSIX expressions only, without \\d, \\w, \\b and the like";
      return;
    }
    const std::string escaped = how.plain ? Escaped(text) : text;
    const int result =
        regcomp(&expression, escaped.c_str(), REG_EXTENDED | REG_NOSUB | (how.ignoreCase ? REG_ICASE : 0));
    isCompiled = result == 0;
    if (!isCompiled) {
      char why[256];
      regerror(result, &expression, why, sizeof why);
      error = why;
    }
  }
  ~Expression() {
    if (isCompiled) {
      regfree(&expression);
    }
  }
  Expression(const Expression&) = delete;
  Expression& operator=(const Expression&) = delete;

  std::string Error() const { return error; }
  bool Matches(const char* text, size_t size) const {
    // The line is no C string: its end is given instead.
    regmatch_t range = {};
    range.rm_eo = static_cast<regoff_t>(size);
    return regexec(&expression, text, 1, &range, REG_STARTEND) == 0;
  }
  const char* Find(const char* from, const char*) const { return from; }

 private:
  static std::string Escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
      result += strchr(kSpecial, c) != nullptr ? "\\" : "";
      result += c;
    }
    return result;
  }

  regex_t expression = {};
  bool isCompiled = false;
  std::string error;
};

#endif

Pattern::Pattern() = default;
Pattern::~Pattern() = default;

bool Pattern::Set(const std::string& text, const How& asked, std::string* error) {
  inverted = asked.inverted;
  isSet = true;
  if (text.find('\n') != std::string::npos) {
    *error = "a line has no line feed in it";
    return false;
  }
  if (!asked.ignoreCase && (asked.plain || text.find_first_of(kSpecial) == std::string::npos)) {
    literal = text;
    return true;
  }
  // No search in linear time is known for these.
  if (!asked.plain && HasEscaped(text, "123456789")) {
    *error = "it refers back to a group, which may take for ever";
    return false;
  }
  auto made = std::make_unique<const Expression>(text, asked);
  *error = made->Error().substr(0, kMostError);
  expression = std::move(made);
  return error->empty();
}

bool Pattern::Matches(const char* text, size_t size) const {
  if (expression != nullptr) {
    return expression->Matches(text, size) != inverted;
  }
  return (literal.empty() || memmem(text, size, literal.data(), literal.size()) != nullptr) != inverted;
}

const char* Pattern::Find(const char* from, const char* end) const {
  const char* found = from;
  if (!inverted && expression != nullptr) {
    found = expression->Find(from, end);
  } else if (!inverted && !literal.empty()) {
    found = static_cast<const char*>(memmem(from, static_cast<size_t>(end - from), literal.data(), literal.size()));
  }
  // A match of nothing after the last line feed is in no line.
  return found != nullptr && found < end ? found : nullptr;
}
