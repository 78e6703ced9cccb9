#include "quillog/forms/terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

#include "common/utf8.h"

namespace {

/// The character of a valid sequence.
unsigned CharacterOf(const char* text, size_t length) {
  unsigned character = static_cast<unsigned char>(text[0]) & (length == 1 ? 0x7f : 0x7f >> length);
  for (size_t i = 1; i < length; ++i) {
    character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3f);
  }
  return character;
}

/// True for what a terminal does something with instead of showing it.
bool IsObeyed(unsigned character) {
  const bool isControl = (character < 0x20 && character != '\t' && character != '\n') ||
                         (character >= 0x7f && character < 0xa0) || character == 0x2028 || character == 0x2029;
  const bool turnsDirection = character == 0x61c || character == 0x200e || character == 0x200f ||
                              (character >= 0x202a && character <= 0x202e) ||
                              (character >= 0x2066 && character <= 0x2069);
  return isControl || turnsDirection;
}

std::vector<std::string> WordsOf(const char* text) {
  constexpr char kBlanks[] = " \t\n";
  std::vector<std::string> words;
  for (text += strspn(text, kBlanks); *text != '\0'; text += strspn(text, kBlanks)) {
    words.emplace_back(text, strcspn(text, kBlanks));
    text += words.back().size();
  }
  return words;
}

/// The words of the pager's command, none where text is to be shown without one.
std::vector<std::string> PagerCommand() {
  const char* command = getenv("QUILLOG_PAGER");
  command = command != nullptr ? command : getenv("PAGER");
  std::vector<std::string> words = WordsOf(command != nullptr ? command : "less -FRX");
  if (words.size() == 1 && words[0] == "cat") {
    words.clear();
  }
  return words;
}

/// In the child: becomes the pager, or says through `failure` that it cannot.
[[noreturn]] void BecomePager(std::vector<std::string>& words, int input, int failure) {
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  dup2(input, STDIN_FILENO);
  signal(SIGPIPE, SIG_DFL);
  signal(SIGINT, SIG_DFL);
  execvp(arguments[0], arguments.data());
  const char sign = 'x';
  _exit(write(failure, &sign, 1) == 1 ? 1 : 2);
}

pid_t WaitFor(pid_t process) {
  pid_t ended = 0;
  do {
    ended = waitpid(process, nullptr, 0);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

/// Starts the pager. -1: it cannot be started.
pid_t StartPager(std::vector<std::string>& words, int input) {
  int failure[2];
  if (pipe2(failure, O_CLOEXEC) != 0) {
    return -1;
  }
  const pid_t process = fork();
  if (process == 0) {
    BecomePager(words, input, failure[1]);
  }
  close(failure[1]);
  char sign = 0;
  // A pager that started has closed its end.
  const bool isStarted = process > 0 && read(failure[0], &sign, 1) == 0;
  close(failure[0]);
  if (process > 0 && !isStarted) {
    WaitFor(process);
  }
  return isStarted ? process : -1;
}

}  // namespace

bool Terminal::IsShown() {
  return isatty(STDOUT_FILENO) == 1;
}

bool Terminal::HasCursor() {
  const char* const kind = getenv("TERM");
  return IsShown() && kind != nullptr && strcmp(kind, "dumb") != 0;
}

bool Terminal::TakesColors() {
  const char* const none = getenv("NO_COLOR");
  return HasCursor() && (none == nullptr || *none == '\0');
}

const char* Terminal::ColorOf(int level) {
  // Emergency to critical, error, warning, notice; information is plain, debugging is dim.
  static constexpr const char* kColors[] = {"1;31", "1;31", "1;31", "31", "33", "1", nullptr, "2"};
  return level >= 0 && level < 8 ? kColors[level] : nullptr;
}

void Terminal::AppendVisible(std::string& to, const char* text, size_t size) {
  size_t shown = 0;  // up to there
  for (size_t at = 0; at < size;) {
    const size_t length = Utf8Length(text + at, size - at);
    const unsigned character = length == 0 ? static_cast<unsigned char>(text[at]) : CharacterOf(text + at, length);
    if (length > 0 && !IsObeyed(character)) {
      at += length;
      continue;
    }
    char sign[16];
    if (length == 0) {
      snprintf(sign, sizeof sign, "<%02X>", character);
    } else if (character < 0x80) {
      snprintf(sign, sizeof sign, "^%c", static_cast<int>(character ^ 0x40));
    } else {
      snprintf(sign, sizeof sign, "<U+%04X>", character);
    }
    to.append(text + shown, at - shown);
    to += sign;
    at += length == 0 ? 1 : length;
    shown = at;
  }
  to.append(text + shown, size - shown);
}

void Terminal::Pager::Start() {
  std::vector<std::string> words = PagerCommand();
  int ends[2];
  if (words.empty() || process > 0 || pipe2(ends, O_CLOEXEC) != 0) {
    return;
  }
  process = StartPager(words, ends[0]);
  if (process > 0) {
    for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
      if (fd == STDOUT_FILENO || isatty(fd) == 1) {
        saved[fd - STDOUT_FILENO] = fcntl(fd, F_DUPFD_CLOEXEC, 0);
        dup2(ends[1], fd);
      }
    }
    signal(SIGINT, SIG_IGN);
  }
  close(ends[0]);
  close(ends[1]);
}

void Terminal::Pager::Stop() {
  if (process <= 0) {
    return;
  }
  for (const int fd : {STDOUT_FILENO, STDERR_FILENO}) {
    int& before = saved[fd - STDOUT_FILENO];
    if (before >= 0) {
      dup2(before, fd);  // which closes the pager's input
      close(before);
      before = -1;
    }
  }
  WaitFor(process);
  process = -1;
  signal(SIGINT, SIG_DFL);
}
