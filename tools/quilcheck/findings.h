#ifndef QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_
#define QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_

#include <string>
#include <vector>

namespace Quilcheck {

enum class Severity { Warning, Error };

/// One sentence about one line of the file: what is wrong, what the daemon will do, what was probably meant.
struct Finding {
  int line;
  Severity severity;
  std::string text;
  std::string service;       ///< the service that it is about; empty: the file
  std::string otherService;  ///< a second one that it is about
};

/// The findings about one file, ordered by line after a call of Sort.
class Findings {
 public:
  void Error(int line, std::string text) { Add(line, Severity::Error, std::move(text)); }
  void Warning(int line, std::string text) { Add(line, Severity::Warning, std::move(text)); }
  /// Sets the second service that the newest finding is about.
  void AlsoAbout(const std::string& name) { list.back().otherService = name; }

  /// Sets the service that findings added from now on are about; empty: the file.
  void SetService(const std::string& name) { service = name; }

  /// Keeps only the findings about service `name` and about the file.
  void KeepService(const std::string& name);
  void Sort();
  int Count(Severity severity) const;
  const std::vector<Finding>& All() const { return list; }

 private:
  void Add(int line, Severity severity, std::string text);

  std::vector<Finding> list;
  std::string service;
};

/// The text in quotes, shortened to fit on a line.
std::string Quoted(const std::string& text);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_
