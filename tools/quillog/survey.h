#ifndef QUILCAT_TOOLS_QUILLOG_SURVEY_H_
#define QUILCAT_TOOLS_QUILLOG_SURVEY_H_

#include <vector>

#include "quillog/line_reader.h"
#include "quillog/pile/output_files.h"

/// What --list and --verify say about whole outputs. Both read every file.
namespace Survey {

/// A table for each output: a line for each file with its index, first and last time, sizes and state.
void List(std::vector<Output>& outputs, TextOutput& text, Report& report);

/// A line for each output; `report` names each damage.
void Verify(std::vector<Output>& outputs, TextOutput& text, Report& report);

}  // namespace Survey

#endif  // QUILCAT_TOOLS_QUILLOG_SURVEY_H_
