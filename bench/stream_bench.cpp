// What a streamed line costs a collector, against the least that it can cost.
//
// A collector reads a fifo of kernel lines and writes them to files in tmpfs; only the CPU time of its own thread
// counts. The floor is measured in the same run, alternating, over exactly the text that the collector wrote:
//   mmap mode     deflate at level 9 of the same blocks
//   factory mode  one access() and one write() per line: the floor of a writer that takes lines one by one

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "collect/quilcat.h"
#include "config/quilcommon.h"
#include "kernel_lines.h"
#include "mmaplog/log_format.h"

using namespace QuilCommon;

namespace {

constexpr size_t kLines = 100'000;
constexpr int kRounds = 15;
constexpr int kPipeSize = 1 << 20;
constexpr size_t kStampLength = sizeof "11-22 20:17:29.123 " - 1;

/// CPU time of the calling thread in seconds.
double ThreadCpu() {
  timespec time;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// A private directory in tmpfs with a fifo for a node, removed at the end of the scope.
class Workspace {
 public:
  Workspace() {
    char name[] = "/dev/shm/quilcat-bench.XXXXXX";
    if (mkdtemp(name) == nullptr || mkfifo((std::string(name) + "/kmsg").c_str(), 0600) != 0) {
      perror("cannot prepare a directory in /dev/shm");
      abort();
    }
    root = name;
  }
  ~Workspace() { std::filesystem::remove_all(root); }
  Workspace(const Workspace&) = delete;
  Workspace& operator=(const Workspace&) = delete;

  std::string node() const { return root + "/kmsg"; }
  std::string output() const { return root + "/log/android_logs/kmsgcat-log"; }

  /// The file that a collector wrote its text to: the only regular file beside the link.
  std::string writtenFile() const {
    for (const auto& entry : std::filesystem::directory_iterator(root + "/log/android_logs")) {
      if (!entry.is_symlink()) {
        return entry.path();
      }
    }
    return {};
  }

 private:
  std::string root;
};

/// Sends standard error nowhere for the life of a scope: the set-up of an output reports each link that was not there
/// yet, and a machine without the group "system".
class QuietErrors {
 public:
  QuietErrors() : saved(dup(STDERR_FILENO)) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
  ~QuietErrors() {
    dup2(saved, STDERR_FILENO);
    close(saved);
  }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  int saved;
};

/// A collector that notes what its thread spent.
class MeasuredCollector : public Quilcat {
 public:
  using Quilcat::Quilcat;
  ~MeasuredCollector() override { stop(); }

  void run() override {
    const double begin = ThreadCpu();
    Quilcat::run();
    logcatClose();
    cpuSeconds = ThreadCpu() - begin;
  }

  double cpuSeconds = 0;  ///< once the thread has ended
};

/// Writes `text` into the fifo at `path` and waits until it was read. The fifo stays open until then: without a writer
/// the collector would spin on empty reads.
class Feeder {
 public:
  explicit Feeder(const std::string& path) : fd(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    fcntl(fd, F_SETPIPE_SZ, kPipeSize);
  }
  ~Feeder() { close(fd); }
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;

  void Feed(std::string_view text) const {
    while (!text.empty()) {
      const ssize_t size = write(fd, text.data(), text.size());
      if (size < 0) {
        perror("write to the fifo");
        abort();
      }
      text.remove_prefix(static_cast<size_t>(size));
    }
    for (int left = 1; left != 0; usleep(500)) {
      ioctl(fd, FIONREAD, &left);
    }
  }

 private:
  int fd;
};

/// Runs a collector over `text`. Returns the CPU seconds of its thread; what it wrote is in the workspace.
double RunCollector(const Workspace& workspace, type_write mode, const std::string& text) {
  std::string node = workspace.node();
  std::string output = workspace.output();
  QuilcatInfo_t info = {};
  info.maxCompressdFiles = 25;
  QuilcatInputNodeSet_t input = {};
  input.data_path = node.data();
  QuilcatGroup_t group = {};
  group.style = STYLE_MONITOR_NODE;
  group.info = &info;
  group.input = &input;
  group.output_file_path = output.data();
  std::unique_ptr<MeasuredCollector> collector;
  {
    const QuietErrors quiet;
    collector = std::make_unique<MeasuredCollector>(&group, mode);
    collector->start();
    while (!collector->isSetUp()) {
      usleep(500);
    }
  }
  const Feeder feeder(node);
  feeder.Feed(text);
  collector->stop();
  return collector->cpuSeconds;
}

std::string ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The texts of the gzip members in `file`, one per block.
std::vector<std::string> Blocks(std::string file) {
  std::vector<std::string> blocks;
  z_stream stream = {};
  inflateInit2(&stream, LogFormat::kGzipWindowBits);
  stream.next_in = reinterpret_cast<uint8_t*>(file.data());
  stream.avail_in = static_cast<uInt>(file.size());
  while (stream.avail_in > 0) {
    std::string block(LogFormat::kBlockArea, '\0');
    stream.next_out = reinterpret_cast<uint8_t*>(block.data());
    stream.avail_out = static_cast<uInt>(block.size());
    if (inflate(&stream, Z_FINISH) != Z_STREAM_END) {
      break;
    }
    block.resize(block.size() - stream.avail_out);
    blocks.push_back(block);
    inflateReset(&stream);
  }
  inflateEnd(&stream);
  return blocks;
}

template <typename Use>
void ForEachLine(std::string_view text, Use use) {
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n') + 1);
    use(line);
    text.remove_prefix(line.size());
  }
}

/// True when `written` is `fed` with a time stamp before each line. A collector that loses text would seem fast.
bool IsStampedCopy(std::string_view written, std::string_view fed) {
  std::string bare;
  bare.reserve(fed.size());
  ForEachLine(written, [&bare](std::string_view line) { bare += line.substr(std::min(kStampLength, line.size())); });
  return bare == fed;
}

/// Runs `measure` in a thread of its own, like a collector: for a write the kernel takes locks in a process of several
/// threads that it does not take in one of a single thread.
template <typename Measure>
double InThread(Measure measure) {
  double seconds = 0;
  std::thread([&seconds, measure] { seconds = measure(); }).join();
  return seconds;
}

/// CPU seconds of the calling thread for what no collector in mmap mode can do without.
double RunStreamFloor(const std::vector<std::string>& blocks) {
  static uint8_t compressed[LogFormat::kBlockArea];
  const double begin = ThreadCpu();
  z_stream stream = {};
  deflateInit2(&stream, LogFormat::kDeflateLevel, Z_DEFLATED, LogFormat::kGzipWindowBits, LogFormat::kDeflateMemLevel,
               Z_DEFAULT_STRATEGY);
  for (const std::string& block : blocks) {
    stream.next_in = reinterpret_cast<uint8_t*>(const_cast<char*>(block.data()));
    stream.avail_in = static_cast<uInt>(block.size());
    stream.next_out = compressed;
    stream.avail_out = sizeof compressed;
    benchmark::DoNotOptimize(deflate(&stream, Z_FINISH));
    deflateReset(&stream);
  }
  deflateEnd(&stream);
  return ThreadCpu() - begin;
}

/// The same for factory mode.
double RunFactoryFloor(const std::string& text, const std::string& path) {
  const std::string copy = path + ".floor";
  const double begin = ThreadCpu();
  const int fd = open(copy.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  ForEachLine(text, [&path, fd](std::string_view line) {
    benchmark::DoNotOptimize(access(path.c_str(), F_OK));
    benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
  });
  close(fd);
  return ThreadCpu() - begin;
}

struct Round {
  double path = 0;   ///< CPU seconds of the collector
  double floor = 0;  ///< CPU seconds of the floor
  bool kept = false;
};

Round StreamRound(const std::string& text) {
  const Workspace workspace;
  Round round;
  round.path = RunCollector(workspace, WRITE_MMAP, text);
  const std::vector<std::string> blocks = Blocks(ReadFile(workspace.writtenFile()));
  std::string written;
  for (const std::string& block : blocks) {
    written += block;
  }
  round.kept = IsStampedCopy(written, text);
  round.floor = InThread([&blocks] { return RunStreamFloor(blocks); });
  return round;
}

Round FactoryRound(const std::string& text) {
  const Workspace workspace;
  Round round;
  round.path = RunCollector(workspace, WRITE_FACTORY, text);
  const std::string path = workspace.writtenFile();
  const std::string written = ReadFile(path);
  round.kept = IsStampedCopy(written, text);
  round.floor = InThread([&written, &path] { return RunFactoryFloor(written, path); });
  return round;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

/// Runs `measure` once a round; the collector's CPU time is the round's time, the floor shows in the counters.
void Compare(benchmark::State& state, const char* name, Round (*measure)(const std::string& text)) {
  const std::string text = KernelLines(kLines);
  std::vector<double> ratios;
  std::vector<double> floors;
  measure(text);  // brings code, zlib's tables and the fifo's pages in
  for (auto _ : state) {
    const Round round = measure(text);
    if (!round.kept) {
      state.SkipWithError("the collector lost text");
      return;
    }
    state.SetIterationTime(round.path);
    floors.push_back(round.floor);
    ratios.push_back(round.path / round.floor);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(kLines));
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
  const double ratio = Median(ratios);
  state.counters["floor_ms"] = Median(floors) * 1e3;
  char label[64];
  snprintf(label, sizeof label, "%s / floor: %.3fx", name, ratio);
  state.SetLabel(label);
}

void BM_StreamPath(benchmark::State& state) {
  Compare(state, "stream path", StreamRound);
}
BENCHMARK(BM_StreamPath)->UseManualTime()->Iterations(kRounds)->Unit(benchmark::kMillisecond);

void BM_FactoryPath(benchmark::State& state) {
  Compare(state, "factory path", FactoryRound);
}
BENCHMARK(BM_FactoryPath)->UseManualTime()->Iterations(kRounds)->Unit(benchmark::kMillisecond);

}  // namespace
