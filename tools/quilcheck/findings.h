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

/// What was found in one file. A value; findings stand in order of line once Sort was called.
class Findings {
 public:
  void Error(int line, std::string text) { Add(line, Severity::Error, std::move(text)); }
  void Warning(int line, std::string text) { Add(line, Severity::Warning, std::move(text)); }
  /// Names a second service that the newest finding is about.
  void AlsoAbout(const std::string& name) { list.back().otherService = name; }

  /// The service that findings added from now on are about; empty: the file.
  void SetService(const std::string& name) { service = name; }

  /// Keeps what is about `name` or about the file.
  void KeepService(const std::string& name);
  void Sort();
  int Count(Severity severity) const;
  const std::vector<Finding>& All() const { return list; }

 private:
  void Add(int line, Severity severity, std::string text);

  std::vector<Finding> list;
  std::string service;
};

/// The text with quotes around it, cut to a length that fits on a line.
std::string Quoted(const std::string& text);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_FINDINGS_H_
