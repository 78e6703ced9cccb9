#ifndef QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_
#define QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_

#include <libxml/tree.h>

#include <map>
#include <string>
#include <vector>

namespace Quilcheck {

enum class Severity { Note, Warning, Error };

/// What quilcheck looks for: a row of the table of rules in docs/configuration.md, which is compiled in.
struct Rule {
  Severity severity;
  std::string consequence;  ///< what the daemon does; may be empty
  std::string text;
};

/// All rules, by id.
const std::map<std::string, Rule>& Rules();
/// "error", "warning" or "note".
const char* NameOf(Severity severity);

/// One sentence about one element: what is wrong, what the daemon will do, what was probably meant.
struct Finding {
  const xmlNode* element;  ///< null: of the parser, which knows the line only
  int line;
  std::string id;  ///< of its rule
  Severity severity;
  std::string text;
  std::string service;       ///< the service that it is about; empty: the file
  std::string otherService;  ///< a second one that it is about
};

/// The findings about one file, ordered by line after a call of Sort.
class Findings {
 public:
  /// The text becomes "WHAT: consequence of the rule; did you mean HINT?"
  void Add(const xmlNode* element, const char* id, const std::string& what, const std::string& hint = "",
           const std::string& otherService = "");
  void AddOfParser(int line, bool isFatal, std::string text);

  /// Sets the service that findings added from now on are about; empty: the file.
  void SetService(const std::string& name) { service = name; }

  /// Takes out what comments before elements allow there, and adds a finding for each that allows nothing.
  void TakeOutAllowed(xmlDoc* document);
  /// Keeps only the findings about the file and about service `name`, unless that is empty.
  void Narrow(const std::string& name, bool withNotes);
  void Sort();
  int Count(Severity severity) const;
  const std::vector<Finding>& All() const { return list; }

 private:
  void Allow(const xmlNode* comment);
  template <typename Test>
  bool TakeOut(Test test);

  std::vector<Finding> list;
  std::string service;
};

/// The text in quotes, shortened to fit on a line.
std::string Quoted(const std::string& text);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_
