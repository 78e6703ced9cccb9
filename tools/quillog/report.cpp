#include "quillog/report.h"

#include <stdio.h>

#include "quillog/forms/terminal.h"

namespace {

constexpr size_t kMostOfFile = 100;

}  // namespace

void Report::Say(const std::string& file, const std::string& text, bool isDamage) {
  if (file != lastFile) {
    Finish();
    lastFile = file;
  }
  count += isDamage ? 1 : 0;
  ofFile += isDamage ? 1 : 0;
  if (!quiet && (!isDamage || ofFile <= kMostOfFile)) {
    Write(file, text);
  }
}

void Report::Finish() {
  if (!quiet && ofFile > kMostOfFile) {
    Write(lastFile, "and " + std::to_string(ofFile - kMostOfFile) + " more");
  }
  ofFile = 0;
}

void Report::Write(const std::string& file, const std::string& text) {
  // Where both streams go to one place, the text read so far comes first.
  output.Flush();
  output.HideProgress();
  std::string line;
  Terminal::AppendVisible(line, file.data(), file.size());  // a name may hold what a terminal obeys
  line += ": ";
  Terminal::AppendVisible(line, text.data(), text.size());
  fprintf(stderr, "quillog: %s\n", line.c_str());
}
