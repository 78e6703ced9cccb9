#ifndef QUILCAT_TOOLS_QUILCHECK_REPORT_H_
#define QUILCAT_TOOLS_QUILCHECK_REPORT_H_

#include <string>
#include <vector>

#include "quilcheck/document.h"
#include "quilcheck/findings.h"
#include "quilcheck/service_reader.h"

namespace Quilcheck {

/// What to check.
struct Request {
  std::string file;                      ///< empty: the one that a device with this root directory takes
  std::string service;                   ///< empty: all of them
  Properties properties;                 ///< to assume
  std::string root;                      ///< directory to look up nodes and outputs in; empty: they are not looked up
  std::string initFile;                  ///< of services that init starts; empty: none
  unsigned long long diskKilobytes = 0;  ///< that all outputs may take; 0: as much as they like
  bool notes = false;                    ///< wanted too
};

/// The findings about one file, and its services as the daemon would read them, both ordered by line.
struct Report {
  std::string file;
  Document document;
  Findings findings;
  std::vector<ServiceReading> services;
};

/// Fills `report`. False, with `*reason`: a file or the root directory cannot be read, or there is no configuration.
bool Check(const Request& request, Report* report, std::string* reason);

/// A table of how the service runs, with a section for each group.
std::string Summary(const ServiceReading& service);

/// The whole report as one JSON document. Without `withServices` it has findings only.
std::string Json(const Report& report, bool withServices);

/// The keyword of a group's style; "none" for a group without.
std::string StyleName(const GroupReading& group);
/// The keyword of the service's write mode.
std::string WriteModeName(const ServiceReading& service);
/// KiB that one output of the service takes at most if its text does not compress; 0: no bound.
unsigned long long MostKilobytes(const ServiceReading& service);
/// The same of all outputs of all services.
unsigned long long TotalKilobytes(const Report& report);
/// "512 MiB"
std::string SizeText(unsigned long long kilobytes);
/// Log files kept of each output in mmap mode, archives of five files in factory mode.
size_t FilesKept(const ServiceReading& service);
/// The time stamp that a polled column of this data path shows; empty for the path of a node.
std::string SampleTime(const std::string& path);
/// The row that each file of a polled group begins with; empty when it has none. A title that a node gives shows as the
/// node's name in angle brackets.
std::string HeadingRow(const GroupReading& group);
/// A row of a polled group, with the name of each node in angle brackets in place of its value.
std::string SampleRow(const GroupReading& group);

/// The text with control characters as \xNN, so that the text of a file does not reach a terminal as a command.
std::string Printable(const std::string& text);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_REPORT_H_
