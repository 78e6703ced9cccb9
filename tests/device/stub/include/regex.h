#pragma once

#include_next <regex.h>

// Android's library takes the bounds of a text, as glibc does; the one whose headers replace it has no name for
// that.
#define REG_STARTEND 4
