// The stream reader writes the lines of what a node delivers, however reads split it; one that retries loses no line
// and repeats none, whatever openings, reads and writes fail, and notes what may have cost text.
//
// The executable is linked with --wrap for the system calls below: they do what the bytes of the input choose.

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <deque>
#include <set>
#include <string>
#include <utility>

#include "choices.h"
#include "collect/quilbase.h"

using namespace QuilCommon;

namespace {

constexpr size_t kMostText = 8191;  // of a line, read or written
constexpr size_t kStampSize = 19;   // "11-22 20:17:29.042 "
constexpr int kMostEvents = 100;    // keeps a run short
constexpr int kReadErrors[] = {EPIPE, EAGAIN, EIO};

void Check(bool holds, const char* what) {
  if (holds) return;
  dprintf(STDERR_FILENO, "%s\n", what);
  abort();
}

/// The system calls that the reader sees, and what it has to write.
class Machine {
 public:
  explicit Machine(Choices choices) : choices_(choices), retries(choices_.Below(2) == 1) {}

  /// False: the node does not open.
  bool Open() {
    Check(node_ < 0 || failuresInARow_ > 1, "the node is opened anew too early");
    Check(node_ < 0 || fcntl(node_, F_GETFD) < 0, "the node is open twice");
    node_ = -1;
    isStale_ = false;
    if (choices_.AtEnd() || choices_.Below(4) != 1) return true;
    FailRead(ENODEV);
    return false;
  }

  ssize_t Read(int fd, char* buffer, size_t size) {
    node_ = fd;
    Check(!isStale_, "a node that failed twice is to be opened anew");
    CheckRun();
    Check(size == kMostText - kept_.size(), "the read does not ask for what has room");
    if (const int error = NextEvents(); error != 0) return FailRead(error);
    failuresInARow_ = 0;
    const std::string data = piece_.substr(0, size);
    piece_.erase(0, data.size());
    memcpy(buffer, data.data(), data.size());
    Take(data);
    stamps_ = {Stamp()};
    due_ = waited_;
    return static_cast<ssize_t>(data.size());
  }

  ssize_t Write(const char* data, size_t size) {
    Check(!ended_, "a write after the end");
    if (failingWrites_ > 0) {
      --failingWrites_;
      ended_ = !retries;
      pause_ = &waited_;
      errno = ENOSPC;
      return -1;
    }
    const bool isShort = choices_.Below(4) == 1;
    const size_t taken = isShort ? 1 + choices_.Below(size) : size;
    failingWrites_ = isShort ? choices_.Below(3) : 0;
    written_.append(data, taken);
    return static_cast<ssize_t>(taken);
  }

  void Sleep(time_t seconds) {
    Check(retries && pause_ != nullptr, "a pause without a failure");
    ++*std::exchange(pause_, nullptr);
    now.tv_sec += seconds;
    stamps_.insert(Stamp());
  }

  void CheckEnd() const { Check(ended_ && fcntl(node_, F_GETFD) < 0, "the reader ended early or left its node open"); }

 private:
  /// What happens before a read. An errno, or 0.
  int NextEvents() {
    do {
      if (choices_.AtEnd() || ++events_ > kMostEvents) {
        isStopped_ = true;
        reader->requestStop();
        return EIO;
      }
      const size_t kind = choices_.Below(16);
      if (kind == 0) return EINTR;
      if (kind == 1) return kReadErrors[choices_.Below(3)];
      if (kind == 2) failingWrites_ = 1 + choices_.Below(3);
      if (kind == 3) now.tv_usec += static_cast<suseconds_t>(43217 * choices_.Below(256));
      if (kind == 4) piece_.append(8100 + choices_.Below(128), 'x');
      if (kind == 5)
        for (size_t lines = 16 * choices_.Below(256); lines > 0; --lines) piece_ += "a\n";
      for (size_t length = kind > 5 ? choices_.Below(32) : 0; length > 0; --length) {
        const size_t byte = choices_.Below(512);
        piece_ += byte == 'q' ? 'Q' : byte > 256 ? '\n' : static_cast<char>(byte);  // a "q" begins notes only
      }
    } while (choices_.Below(2) == 0);
    now.tv_sec += now.tv_usec / 1000000;
    now.tv_usec %= 1000000;
    return 0;
  }

  ssize_t FailRead(int error) {
    errno = error;
    if (error == EINTR) return -1;
    ++failedReads_;
    readError_ = error;
    ended_ = !retries || isStopped_;
    isStale_ = ++failuresInARow_ > 1;
    pause_ = &readPauses_;
    return -1;
  }

  /// Adds the lines that `data` completes.
  void Take(const std::string& data) {
    kept_ += data.substr(0, data.find('\0'));
    size_t start = 0;
    for (size_t feed; (feed = kept_.find('\n', start)) != std::string::npos; start = feed + 1) {
      if (feed > start) lines_.push_back(kept_.substr(start, feed - start));
    }
    kept_.erase(0, start);
    if (kept_.size() == kMostText) lines_.push_back(std::exchange(kept_, ""));
  }

