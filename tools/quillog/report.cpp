#include "quillog/report.h"

#include <stdio.h>
#include <unistd.h>

#include <utility>

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
  std::string message = file + ": " + text;
  if (output.IsShown() || isatty(STDERR_FILENO) != 0) {
    std::string visible;  // names of files in a pile may be anything
    Terminal::AppendVisible(visible, message.data(), message.size());
    message = std::move(visible);
  }
  fprintf(stderr, "quillog: %s\n", message.c_str());
}
