#include "quillog/forms/text_output.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include "quillog/forms/terminal.h"

namespace {

constexpr size_t kBuffer = 131072;
constexpr long long kFirstProgress = 1000;
constexpr long long kProgressInterval = 200;

long long Milliseconds() {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

}  // namespace

TextOutput::TextOutput(int file, bool isShown)
    : fd(file),
      shown(isShown),
      showsProgress(isatty(STDERR_FILENO) == 1),
      nextProgress(Milliseconds() + kFirstProgress) {
  buffer.reserve(kBuffer);
}

void TextOutput::Write(const char* text, size_t size) {
  if (!shown) {
    Take(text, size);
    return;
  }
  visible.clear();
  Terminal::AppendVisible(visible, text, size);
  Take(visible.data(), visible.size());
}

void TextOutput::Take(const char* text, size_t size) {
  if (buffer.size() + size > kBuffer) {
    Flush();
  }
  if (size >= kBuffer / 4) {
    Flush();
    WriteAll(text, size);
  } else {
    buffer.append(text, size);
  }
}

void TextOutput::Flush() {
  WriteAll(buffer.data(), buffer.size());
  buffer.clear();
}

void TextOutput::LookForReader() {
  pollfd output = {fd, 0, 0};
  if (poll(&output, 1, 0) > 0 && (output.revents & POLLERR) != 0) {
    error = EPIPE;
  }
}

void TextOutput::WriteAll(const char* text, size_t size) {
  if (size > 0) {
    HideProgress();
  }
  while (size > 0 && error == 0) {
    const ssize_t written = write(fd, text, size);
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written < 0) {
      error = errno;
      return;
    }
    text += written;
    size -= static_cast<size_t>(written);
  }
}

void TextOutput::Progress(const std::string& text) {
  if (!showsProgress) {
    return;
  }
  const long long now = Milliseconds();
  if (now >= nextProgress) {
    nextProgress = now + kProgressInterval;
    progressShown = true;
    fprintf(stderr, "\r\033[K%s", text.c_str());
  }
}

void TextOutput::HideProgress() {
  if (progressShown) {
    progressShown = false;
    fputs("\r\033[K", stderr);
  }
}
