#ifndef QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
#define QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_

#include <string>

namespace Quilcheck {

/// Has system property `name` be `value` for this process. Others are those of the machine. One thread.
void AssumeProperty(const std::string& name, const std::string& value);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_PROPERTIES_H_
