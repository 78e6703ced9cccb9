#ifndef QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
#define QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_

#include <map>
#include <string>

namespace Quilcheck {

/// Names and values of system properties.
using Properties = std::map<std::string, std::string>;

/// Has these system properties be so in this process from now on, in place of those assumed before. Others are those of
/// the machine. One thread.
void AssumeProperties(const Properties& properties);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
