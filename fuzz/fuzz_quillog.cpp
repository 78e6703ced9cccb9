// What is read of a damaged log file is part of what was logged, in order and once, whatever happened to the file.
//
// The bytes choose lines, the blocks that they are compressed in, and damages: the file is cut, with or without zeros
// behind; zeros take the place of what was there; junk stands between members, or in the place of bytes. Lines are
// numbered, so that each is another. Verified lines are always a subsequence of the lines logged. Others are as well,
// unless junk stands where a member's bytes should: nothing tells it from them.

#include <fuzzer/FuzzedDataProvider.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "quillog/line_assembler.h"
#include "quillog/member_reader.h"

namespace {

constexpr size_t kMostText = 40000;
constexpr size_t kHole = 16;  // fewer zeros may be a member's own

std::string Member(const std::string& text) {
  std::string member(compressBound(text.size()) + 32, '\0');
  z_stream stream = {};
  deflateInit2(&stream, 9, Z_DEFLATED, 31, 8, Z_DEFAULT_STRATEGY);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(member.data());
  stream.avail_out = static_cast<uInt>(member.size());
  deflate(&stream, Z_FINISH);
  member.resize(stream.total_out);
  deflateEnd(&stream);
  return member;
}

/// A log and what has become of it.
struct Case {
  std::vector<std::string> lines;
  std::string bytes;
  bool junkInMember = false;

  explicit Case(FuzzedDataProvider& choose) {
    std::string text;
    const bool timed = choose.ConsumeBool();
    for (int count = choose.ConsumeIntegralInRange(0, 600); count > 0 && text.size() < kMostText; --count) {
      char head[64];
      snprintf(head, sizeof head, "11-22 20:17:%02d.%03d <6>[%zu] ", count % 60, count % 1000, lines.size());
      std::string line = (timed ? head : std::to_string(lines.size())) + choose.ConsumeRandomLengthString(20);
      line.append(choose.ConsumeIntegral<uint8_t>(), static_cast<char>('a' + count % 26));
      std::replace_if(
          line.begin(), line.end(), [](char c) { return c == '\n' || c == '\0'; }, '.');
      lines.push_back(line);
      text += line + '\n';
    }
    for (size_t at = 0; at < text.size();) {
      const size_t size = kMostText / 2 - choose.ConsumeIntegralInRange<size_t>(0, kMostText / 2 - 1);
      bytes += Member(text.substr(at, size));
      at += size;
      if (choose.ConsumeIntegral<uint8_t>() < 8) bytes += choose.ConsumeRandomLengthString(40);
    }
    for (int count = choose.ConsumeIntegralInRange(0, 4); count > 0; --count) Damage(choose);
  }

 private:
  void Damage(FuzzedDataProvider& choose) {
    const size_t at = choose.ConsumeIntegralInRange<size_t>(0, bytes.size());
    const size_t size = std::min(bytes.size() - at, choose.ConsumeIntegralInRange<size_t>(kHole, 3000));
    const int kind = choose.ConsumeIntegralInRange(0, 3);
    if (kind <= 1) bytes.resize(at);
    if (kind == 1) bytes.resize((at + 65535) / 65536 * 65536);
    if (kind == 2) bytes.replace(at, size, size >= kHole ? size : 0, '\0');
    if (kind <= 2) return;
    junkInMember = true;
    const std::string junk = choose.ConsumeRandomLengthString(100);
    bytes.replace(at, std::min(bytes.size() - at, junk.size()), junk);
  }
};

/// Checks lines as they come against those logged.
class Model : public LineSink {
 public:
  explicit Model(const Case& logged) : all(logged) {}

  void OnLines(const char* text, size_t size, bool verified) override {
    if (!verified && all.junkInMember) return;
    for (const char* end = text + size; text < end;) {
      const char* feed = std::find(text, end, '\n');
      const std::string line(text, feed);
      while (next < all.lines.size() && all.lines[next] != line) ++next;
      // The last line of a file need not be finished.
      const bool isBeginning = feed == end && !all.lines.empty();
      if (next == all.lines.size() && !isBeginning) {
        fprintf(stderr, "never logged, or twice: \"%s\"\n", line.c_str());
        abort();
      }
      next += next < all.lines.size() ? 1 : 0;
      text = feed + 1;
    }
  }

 private:
  const Case& all;
  size_t next = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider choose(data, size);
  const Case log(choose);
  const int fd = memfd_create("log", MFD_CLOEXEC);
  if (fd < 0 || write(fd, log.bytes.data(), log.bytes.size()) != static_cast<ssize_t>(log.bytes.size())) abort();
  Model model(log);
  LineAssembler assembler(model, [](uint64_t, const std::string&) {});
  MemberReader reader(fd, assembler, false);
  reader.Read(true);
  reader.Read(false);
  assembler.Finish(true);
  if (!log.junkInMember && log.bytes.empty() != (reader.Summary().bytes == 0)) abort();
  return 0;
}
