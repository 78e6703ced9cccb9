#ifndef QUILCAT_TOOLS_QUILCHECK_RULES_H_
#define QUILCAT_TOOLS_QUILCHECK_RULES_H_

#include <string>
#include <vector>

#include "quilcheck/findings.h"
#include "quilcheck/grammar.h"
#include "quilcheck/root.h"
#include "quilcheck/service_reader.h"

namespace Quilcheck {

/// Checks elements, attributes and values below `parent` against the grammar, by the rules for `parentName`.
void CheckStructure(const xmlNode* parent, const std::string& parentName, Findings* findings);

/// Checks the text of one attribute.
void CheckValue(const ElementRule& element, const AttributeRule& attribute, const std::string& text, int line,
                Findings* findings);

/// The absolute path with single slashes, without "." and ".." steps. Links are not followed.
std::string NormalPath(const std::string& path);

/// True when the path ends in a name: not in "/", "." or "..".
bool NamesFile(const std::string& path);

/// True when the daemon can make files at a group's output path.
bool HasUsableOutput(const GroupReading& group);

/// Checks what the daemon makes of a service: whether it is valid, what has no effect, what it costs, what is lost.
void CheckService(const ServiceReading& service, Findings* findings);

/// Finds the streams of all services that read the same node.
void CheckStreams(const std::vector<ServiceReading>& services, Findings* findings);

/// Finds the outputs of all services that share a file or delete each other's files.
void CheckOutputs(const std::vector<ServiceReading>& services, Findings* findings);

/// Looks up a service's nodes and directories below `root`.
void CheckPaths(const ServiceReading& service, const Root& root, Findings* findings);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_RULES_H_
