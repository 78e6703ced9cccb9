// Whatever happened to a log file, what is read of it is part of what was logged, in sequence and each line once.
//
// The bytes choose lines, the blocks that they are compressed in, and damages: the file is cut, with or without zeros
// after the cut; zeros or junk replace bytes; junk comes between members. Lines are numbered, so that no two are equal.
// Verified lines are always a subsequence of the lines logged. So are the others, unless junk has replaced bytes of a
// member: nothing tells it from them.
//
// And whatever bytes files of any kind hold, reading them ends, and their text is the same in runs, line by line and
// counted from the end.

#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <string>
#include <vector>

#include "choices.h"
#include "quillog/pile/container.h"
#include "quillog/pile/search.h"
#include "quillog/text_view.h"

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

std::string Junk(Choices& choose, size_t most) {
  std::string junk(choose.Below(most), '\0');
  for (char& byte : junk) byte = static_cast<char>(choose.Below(256));
  return junk;
}

ByteRange Range(const std::string& bytes, const std::string& before, const std::string& after) {
  const int fd = memfd_create("log", MFD_CLOEXEC);
  const std::string all = before + bytes + after;
  if (write(fd, all.data(), all.size()) != static_cast<ssize_t>(all.size())) abort();
  return {std::make_shared<const OpenFile>(fd), before.size(), bytes.size()};
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
    for (size_t& size : sizes) size = kMostText / 4 - choose.Below(kMostText / 4);
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

bool isWhole = false;  // what Shown() read last

std::string Shown(Output& output, const Options& options) {
  const OpenFile file(memfd_create("shown", MFD_CLOEXEC));
  TextOutput text(file.fd, false);
  Report report(text);
  report.SetQuiet();
  Query query;
  std::string error;
  if (options.hasPattern) query.SetPattern(options.pattern, options.how, &error);
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  LogClock clock(output);
  TextView view({options, query, {}, output, clock, *printer, text, report});
  view.Show();
  if (options.count) text.Write(std::to_string(view.found()));
  text.Flush();
  isWhole = report.damages() == 0;
  std::string shown(static_cast<size_t>(lseek(file.fd, 0, SEEK_END)), '\0');
  if (pread(file.fd, shown.data(), shown.size(), 0) != static_cast<ssize_t>(shown.size())) abort();
  return shown;
}

/// The newest first, in parts of files, is the same turned round.
void CheckTurned(Output& output) {
  Options options;
  options.form = Form::kJson;
  const std::string json = Shown(output, options);
  options.count = true;
  if (Shown(output, options) != std::to_string(std::count(json.begin(), json.end(), '\n'))) abort();
  options.count = false;
  options.reverse = true;
  const std::string shown = Shown(output, options);
  if (isWhole && shown.size() != json.size()) abort();
  for (size_t at = 0, end; at < shown.size() && isWhole; at = end) {
    end = shown.find('\n', at) + 1;
    if (json.compare(json.size() - end, end - at, shown, at, end - at) != 0) abort();
  }
}

void CheckTruth(Choices& choose) {
  const Case log(choose);
  LineReader::Options how;
  how.growing = true;
  LineReader reader(how);
  reader.Open(FileKind::kMapped, Range(log.bytes, "", ""), "log", true, 0);
  size_t next = 0;
  for (int pass = 0; pass < 2; ++pass) {
    Line line;
    for (Item item; (item = reader.Next(&line)) != Item::kEnd;) {
      if (item != Item::kLine || (!line.verified && log.junkInMember)) continue;
      const std::string text(line.text, line.size);
      while (next < log.lines.size() && log.lines[next] != text) ++next;
      // The last line of a file need not be finished.
      if (next++ >= log.lines.size() && (line.ended || log.lines.empty())) {
        fprintf(stderr, "never logged, or twice: \"%s\"\n", text.c_str());
        abort();
      }
    }
    reader.NoteSuccessor();
  }
  if (!log.junkInMember && log.bytes.empty() != (reader.file().Summary().bytes == 0)) abort();
  Output output;
  output.isFiles = true;
  output.files.emplace_back().kind = FileKind::kMapped;
  output.files[0].held = Range(log.bytes, "", "");
  CheckTurned(output);
}

/// Lines, zeros, members of both packers, tar headers and junk, one after the other and in each other.
std::string AnyBytes(Choices& choose, int depth) {
  std::string bytes;
  for (size_t count = choose.Below(6); count > 0; --count) {
    const size_t kind = choose.Below(depth > 2 ? 4 : 7);
    std::string part = kind == 0 ? Junk(choose, 50) : kind > 3 ? AnyBytes(choose, depth + 1) : "";
    if (kind == 1) part.assign(choose.Below(1100), '\0');
    if (kind == 2) part.assign(choose.Below(70000), 'a');
    if (kind == 3) part = "11-22 21:04:05." + std::to_string(100 + choose.Below(1000)) + " <6>[    1.000001] a\n";
    if (kind == 4) {
      char header[513] = "cat.1";
      snprintf(header + 124, 12, "%zo", part.size());
      unsigned sum = 8 * ' ';
      for (const char c : header) sum += static_cast<uint8_t>(c);
      snprintf(header + 148, 8, "%o", sum);
      part = std::string(header, 512) + part + std::string((512 - part.size() % 512) % 512, '\0');
    }
    if (kind > 4) part = Member(part);
    if (kind == 6) part[9] = '\xff';
    bytes += part;
  }
  if (choose.Below(4) == 1 && !bytes.empty()) bytes[choose.Below(bytes.size())] ^= 16;
  return bytes;
}

void CheckAny(Choices& choose) {
  Output output;
  output.path = "cat";
  output.isFiles = true;
  Output inPile = output;
  for (size_t i = 1 + choose.Below(3); i > 0; --i) {
    LogFile file;
    file.kind = static_cast<FileKind>(choose.Below(3));
    file.path = "/cat." + std::to_string(i);
    const std::string bytes = AnyBytes(choose, 0);
    file.held = Range(bytes, "", "");
    output.files.push_back(file);
    file.held = Range(bytes, Junk(choose, 600), std::string(choose.Below(600), '\0'));
    inPile.files.push_back(file);
  }
  Options options;
  const std::string shown = Shown(output, options);
  if (Shown(inPile, options) != shown) abort();
  options.hasLines = true;
  options.lines = SIZE_MAX;
  if (Shown(output, options) != shown) abort();
  options.hasPattern = options.how.inverted = true;
  options.pattern = "a^b";  // in no line
  if (Shown(output, options) != shown) abort();
  options.lines = 1 + choose.Below(5);
  options.form = Form::kCsv;
  Shown(output, options);
  options.form = Form::kJson;
  std::string json = Shown(output, options);
  if (static_cast<size_t>(std::count(json.begin(), json.end(), '\n')) > options.lines) abort();
  CheckTurned(output);
}

void CheckPile(Choices& choose) {
  std::vector<PileDamage> damages;
  std::vector<Output> found;
  const ByteRange pile = Range(AnyBytes(choose, 0), Junk(choose, 600), "");
  Search(damages).Find(Containers(damages).Read(pile, "pile"), "pile", &found);
  for (Output& output : found) Shown(output, Options());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Choices choose(data, size);
  if (choose.Below(8) == 7) CheckPile(choose);
  choose.Below(2) == 1 ? CheckAny(choose) : CheckTruth(choose);
  return 0;
}
