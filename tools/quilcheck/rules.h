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
void CheckValue(const xmlNode* element, const ConfigGrammar::Element& row, const ConfigGrammar::Attribute& attribute,
                const std::string& text, Findings* findings);

/// What the daemon does with a text that is no keyword of the attribute: "passes over it", "takes none".
std::string Otherwise(const ConfigGrammar::Attribute& attribute);

/// True when the daemon can make files at a group's output path.
bool HasUsableOutput(const GroupReading& group);

/// Checks what the daemon makes of a service: whether it is valid, what has no effect, what it costs, what is lost.
void CheckService(const ServiceReading& service, Findings* findings);

/// A node that a group reads.
struct NodeUse {
  enum Way { Streams, Polls, GivesTitle };

  const ServiceReading* service;
  const xmlNode* element;
  std::string path;
  std::string place;  ///< the path without links and steps
  Way way;
};

/// The nodes of all services; with a root directory, of several alternatives the one that is there.
std::vector<NodeUse> NodesOf(const std::vector<ServiceReading>& services, const Root* root);

/// Finds nodes that do not suit those who read them, and with a root directory those that are not there.
void CheckNodes(const std::vector<NodeUse>& nodes, const Root* root, Findings* findings);

/// Finds the outputs of all services that are in a wrong place, share a file, delete each other's files, or take the
/// place of a node.
void CheckOutputs(const std::vector<ServiceReading>& services, const std::vector<NodeUse>& nodes, const Root* root,
                  Findings* findings);

/// Compares the services with those that an init file starts. False, with `*reason`: it cannot be read.
bool CheckInit(const std::string& file, const std::vector<ServiceReading>& services, const xmlNode* top,
               Findings* findings, std::string* reason);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_RULES_H_
