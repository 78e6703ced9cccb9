// Checks of an attribute's text.

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <map>

#include "collect/column_format.h"
#include "config/records.h"
#include "logfile/file_names.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace ConfigGrammar;
using QuilCommon::kLongestText;

namespace Quilcheck {

namespace {

const std::string kTooLong = " is longer than " + std::to_string(kLongestText) + " bytes";

// An indexed file adds index and time to the name of an output.
constexpr size_t kLongestBase = NAME_MAX - FileNames::kSuffixLength;

/// Units that people give, each with its factor.
const std::map<Kind, std::map<std::string, long>> kUnits = {
    {Kind::Kilobytes,
     {{"k", 1},
      {"kb", 1},
      {"kib", 1},
      {"m", 1024},
      {"mb", 1024},
      {"mib", 1024},
      {"g", 1 << 20},
      {"gb", 1 << 20},
      {"gib", 1 << 20}}},
    {Kind::Seconds, {{"s", 1}, {"sec", 1}, {"m", 60}, {"min", 60}, {"h", 3600}}},
    {Kind::Number, {}}};

const char* AfterBlanks(const char* text) {
  return text + strspn(text, " \t\n\v\f\r");
}

/// A hint which number was probably meant by `number` with a unit after it.
std::string HintForUnit(Kind kind, long number, std::string unit) {
  std::transform(unit.begin(), unit.end(), unit.begin(), [](unsigned char letter) { return tolower(letter); });
  const auto known = kUnits.at(kind).find(unit);
  if (known != kUnits.at(kind).end() && number > 0 && number <= INT_MAX / known->second) {
    return "; did you mean " + std::to_string(number * known->second) + '?';
  }
  return unit.front() == '.' || unit.front() == ',' ? "; there are no fractions" : "; there are no units";
}

/// Says what the daemon makes of a text that is not the number it should be.
std::string Reading(const std::string& text) {
  constexpr size_t kUntouched = SIZE_MAX;
  size_t number = kUntouched;
  QuilCommon::ReadNumber(text.c_str(), &number);
  return number == kUntouched ? "the daemon passes over it" : "the daemon takes it for " + std::to_string(number);
}

/// What is wrong with the text of a number, with a hint; empty when nothing is.
std::string NumberProblem(Kind kind, const std::string& text) {
  const char* start = AfterBlanks(text.c_str());
  char* end = nullptr;
  errno = 0;
  const long number = strtol(start, &end, 10);
  const char* rest = AfterBlanks(end);
  std::string problem, hint;
  if (end == start) {
    problem = " is not a number: ";
  } else if (number < 0) {
    problem = " is negative: ";
  } else if (number > INT_MAX || errno == ERANGE) {
    problem = " is more than " + std::to_string(INT_MAX) + ": ";
  } else if (*rest != '\0') {
    problem = " is not a whole number: ";
    hint = HintForUnit(kind, number, rest);
  }
  return problem.empty() ? "" : problem + Reading(text) + hint;
}

/// What is wrong with a path, and the consequence; empty when nothing is.
std::string PathProblem(Kind kind, const std::string& path) {
  const bool isOutput = kind == Kind::Output;
  const std::string consequence = isOutput ? ": nothing is logged" : ": it cannot be read";
  const std::string name = path.substr(path.rfind('/') + 1);
  if (path.empty() || path.size() > kLongestText) {
    return (path.empty() ? " is empty" : kTooLong) + consequence;
  }
  if (path.front() != '/') {
    const bool isNowhere = isOutput && path.find('/') == std::string::npos;
    return " is not an absolute path" + (isNowhere ? consequence : ": it depends on where the daemon was started") +
           (kind == Kind::Column ? HintAmong({ColumnFormat::kDateTime, ColumnFormat::kCurrentTime}, path) : "");
  }
  if (kind != Kind::Directory && (name.empty() || name == "." || name == "..")) {
    return " ends in \"" + (name.empty() ? "/" : name) + '"' +
           (isOutput ? ": the daemon makes hidden files there; did you mean a name after it?" : consequence);
  }
  const bool isLong = isOutput && name.size() > kLongestBase;
  return isLong ? " has a file name of more than " + std::to_string(kLongestBase) + " bytes" + consequence : "";
}

std::string KeywordProblem(const Attribute& attribute, const std::string& text) {
  const std::vector<std::string> words = Words(attribute.keywords);
  if (std::find(words.begin(), words.end(), text) != words.end()) {
    return "";
  }
  const std::string hint = HintAmong(words, text);
  std::string all;
  for (const std::string& word : words) {
    all += (all.empty() ? "" : ", ") + word;
  }
  return " is no keyword: the daemon " + Otherwise(attribute) +
         (hint.empty() ? (words.size() == 1 ? "; there is " : "; there are ") + all : hint);
}

/// True when the text begins or ends with a blank, which the daemon takes for a part of it.
bool HasOuterBlank(const std::string& text) {
  const std::string blanks = " \t\n\v\f\r";
  return !text.empty() &&
         (blanks.find(text.front()) != std::string::npos || blanks.find(text.back()) != std::string::npos);
}

}  // namespace

std::string Otherwise(const Attribute& attribute) {
  if (attribute.otherwise < 0) {
    return "passes over it";
  }
  const auto code = static_cast<uint32_t>(attribute.otherwise);
  return "takes " + (code < attribute.firstCode ? "none" : Words(attribute.keywords)[code - attribute.firstCode]);
}

void CheckValue(const xmlNode* element, const Element& row, const Attribute& attribute, const std::string& text,
                Findings* findings) {
  const std::string what = std::string(row.name) + ' ' + attribute.name + '=' + Quoted(text);
  const bool isTime = attribute.kind == Kind::Column && !SampleTime(text).empty();
  const bool isPath = attribute.kind == Kind::Output || attribute.kind == Kind::Node ||
                      attribute.kind == Kind::Column || attribute.kind == Kind::Directory;
  const bool isName = attribute.kind == Kind::Name;
  const char* id = attribute.IsNumber() ? "number" : isPath ? "path" : isName ? "name" : "keyword";
  const std::string problem = attribute.IsNumber()            ? NumberProblem(attribute.kind, text)
                              : attribute.keywords != nullptr ? KeywordProblem(attribute, text)
                              : isPath && !isTime             ? PathProblem(attribute.kind, text)
                              : !isName                       ? ""
                              : text.empty()                  ? " is empty"
                              : text.size() > kLongestText    ? kTooLong
                                                              : "";
  if (!problem.empty()) {
    findings->Add(element, id, what + problem);
  } else if (text.size() > kLongestText) {
    findings->Add(element, "text-long", what + kTooLong);
  } else if (HasOuterBlank(text) && (isName || isPath)) {
    findings->Add(element, "blank", what + " begins or ends with a blank");
  } else if (isPath && text.find_first_of("*$%") != std::string::npos) {
    findings->Add(element, "pattern", what + " looks like a pattern");
  }
}

}  // namespace Quilcheck
