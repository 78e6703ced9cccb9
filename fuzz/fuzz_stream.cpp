// The stream reader writes the lines of what a node delivers, however reads split it.
//
// The executable is linked with --wrap for the system calls below: a read gives the next piece of the input, a write is
// compared at once with a model of the reader, and the clock moves between reads only.
//
// Input bytes stand for themselves, but "%" with the next byte stands for
//   %|   the end of a read's data          %i   the read is interrupted once before it gives its data
//   %rN  the last byte, N times more       %w   the first write after the read fails
//   %RN  the same 8160 + N % 64 times      %tN  the clock moves on by N steps before the read
// and for that byte otherwise.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string>
#include <utility>

#include "collect/quilbase.h"

using namespace QuilCommon;

namespace {

constexpr size_t kMostText = 8191;    // of a line, read or written
constexpr size_t kMostInput = 32768;  // keeps a run short
constexpr suseconds_t kClockStep = 43217;

FILE* sink;  // takes the daemon's complaints

void Check(bool holds, const char* what) {
  if (!holds) {
    dprintf(STDERR_FILENO, "%s\n", what);
    abort();
  }
}

struct Piece {
  std::string data;
  suseconds_t delay = 0;
  bool interrupted = false;
  bool breaksOutput = false;
};

/// Applies "%" and `code`. Tells whether `argument` belongs to it.
bool Escape(std::deque<Piece>& pieces, uint8_t code, uint8_t argument) {
  Piece& piece = pieces.back();
  if (code == 'r' || code == 'R') {
    piece.data.append(code == 'r' ? argument : 8160 + argument % 64u, piece.data.empty() ? '.' : piece.data.back());
  } else if (code == 't') {
    piece.delay = argument * kClockStep;
  } else if (code == 'i') {
    piece.interrupted = true;
  } else if (code == 'w') {
    piece.breaksOutput = true;
  } else if (code == '|') {
    pieces.emplace_back();
  } else {
    piece.data += static_cast<char>(code);
  }
  return code == 'r' || code == 'R' || code == 't';
}

std::deque<Piece> Pieces(const uint8_t* data, size_t size) {
  std::deque<Piece> pieces(1);
  size_t total = 0;
  for (size_t i = 0; i < size && total < kMostInput; ++i) {
    const size_t before = pieces.back().data.size();
    if (data[i] != '%' || i + 1 == size) {
      pieces.back().data += static_cast<char>(data[i]);
    } else {
      i += Escape(pieces, data[i + 1], i + 2 < size ? data[i + 2] : uint8_t{0}) ? 2 : 1;
    }
    total += std::max(pieces.back().data.size(), before) - before;
  }
  return pieces;
}

/// The lines of the bytes taken so far, without clocks and cuts.
class Model {
 public:
  size_t room() const { return kMostText - kept_.size(); }
  void Take(const std::string& data) {
    kept_ += data.substr(0, data.find('\0'));
    size_t start = 0;
    for (size_t feed; (feed = kept_.find('\n', start)) != std::string::npos; start = feed + 1) {
      if (feed > start) {
        lines.push_back(kept_.substr(start, feed - start));
      }
    }
    kept_.erase(0, start);
    if (kept_.size() == kMostText) {
      lines.push_back(std::exchange(kept_, ""));
    }
  }

  std::deque<std::string> lines;  // not yet written

 private:
  std::string kept_;
};

/// The system calls as the reader sees them.
class Machine {
 public:
  explicit Machine(std::deque<Piece> pieces) : pieces_(std::move(pieces)) {}

  ssize_t Read(int fd, char* buffer, size_t size) {
    node_ = fd;
    Check(!ended_, "a read after a failure");
    Check(model_.lines.empty(), "a line was not written before the next read");
    Check(size == model_.room(), "the read does not ask for what has room");
    if (pieces_.empty()) {
      return Fail(EIO);
    }
    Piece& piece = pieces_.front();
    if (std::exchange(piece.interrupted, false)) {
      errno = EINTR;
      return -1;
    }
    now.tv_usec += std::exchange(piece.delay, 0);
    now.tv_sec += now.tv_usec / 1000000;
    now.tv_usec %= 1000000;
    breaksOutput_ |= piece.breaksOutput;
    const std::string data = piece.data.substr(0, size);
    memcpy(buffer, data.data(), data.size());
    model_.Take(data);
    piece.data.erase(0, data.size());
    if (piece.data.empty()) {
      pieces_.pop_front();
    }
    return static_cast<ssize_t>(data.size());
  }

  ssize_t Write(const char* data, size_t size) {
    Check(!ended_, "a write after a failure");
    Check(!model_.lines.empty(), "a line too many");
    char clock[32];
    const size_t length = strftime(clock, sizeof clock, "%m-%d %H:%M:%S", localtime(&now.tv_sec));
    snprintf(clock + length, sizeof clock - length, ".%03d ", static_cast<int>(now.tv_usec / 1000));
    Check(std::string(data, size) == (clock + model_.lines.front() + '\n').substr(0, kMostText), "another line");
    model_.lines.pop_front();
    return breaksOutput_ ? Fail(ENOSPC) : static_cast<ssize_t>(size);
  }

  void CheckEnd() const { Check(ended_ && fcntl(node_, F_GETFD) < 0, "the reader ended early or left its node open"); }

  timeval now = {1709251198, 1999};  // just before a month ends

 private:
  ssize_t Fail(int error) {
    ended_ = true;
    errno = error;
    return -1;
  }

  std::deque<Piece> pieces_;
  Model model_;
  int node_ = -1;
  bool breaksOutput_ = false;
  bool ended_ = false;
};

Machine* machine;  // while the reader runs

/// A collector that writes to standard output.
class Collector : public Quilbase {
 public:
  explicit Collector(QuilcatGroup_t* group) : Quilbase(group, WRITE_FACTORY) {}
  void openLogFilePost() override {}
};

}  // namespace

extern "C" {

ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_gettimeofday(timeval* now, void* zone);

ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  return machine != nullptr ? machine->Read(fd, static_cast<char*>(buffer), size) : __real_read(fd, buffer, size);
}

ssize_t __wrap_write(int fd, const void* data, size_t size) {
  return machine != nullptr ? machine->Write(static_cast<const char*>(data), size) : __real_write(fd, data, size);
}

int __wrap_gettimeofday(timeval* now, void* zone) {
  if (machine == nullptr) {
    return __real_gettimeofday(now, zone);
  }
  *now = machine->now;
  return 0;
}

int LLVMFuzzerInitialize(int*, char***) {
  sink = fopen("/dev/null", "w");
  return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Machine fed(Pieces(data, size));
  QuilcatGroup_t group{};
  Collector collector(&group);
  FILE* standardError = std::exchange(stderr, sink);
  machine = &fed;
  const int result = collector.node_cat_stream("/dev/null");
  machine = nullptr;
  stderr = standardError;
  Check(result == 1, "the reader succeeded");
  fed.CheckEnd();
  return 0;
}

}  // extern "C"
