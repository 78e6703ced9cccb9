#ifndef QUILCAT_TOOLS_QUILCHECK_RULES_H_
#define QUILCAT_TOOLS_QUILCHECK_RULES_H_

#include <string>
#include <vector>

#include "quilcheck/findings.h"
#include "quilcheck/grammar.h"
#include "quilcheck/root.h"
#include "quilcheck/service_reader.h"

namespace Quilcheck {

/// Checks elements, attributes and values below `parent`, whose rules are those of `parentName`, each by the grammar
/// alone.
void CheckStructure(const xmlNode* parent, const std::string& parentName, Findings* findings);

/// Checks the text of one attribute.
void CheckValue(const ElementRule& element, const AttributeRule& attribute, const std::string& text, int line,
                Findings* findings);

/// The absolute path with single slashes, without "." and ".." steps. Links are not looked at.
std::string NormalPath(const std::string& path);

/// True when the path ends in a name: not in "/", "." or "..".
bool NamesFile(const std::string& path);

/// True when a group's output is one that the daemon can make files of.
bool HasUsableOutput(const GroupReading& group);

/// Checks what the daemon makes of a service: whether it is valid, what has no effect, what it costs, what is lost.
void CheckService(const ServiceReading& service, Findings* findings);

/// Checks the streams of all services against each other: which read one node.
void CheckStreams(const std::vector<ServiceReading>& services, Findings* findings);

/// Checks the outputs of all services against each other: which share a file, which delete each other's.
void CheckOutputs(const std::vector<ServiceReading>& services, Findings* findings);

/// Looks up a service's nodes and directories below `root`.
void CheckPaths(const ServiceReading& service, const Root& root, Findings* findings);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_RULES_H_
