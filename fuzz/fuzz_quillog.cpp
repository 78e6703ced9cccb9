// Whatever happened to a log file, what is read of it is part of what was logged, in sequence and each line once.
//
// The bytes choose lines, the blocks that they are compressed in, and damages: the file is cut, with or without zeros
// after the cut; zeros or junk replace bytes; junk comes between members. Lines are numbered, so that no two are equal.
// Verified lines are always a subsequence of the lines logged. So are the others, unless junk has replaced bytes of a
// member: nothing tells it from them.

#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "choices.h"
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

/// A log and what has become of it. Damages and blocks are chosen before the lines, which use up the rest of the input.
class Case {
 public:
  explicit Case(Choices& choose) {
    damages.resize(choose.Below(5));
    for (Damage& damage : damages)
      damage = {choose.Below(4), choose.Below(65536), choose.Below(3000), Junk(choose, 100)};
    const std::string between = choose.Below(8) == 1 ? Junk(choose, 40) : "";
    size_t sizes[4];
    for (size_t& size : sizes) size = kMostText / 2 - choose.Below(kMostText / 2);
    const std::string text = Lines(choose);
    for (size_t at = 0, i = 0; at < text.size(); at += sizes[i++ % 4]) {
      bytes += Member(text.substr(at, sizes[i % 4])) + between;
    }
    for (const Damage& damage : damages) Apply(damage);
  }

  std::vector<std::string> lines;
  std::string bytes;
  bool junkInMember = false;

 private:
  struct Damage {
    size_t kind, place, size;
    std::string junk;
  };

  static std::string Junk(Choices& choose, size_t most) {
    std::string junk(choose.Below(most), '\0');
    for (char& byte : junk) byte = static_cast<char>(choose.Below(256));
    return junk;
  }

  std::string Lines(Choices& choose) {
    std::string text;
    const bool timed = choose.Below(2) == 1;
    for (size_t count = choose.Below(600); count > 0 && text.size() < kMostText; --count) {
      char head[64];
      snprintf(head, sizeof head, "11-22 20:17:%02zu.%03zu <6>[%zu] ", count % 60, count, lines.size());
      std::string line = (timed ? head : std::to_string(lines.size())) + Junk(choose, 20);
      line.append(choose.Below(256), static_cast<char>('a' + count % 26));
      std::replace_if(
          line.begin(), line.end(), [](char c) { return c == '\n' || c == '\0'; }, '.');
      lines.push_back(line);
      text += line + '\n';
    }
    return text;
  }

  void Apply(const Damage& damage) {
    const size_t at = bytes.size() * damage.place / 65535;
    const size_t size = std::min(bytes.size() - at, kHole + damage.size);
    if (damage.kind <= 1) bytes.resize(at);
    if (damage.kind == 1) bytes.resize((at + 65535) / 65536 * 65536);
    if (damage.kind == 2) bytes.replace(at, size, size >= kHole ? size : 0, '\0');
    if (damage.kind <= 2) return;
    junkInMember = true;
    bytes.replace(at, std::min(bytes.size() - at, damage.junk.size()), damage.junk);
  }

  std::vector<Damage> damages;
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
  Choices choose(data, size);
  const Case log(choose);
  const int fd = memfd_create("log", MFD_CLOEXEC);
  if (fd < 0 || write(fd, log.bytes.data(), log.bytes.size()) != static_cast<ssize_t>(log.bytes.size())) abort();
  Model model(log);
  LineAssembler assembler(model, [](uint64_t, const std::string&) {});
  MemberReader reader({std::make_shared<const OpenFile>(fd), 0, ByteRange::kToTheEnd}, assembler, false);
  reader.Read(true);
  reader.Read(false);
  assembler.Finish(true);
  if (!log.junkInMember && log.bytes.empty() != (reader.Summary().bytes == 0)) abort();
  return 0;
}
