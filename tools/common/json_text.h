#ifndef QUILCAT_TOOLS_COMMON_JSON_TEXT_H_
#define QUILCAT_TOOLS_COMMON_JSON_TEXT_H_

#include <stddef.h>

#include <string>

/// Appends `text` to `json` as a string of JSON (RFC 8259), quotes included. Of bytes that are no UTF-8 (RFC 3629) each
/// becomes U+FFFD, so that every reader of JSON takes the result.
void AppendJsonString(std::string& json, const char* text, size_t size);

#endif  // QUILCAT_TOOLS_COMMON_JSON_TEXT_H_
