#ifndef QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
#define QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_

#include <map>
#include <string>

namespace Quilcheck {

/// Names and values of system properties.
using Properties = std::map<std::string, std::string>;

/// Gives these system properties these values in this process from now on; those assumed before are dropped. All others
/// have the values of the machine. One thread.
void AssumeProperties(const Properties& properties);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
