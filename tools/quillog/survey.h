#ifndef QUILCAT_TOOLS_QUILLOG_SURVEY_H_
#define QUILCAT_TOOLS_QUILLOG_SURVEY_H_

#include <vector>

#include "quillog/forms/text_output.h"
#include "quillog/pile/output_files.h"
#include "quillog/report.h"

/// What --list, --list-boots and --verify say about whole outputs. All read every file.
namespace Survey {

/// Holds the output's files, see OutputFiles::Hold(), and names what is in the way as a damage.
void Hold(Output& output, Report& report);

/// A table for each output: a line for each file with its index, first and last time, sizes and state.
void List(std::vector<Output>& outputs, TextOutput& text, Report& report);

/// A table for each output: a line for each boot with its number, first and last time, bytes of text and how it ended.
void ListBoots(std::vector<Output>& outputs, TextOutput& text, Report& report);

/// A line for each output; `report` names each damage.
void Verify(std::vector<Output>& outputs, TextOutput& text, Report& report);

}  // namespace Survey

#endif  // QUILCAT_TOOLS_QUILLOG_SURVEY_H_