  /// Checks what was written since the last read.
  void CheckRun() {
    Check(!ended_, "a read after the end");
    for (size_t at = 0; at < written_.size();) {
      Check(stamps_.count(written_.substr(at, kStampSize)) == 1, "the time is none since the read");
      at += kStampSize;
      const std::string text = NextText(written_.c_str() + at);
      Check(written_.compare(at, text.size(), text) == 0, "another line");
      at += text.size();
    }
    Check(lines_.empty(), "a line was not written before the next read");
    written_.clear();
  }

  /// What `actual` should be.
  std::string NextText(const char* actual) {
    if (const int failed = std::exchange(failedReads_, 0); failed != 0) {
      return "quilcat: " + std::to_string(failed) + " reads failed (" + strerror(readError_) +
             "), text may be missing here\n";
    }
    unsigned seconds = 0;
    if (sscanf(actual, "quilcat: nothing could be written for %u s", &seconds) == 1) {
      told_ += seconds;
      Check(seconds > 0 && told_ <= waited_, "it did not wait that long");
      return "quilcat: nothing could be written for " + std::to_string(seconds) + " s, text may be missing here\n";
    }
    Check(told_ >= due_, "a wait before the read is not noted");
    Check(!lines_.empty(), "a line too many");
    const std::string line = (lines_.front() + '\n').substr(0, kMostText - kStampSize);
    lines_.pop_front();
    return line;
  }

  std::string Stamp() const {
    char text[32];
    const size_t length = strftime(text, sizeof text, "%m-%d %H:%M:%S", localtime(&now.tv_sec));
    snprintf(text + length, sizeof text - length, ".%03d ", static_cast<int>(now.tv_usec / 1000));
    return text;
  }

  Choices choices_;
  int node_ = -1, events_ = 0, failedReads_ = 0, failuresInARow_ = 0, readError_ = 0;
  size_t failingWrites_ = 0;
  bool ended_ = false, isStopped_ = false;
  bool isStale_ = false;           // the node is to be opened anew before the next read
  std::string piece_;              // the node has it for the next read
  std::string kept_;               // the reader has it, a line that is not complete
  std::deque<std::string> lines_;  // to be written before the next read
  std::string written_;            // since the last read
  std::set<std::string> stamps_;   // of the times since then
  unsigned waited_ = 0;            // seconds for writes
  unsigned due_ = 0, told_ = 0;    // of them: before the last read, noted
  unsigned readPauses_ = 0;        // seconds for reads, which are not noted
  unsigned* pause_ = nullptr;      // what the next pause counts for

 public:
  ThreadBase* reader = nullptr;
  const bool retries;
  timeval now = {1709251198, 1999};  // just before a month ends
};

Machine* machine;  // while the reader runs

/// A collector that writes to standard output.
class Collector : public Quilbase, public ThreadBase {
 public:
  explicit Collector(QuilcatGroup_t* group) : Quilbase(group, WRITE_FACTORY) {}
  void openLogFilePost() override {}
  void run() override { Check(node_cat_stream("/dev/null") == 1, "the reader succeeded"); }
};

}  // namespace

extern "C" {

int __real_open64(const char* path, int flags, mode_t mode);
ssize_t __real_read(int fd, void* buffer, size_t size);
ssize_t __real_write(int fd, const void* data, size_t size);
int __real_gettimeofday(timeval* now, void* zone);
int __real_nanosleep(const timespec* time, timespec* left);

int __wrap_open64(const char* path, int flags, mode_t mode) {
  return machine == nullptr || machine->Open() ? __real_open64(path, flags, mode) : -1;
}
ssize_t __wrap_read(int fd, void* buffer, size_t size) {
  return machine != nullptr ? machine->Read(fd, static_cast<char*>(buffer), size) : __real_read(fd, buffer, size);
}
ssize_t __wrap_write(int fd, const void* data, size_t size) {
  return machine != nullptr ? machine->Write(static_cast<const char*>(data), size) : __real_write(fd, data, size);
}
int __wrap_gettimeofday(timeval* now, void* zone) {
  return machine != nullptr ? (*now = machine->now, 0) : __real_gettimeofday(now, zone);
}
int __wrap_nanosleep(const timespec* time, timespec* left) {
  return machine != nullptr ? (machine->Sleep(time->tv_sec), 0) : __real_nanosleep(time, left);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static FILE* const sink = fopen("/dev/null", "w");     // takes the daemon's complaints
  static const int standardOutput = dup(STDOUT_FILENO);  // a failed write closes it
  Machine fed(Choices(data, size));
  QuilcatGroup_t group{};
  group.style = STYLE_MONITOR_NODE;
  group.on_write_failure = fed.retries ? WRITE_FAILURE_RETRY : WRITE_FAILURE_END;
  {
    Collector collector(&group);
    FILE* standardError = std::exchange(stderr, sink);
    fed.reader = &collector;
    machine = &fed;
    Check(collector.start(), "no thread");
    collector.wait();
    machine = nullptr;
    stderr = standardError;
  }
  dup2(standardOutput, STDOUT_FILENO);
  fed.CheckEnd();
  return 0;
}

}  // extern "C"
