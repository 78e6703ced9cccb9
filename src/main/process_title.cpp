#include "main/process_title.h"

#include <stdint.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "platform/string.h"
#include "safestr/safestr.h"

ProcessTitle::ProcessTitle(char** argv) : begin(argv[0]), end(argv[0] + strlen(argv[0])) {
  Extend(argv + 1);
  if (environ == nullptr) {
    return;
  }
  Extend(environ);
  for (char** variable = environ; *variable != nullptr; ++variable) {
    char* copy = strdup(*variable);
    if (copy != nullptr) {
      *variable = copy;
    }
  }
}

/// Adds those of `strings` that follow the area in memory. Strings that a library set before main() lie elsewhere.
void ProcessTitle::Extend(char** strings) {
  for (; *strings != nullptr; ++strings) {
    if (*strings == end + 1) {
      end = *strings + strlen(*strings);
    }
  }
}

bool ProcessTitle::Set(const char* name) {
  const auto size = static_cast<int32_t>(end - begin);
  const size_t length = strlen(name);
  if (size < 3 || static_cast<size_t>(size - 2) <= length) {
    return false;
  }
  const auto room = static_cast<size_t>(size - 1);
  memset_s(begin, room, 0, room);
  strlcpy(begin, name, room);
  prctl(PR_SET_NAME, name);
  return true;
}
