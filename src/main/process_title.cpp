#include "main/process_title.h"

#include <stdint.h>
#include <string.h>
#include <sys/prctl.h>
#include <unistd.h>

#include "platform/string.h"
#include "safestr/safestr.h"

ProcessTitle::ProcessTitle(int argc, char** argv) : begin(argv[0]), end(argv[argc - 1] + strlen(argv[argc - 1])) {
  for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
    end = *variable + strlen(*variable);
    char* copy = strdup(*variable);
    if (copy != nullptr) {
      *variable = copy;
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
