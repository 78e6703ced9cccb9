// quillog as a person uses it: over files made here byte by byte, and over a daemon's while it writes, rotates and
// dies.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <set>

#include "archive/tar_zip.h"
#include "device.h"
#include "quillog/select/pattern.h"
#include "quillog/time/time_text.h"

using namespace Device;

namespace {

constexpr char kOutput[] = "/data/log/t/cat";

struct Result {
  std::string text;
  std::string errors;
  int status;
};

/// Runs quillog with a command line's arguments.
Result Quillog(const std::string& arguments, const std::string& behind = "") {
  const std::string command =
      std::string(QUILCAT_QUILLOG) + " " + arguments + " 2> /tmp/quillog-errors " + behind + " > /tmp/quillog-text";
  const int status = system(command.c_str());
  return {ReadFile("/tmp/quillog-text"), ReadFile("/tmp/quillog-errors"), WEXITSTATUS(status)};
}

/// `text` as a gzip member like a writer's.
std::string Member(const std::string& text) {
  WriteFile("/tmp/text", text);
  return Shell("gzip -9nc /tmp/text");
}

/// The lines that the beginning of a member encodes.
std::string LinesOf(const std::string& bytes) {
  WriteFile("/tmp/beginning", bytes);
  const std::string text = Shell("zcat < /tmp/beginning 2> /dev/null || true");
  return text.substr(0, text.rfind('\n') + 1);
}

std::string Stamp(Time time) {
  std::string iso = TimeText::Iso(time, false);
  for (const char c : {'-', '-', ':', ':'}) iso.erase(iso.find(c), 1);
  return iso.replace(8, 1, "-");
}

/// A streamed line, one second after the other.
class Clock {
 public:
  void Set(int year, int month, int day, Time clock = 0) { time = TimeText::FromDate(year, month, day) + clock; }
  std::string Line() {
    time += 1000;
    std::string line =
        TimeText::Iso(time, true).substr(5).replace(5, 1, " ") + " <6>[" + std::to_string(number++) + "] ";
    return line.append(static_cast<size_t>(number % 61 * 50 % 61), static_cast<char>('a' + number % 26)) + "\n";
  }
  std::string Lines(int count) {
    std::string text;
    while (count-- > 0) text += Line();
    return text;
  }
  Time time = 0;

 private:
  int number = 0;
};

std::string IndexedPath(int index, Time started) {
  char number[16];
  snprintf(number, sizeof number, "%03d", index % 1000);
  return std::string(kOutput) + ".I" + number + "." + Stamp(started) + ".gz";
}

/// The directory that a hard life leaves, and the text that is to be read from it.
struct Wreck {
  std::string text;
  std::string verified;
  size_t files = 21;

  Wreck() {
    Clock clock;
    clock.Set(2026, 12, 30);
    for (int i = 0; i < static_cast<int>(files); ++i) {
      if (i == 6 || i == 12) {
        clock.Set(1970, 1, 1, 9000);
      } else if (i == 8 || i == 14) {
        clock.Set(2027, 1, i);
      }
      const Time started = clock.time;
      std::vector<std::string> blocks;
      for (int block = 0; block < 3; ++block) blocks.push_back(clock.Lines(300 + i));
      if (i == 4) {  // a block need not end with a line
        blocks[1] = blocks[0].substr(1000) + blocks[1];
        blocks[0].resize(1000);
      }
      WriteFile(IndexedPath(990 + i, started), Bytes(i, blocks));
    }
    symlink("/nowhere/else", kOutput);
    WriteFile(std::string(kOutput) + ".1", Member("the copy of a link\n"));
  }

 private:
  void Expect(const std::string& lines, bool isVerified) {
    text += lines;
    verified += isVerified ? lines : "";
  }

  /// Damages file `i` and expects what stays.
  std::string Bytes(int i, const std::vector<std::string>& blocks) {
    const std::string first = Member(blocks[0]);
    std::string second = Member(blocks[1]);
    std::string third = Member(blocks[2]);
    if (i == 16 || i == 18) return std::string(i == 16 ? 65536 : 0, '\0');
    const std::string hole = first.substr(0, first.size() / 2);
    Expect(i == 10 ? LinesOf(hole) : blocks[0], i != 10);
    // Which of a wrong member's bytes are wrong is not to be known: none of its lines is shown.
    const bool isWrong = i % 2 == 1 && i != 15;
    if (isWrong) second[second.size() * static_cast<size_t>(i) / 20] ^= 4;
    if (i == 5) second.resize(second.size() / 2);
    Expect(isWrong ? "" : blocks[1], true);
    const bool torn = i == 2 || i == 20;
    if (torn) third.resize(third.size() * 2 / 3);
    Expect(torn ? LinesOf(third) : blocks[2], !torn);
    std::string bytes = first + second + third;
    if (i == 10) bytes.replace(hole.size(), 512, 512, '\0');
    if (i == 20 || i == 15) bytes.resize(65536);
    return bytes;
  }
};

/// Archives five files, the newest first.
void Pack(const std::string& archive, const std::vector<std::string>& texts) {
  std::vector<std::string> paths;
  std::vector<char*> names;
  for (const std::string& text : texts) {
    paths.push_back("/tmp/pack/cat." + std::to_string(paths.size() + 1));
    WriteFile(paths.back(), text);
  }
  std::filesystem::create_directories(std::filesystem::path(archive).parent_path());
  for (std::string& path : paths) names.push_back(path.data());
  EXPECT_TRUE(tar_zip_files(5, names.data(), archive.c_str(), 0));
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(part, at)) != std::string::npos; at += part.size()) ++count;
  return count;
}

std::string LastLines(const std::string& text, size_t count) {
  size_t at = text.size() - 1;
  while (count-- > 0) at = text.rfind('\n', at - 1);
  return text.substr(at + 1);
}

}  // namespace

TEST(Wreck, GivesEveryLineThatIsThereOnceInOrder) {
  const Wreck wreck;
  WriteFile("/data/log/notes.txt", "not a log\n");
  for (const std::string path : {"/data/log/t", kOutput, "", "/data/log", "/data/log/t/cat.I*", "/data/log/t/*"}) {
    const Result all = Quillog(path);
    EXPECT_TRUE(all.text == wreck.text) << path << "\n" << all.errors;
    EXPECT_EQ(all.status, 1) << path;
    EXPECT_EQ(Count(all.errors, "\n"), 12u) << all.errors;
  }
  EXPECT_TRUE(Quillog("--verified-only " + std::string(kOutput)).text == wreck.verified);
  const Result json = Quillog("-o json");
  EXPECT_EQ(Count(json.text, "\n"), Count(wreck.text, "\n"));
  EXPECT_EQ(Count(json.text, "\"unverified\":true"), Count(wreck.text, "\n") - Count(wreck.verified, "\n"));
  EXPECT_EQ(Quillog("--verify").status, 1);

  const std::string table = Quillog("-l").text;
  for (const char* state : {" torn at byte ", " damaged at byte ", " killed", " empty", "closed, clock jumps back"}) {
    EXPECT_NE(table.find(state), std::string::npos) << state << "\n" << table;
  }
  EXPECT_EQ(Count(table, "jumps back"), 2u) << table;

  for (const size_t count : {1, 200, 1500, 1000000}) {
    const size_t lines = std::min(count, Count(wreck.text, "\n"));
    EXPECT_TRUE(Quillog("-n " + std::to_string(count)).text == LastLines(wreck.text, lines)) << count;
  }
  EXPECT_TRUE(Quillog("-r", "| tac").text == wreck.text);
  // Years: the log begins on 2026-12-30; the new year comes with a clock that is not set.
  const std::string filters[][2] = {
      {"-S '2026-12-31 00:00:00' -U 2027-01-01", ""},
      {"-S 2000-01-01 -U '2026-12-30 00:00:03'", wreck.text.substr(0, wreck.text.find(" <6>[3]") - 18)},
      {"-S 2000-01-01 -U 2026-01-01", ""},
      {"--last 5s", LastLines(wreck.text, 6)},
      {"-g '\\[7\\] '", Lines(wreck.text)[7] + "\n"},
      {"-v -g '<6>'", ""},
      {"-p notice..7 -n 1", LastLines(wreck.text, 1)}};
  for (const auto& [arguments, text] : filters) EXPECT_EQ(Quillog(arguments).text, text) << arguments;
}

TEST(Times, AreUnderstoodAsPeopleWriteThem) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  const Time newest = TimeText::FromDate(2027, 1, 3) + 22 * TimeText::kHour;
  std::string why;
  const auto parse = [&](const std::string& text) {
    Time time = kNoTime;
    return TimeText::Parse(text, newest, &time, &why) ? time : kNoTime;
  };
  const std::string cases[][2] = {
      {"2026-11-22\n2026-11-22 0:0\n11-22\n2026-11-22T01:00:00.0+02\n2026-11-21 23:00Z", "2026-11-22T00:00:00"},
      {" 2028-02-29T04:00:05.042 ", "2028-02-29T04:00:05"},
      {"12-31 21:04\n2026-12-31 22:34+0230\n2026-12-31 20:04:00 Z", "2026-12-31T21:04:00"},
      {"21:04\n01-03 21:04:00", "2027-01-03T21:04:00"},
      {"@1825000000.5\n2027-10-31 16:26:40Z\n2027-10-31 15:56:40-00:30", "2027-10-31T17:26:40"},
      {"\nnoon\n02-30 00:00\n2027-02-29\n24:00\n21:60\n21:04:05x\n21:04Z\n11-22 1:2Z\n2026-11-22T\n@\n@-1\n1x "
       "ago\nago\n"
       "now ago\n2026-11-22 21:04+24:00\ntoday Z\n1h\n- 1\n999999999999w ago\n@999999999999\n2026-11-22 21:04:05.",
       TimeText::Iso(kNoTime, false)}};
  for (const auto& [texts, expected] : cases) {
    for (const std::string& text : Lines(texts)) EXPECT_EQ(TimeText::Iso(parse(text), false), expected) << text;
  }
  for (const std::string& text : Lines("2h ago\n-2h\n2 Hours ago\n1h60m ago\n- 1 hour 59 min 60s\n7200000ms ago")) {
    const double hours = static_cast<double>(parse("now") - parse(text)) / TimeText::kHour;
    EXPECT_NEAR(hours, 2, 1.01) << text;  // the zone may have changed
  }
  EXPECT_EQ(parse("today 21:04") - parse("yesterday 21:04"), TimeText::kDay);
  // With the zone and back, through all changes of the zone in some years.
  TimeText::ZonedIso zoned;
  for (int64_t seconds = 1000; seconds < 100000000; seconds += 1187) {
    std::string text;
    zoned.Append(text, TimeText::FromSeconds(seconds) + seconds % 1000);
    EXPECT_EQ(parse(text), TimeText::FromSeconds(seconds) + seconds % 1000) << text;
  }
}

TEST(Pattern, FindsInABlockWhatItMatchesInALine) {
  const std::string block = "usb 1-1: new\n\nUSB oom_kill\n a.b(c\n<oom>\xff\xc3 aXb 7\n\\1\n{2}\n";
  std::istringstream cases(  // options, the lines that match, expression
      "- 0 usb\n i 02 usb\n - 1 ^$\n - 0123456 x*\n - 34 a.b\n F 3 a.b\n iF 3 A.b\n - 4 \\<oom\\>\n - 03456 \\d|\\(\n"
      "- 45 [[:digit:]]$\n - 4 ^.{5}.*7\n - 24 o{2,}m\n - 2 o{,1}m_\n - 6 []{]\n - - w\\s*\\s\n v 1 [^x]\n"
      "- 4 \\boom\\b\n - 0 new$\n - 3 b.*?[\\](]c\n - 5 \\\\1\n v 123456 usb\n");
  for (std::string options, expected, text; cases >> options >> expected >> text;) {
    const auto has = [&](char option) { return options.find(option) != std::string::npos; };
    Pattern pattern;
    std::string error;
    ASSERT_TRUE(pattern.Set(text, {has('i'), has('F'), has('v')}, &error)) << text << error;
    std::string matched;
    size_t end = 0;
    for (size_t at = 0, line = 0; at < block.size(); at = end + 1, ++line) {
      end = block.find('\n', at);
      const char* const place = pattern.Find(&block[at], block.data() + block.size());
      if (pattern.Matches(&block[at], end - at)) {
        matched += std::to_string(line);
        EXPECT_TRUE(place != nullptr && place <= &block[end]) << text << " " << line;
      }
    }
    EXPECT_EQ(matched, expected == "-" ? "" : expected) << text;
  }
}

TEST(Csv, PutsValuesUnderTheirNames) {
  const std::string title = "\nTime                   soc  volt  state\n";
  WriteFile(kOutput, title +
                         "2026-11-22 21:04:05 >  62   4000  \"ok\"\n"
                         "2026-11-22 21:04:10 >       4001  a,b\n" +
                         "2026-11-22 21:04:15 >  Read Fail 4002 c\n" + "2026-11-22 21:04:16 >        not  charging\n" +
                         "2026-11-22 21:04:17 >             not charging\n" + "2026-11-22 21:04:18 >  123454000  ok\n" +
                         "2026-11-22 21:04:19 >  7" + title + "2026-11-22 21:04:20 >  1 2 3 4\n");
  const Result csv = Quillog("-o csv");
  EXPECT_EQ(csv.text,
            "time,soc,volt,state\n2026-11-22T21:04:05,62,4000,\"\"\"ok\"\"\"\n2026-11-22T21:04:10,,4001,\"a,b\"\n"
            "2026-11-22T21:04:15,Read Fail,4002,c\n2026-11-22T21:04:17,,,not charging\n");
  EXPECT_NE(csv.errors.find("4 rows"), std::string::npos) << csv.errors;
  EXPECT_EQ(Lines(Quillog("-o csv -n 1 -U '2026-11-22 21:04:11'").text).back(), "2026-11-22T21:04:10,,4001,\"a,b\"");
  WriteFile(std::string(kOutput) + ".1", "2026-11-22 21:04:00 >  6");  // cut: a line all the same, without a feed
  EXPECT_NE(Lines(Quillog("-o json").text)[0].find("unverified"), std::string::npos);
  EXPECT_EQ(Quillog("").text.compare(0, 26, "2026-11-22 21:04:00 >  6\n\n"), 0);
  EXPECT_EQ(Quillog("-g '> *6'").text, "2026-11-22 21:04:00 >  6\n2026-11-22 21:04:05 >  62   4000  \"ok\"\n");
  // A time in a line of its own.
  WriteFile("/data/log/u/cat",
            "\nTime                   soc  state\n\ncurrent time: 2026-11-22 21:4:5\r\n62   not full\n");
  EXPECT_EQ(Quillog("-o csv /data/log/u").text, "time,soc,state\n2026-11-22T21:04:05.000,62,not full\n");
}

// What a killed packing leaves, step by step.
TEST(Factory, FilesAreReadInOrderWhereverARotationStopped) {
  const auto pack = [](const std::string& archive, const std::string& prefix) {
    std::vector<std::string> texts;
    for (int number = 1; number <= 5; ++number) texts.push_back(prefix + std::to_string(number) + "\n");
    Pack(archive, texts);
  };
  const std::string output = kOutput;
  pack(output + "-1.tar.gz", "a");
  pack(output + "-0.tar.gz", "b");
  WriteFile(output, "live\n");
  const std::string archived = "a5\na4\na3\na2\na1\nb5\nb4\nb3\nb2\nb1\n";
  const auto text = [&](const char* what) {
    const Result result = Quillog(kOutput);
    EXPECT_EQ(result.status, 0) << what << "\n" << result.errors;
    return result.text;
  };
  EXPECT_EQ(text("plain"), archived + "live\n");
  for (int number = 1; number <= 5; ++number) {
    const std::string place = number > 2 ? output + "_tmp/cat." : output + ".";
    WriteFile(place + std::to_string(number), "r" + std::to_string(number) + "\n");
  }
  WriteFile(output + "_tmp/unfinished.tar.gz", "half");
  EXPECT_EQ(text("moved in part"), archived + "r5\nr4\nr3\nr2\nr1\nlive\n");
  WriteFile(output + ".4", "newer\n");
  EXPECT_EQ(text("not to be packed"), archived + "r5\nr4\nr3\nnewer\nr2\nr1\nlive\n");
  std::filesystem::remove(output + ".4");
  pack(output + "_tmp/packed.tar.gz", "p");
  for (int number = 1; number <= 2; ++number) std::filesystem::remove(output + "." + std::to_string(number));
  EXPECT_EQ(text("packed"), archived + "p5\np4\np3\np2\np1\nlive\n");

  // An archive that was cut, and zeros in a file that the disk had not.
  const std::string bytes = ReadFile(output + "-0.tar.gz");
  WriteFile(output + "-0.tar.gz", bytes.substr(0, bytes.size() - 20));
  WriteFile(output, "live 1\nlive" + std::string(600, '\0') + "2\n11-22 21:04:05.042 live 3\n");
  const Result damaged = Quillog(kOutput);
  EXPECT_EQ(damaged.status, 1);
  EXPECT_EQ(Count(damaged.errors, "\n"), 2u) << damaged.errors;
  EXPECT_NE(damaged.text.find("p1\nlive 1\n11-22 21:04:05.042 live 3\n"), std::string::npos) << damaged.text;
  EXPECT_NE(damaged.text.find("a1\n"), std::string::npos);
}

TEST(Lnav, KnowsBothKindsOfLines) {
  if (system("command -v lnav > /dev/null") != 0) GTEST_SKIP() << "lnav is not installed";
  WriteFile("/tmp/formats/quilcat/quilcat.json", ReadFile(QUILCAT_LNAV_FORMAT));
  WriteFile("/tmp/kernel", "11-22 20:17:29.042 <6>[  101.000421] usb 1-1: new\n11-22 20:17:29.043 <12>[  102.5] hot\n");
  WriteFile("/tmp/rows", "2026-11-22 21:04:05 >  62   4000\n2026-11-22 21:04:10 >  63   4001\n");
  const auto query = [](const std::string& columns, const std::string& table, const std::string& file) {
    const std::string command = "HOME=/tmp lnav -n -I /tmp -c ';select " + columns + " from " + table +
                                "' -c ':write-csv-to /tmp/answer' " + file + " > /dev/null";
    EXPECT_EQ(system(command.c_str()), 0);
    return ReadFile("/tmp/answer");
  };
  EXPECT_EQ(query("log_level,uptime,log_body", "quilcat_kernel", "/tmp/kernel"),
            "log_level,uptime,log_body\ninfo,101.000421,usb 1-1: new\nwarning,102.5,hot\n");
  EXPECT_EQ(query("log_time,log_body", "quilcat_poll", "/tmp/rows"),
            "log_time,log_body\n2026-11-22 21:04:05.000,62   4000\n2026-11-22 21:04:10.000,63   4001\n");
}

// What is missing between files is said, and a wrap of the index is no gap.
TEST(Missing, FilesAreNamed) {
  const std::string cases[][2] = {
      {".I998.20261122-210405.gz .I999.20261122-210406.gz .I000.20261122-210407.gz", ""},
      {".I997.20261122-210405.gz .I000.20261122-210408.gz",
       "2 files missing: I998 and I999, between 2026-11-22T21:04:01 and 2026-11-22T21:04:02"},
      {".4 .1 ", "2 files missing: .3 and .2, between"},
      {".3 .1 ", "1 file missing: .2, between"},  // no damage: a rotation that was broken off leaves this too
      {".2 .1 ", ""},
  };
  for (const auto& [files, says] : cases) {
    std::filesystem::remove_all("/data/log/t");
    std::istringstream names(files);
    int second = 1;
    for (std::string name; names >> name; ++second) {
      const std::string line = "11-22 21:04:0" + std::to_string(second) + ".000 a\n";
      WriteFile(kOutput + name, name.size() > 3 ? Member(line) : line);
    }
    for (const char* arguments : {"", "--verify"}) {
      const Result result = Quillog(arguments);
      EXPECT_EQ(result.status, says[0] == '2' ? 1 : 0) << files << result.errors;
      EXPECT_NE(result.errors.find(says), std::string::npos) << files << result.errors;
      EXPECT_EQ(result.errors.empty(), says.empty()) << result.errors;
    }
  }
}

// A bit that flips in an archive, anywhere: what stands before it is read, and not what the decoder makes up after it.
// And what somebody packed again is read.
TEST(Rescue, TellsWhatWasLogged) {
  Clock clock;
  clock.Set(2026, 11, 22);
  std::string logged;
  std::vector<std::string> texts(5);
  for (size_t i = 5; i-- > 0; logged += texts[i]) texts[i] = clock.Lines(2000);
  const std::string archive = std::string(kOutput) + "-0.tar.gz";
  Pack(archive, texts);
  const std::string bytes = ReadFile(archive);
  const std::vector<std::string> lines = Lines(logged);
  const std::set<std::string> known(lines.begin(), lines.end());
  for (size_t at = 1; at < 20; ++at) {
    std::string flipped = bytes;
    flipped[bytes.size() * at / 20] ^= static_cast<char>(1 << at % 8);
    WriteFile(archive, flipped);
    const Result result = Quillog("");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(Quillog("--verified-only").text, "");
    const std::vector<std::string> read = Lines(result.text);
    EXPECT_GT(read.size(), lines.size() * at / 20 * 3 / 4) << at;
    const auto isKnown = [&](const std::string& line) { return known.count(line) > 0; };
    const auto wrong = read.size() - static_cast<size_t>(std::count_if(read.begin(), read.end(), isKnown));
    EXPECT_LE(wrong * 20, read.size()) << at;  // letters and digits in a line's own text: no check tells
  }
  WriteFile(archive, bytes + Member("more\n"));
  EXPECT_EQ(Quillog("").text, logged);
  EXPECT_NE(Quillog("").errors.find("bytes after the archive"), std::string::npos);
  std::filesystem::remove(archive);
  const std::string pack = "cd /tmp/pack; for n in 5 4 3 2 1; do gzip -c cat.$n; done > " + std::string(kOutput) +
                           ".I000.20261122-000000.gz; cat cat.5 | gzip -9 > /tmp/odd.gz";
  ASSERT_EQ(system(pack.c_str()), 0);
  EXPECT_TRUE(Quillog("").text == logged);
  EXPECT_EQ(Quillog("/tmp/odd.gz").text, texts[4]);
}

// Whatever is named gets an answer, soon.
TEST(OddInput, IsAnswered) {
  std::filesystem::create_directories("/data/log/t");
  mkfifo("/data/log/t/fifo", 0600);
  WriteFile("/data/log/t/sparse", "");
  ASSERT_EQ(truncate("/data/log/t/sparse", 10000000000), 0);
  WriteFile("/data/log/bomb/cat.I000.20261122-210405.gz", Member("11-22 21:04:05.042 a\n"));
  // Many letters in one member, and what is sound around it.
  const std::string compress =
      "cd /data/log/bomb && mv cat* s && head -c 400000000 /dev/zero | tr '\\0' a | gzip -9n > b && "
      "{ cat s; head -c 10 s; tail -c +11 b; cat s; } > cat.I000.20261122-210405.gz && rm b s";
  ASSERT_EQ(system(compress.c_str()), 0);
  for (int i = 0; i < (Sanitized() ? 10000 : 100000); ++i) {
    char name[64];
    snprintf(name, sizeof name, "/data/log/many/cat.I%03d.2026%04d-000000.gz", i % 1000, i / 1000);
    if (i == 0) WriteFile(name, "");
    close(open(name, O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
  }
  const struct {
    const char* arguments;
    int status;
    const char* says;
  } cases[] = {
      {"/data/log/t/fifo", 2, "not a regular file"},
      {"/dev/zero", 2, "not a regular file"},
      {"/data/log/t/sparse", 1, "10000000000 zero bytes"},
      {"/data/log/none", 2, "no log there"},
      {"--verify /data/log/bomb", 1, "reading goes on at"},
      {"-n 3 /data/log/many", 0, ""},
      {"-l /data/log/many", 0, ""},
      {"-S 24:00 /data/log/bomb", 2, "no such time of day"},
      {"-g '(a*)\\1b' /data/log/bomb", 2, "refers back"},
      {"-g $(head -c 100000 /dev/zero | tr '\\0' '(') /data/log/bomb", 2, "missing )"},
      {"--utnil 21:04", 2, "did you mean --until?"},
      {"-p loud", 2, "no level"},
      {"-n x", 2, "no number"},
      {"-i /data/log/bomb", 2, "belong to"},
      {"-l -n 3 /data/log/bomb", 2, "whole files"},
      {"--color=red", 2, "auto, always"},
      {"", 1, "name one, as in"},
      {"-f", 2, "several outputs"},
  };
  for (const auto& test : cases) {
    const double start = CpuSecondsOfPrograms();
    const Result result = Quillog(test.arguments);
    EXPECT_EQ(result.status, test.status) << test.arguments << "\n" << result.errors.substr(0, 500);
    EXPECT_NE(result.errors.find(test.says), std::string::npos) << test.arguments << "\n"
                                                                << result.errors.substr(0, 500);
    EXPECT_LT(CpuSecondsOfPrograms() - start, Sanitized() ? 60 : 10) << test.arguments;
  }
  const Result bomb = Quillog("/data/log/bomb");
  EXPECT_EQ(Count(bomb.text, "11-22 21:04:05.042 a\n"), 2u);
  EXPECT_EQ(bomb.text.size(), 42u);
  // A reader that goes away is no failure.
  for (const char* arguments : {"-l /data/log/many", "-f /data/log/bomb"}) {
    EXPECT_EQ(Quillog(arguments, "| head -n 1").errors.find("write"), std::string::npos) << arguments;
  }
}

TEST(Terminal, ShowsControlCharacters) {
  WriteFile(kOutput, "11-22 21:04:05.042 <3>a\033[2Jb\r\xc2\x9b\x9b\n");
  const std::string text = "11-22 21:04:05.042 <3>a^[[2Jb^M<U+009B><9B>";
  const std::string cases[][2] = {{"PAGER=cat", "\033[31m" + text + "\033[0m\r\n"},
                                  {"NO_COLOR=1 QUILLOG_PAGER='no such pager'", text + "\r\n"},
                                  {"NO_COLOR=1 PAGER='sed s/^/paged:/'", "paged:" + text + "\r\n"}};
  for (const auto& [variables, expected] : cases) {
    EXPECT_EQ(Shell("TERM=xterm " + variables + " script -qc " + QUILCAT_QUILLOG + " /dev/null"), expected);
  }
}

// Each command on the page for people prints what the page shows.
TEST(Page, ShowsWhatIsPrinted) {
  const std::string log = "/tmp/page/pulled/android_logs/kmsgcat-log.I00";
  WriteFile(log + "6.20261122-205900.gz", Member("11-22 20:59:01.010 <6>[ 3601.000000] usb 1-1: new device\n"
                                                 "11-22 21:03:59.500 <4>[ 3899.490000] lowmemorykiller: kill maps\n"
                                                 "11-22 21:04:02.042 <3>[ 3902.032000] thermal: battery at 61 C\n"));
  WriteFile(log + "7.19700101-000003.gz", Member("01-01 00:00:03.100 <5>[    1.100000] Booting Linux\n"
                                                 "01-01 00:00:41.200 <3>[   39.200000] i2c 3: no answer\n"
                                                 "11-22 21:06:10.000 <6>[   60.000000] rtc: clock set\n"));
  WriteFile(log + "9.20261122-210700.gz",
            Member("11-22 21:07:55.000 <6>[  165.000000] Out of memory: kill maps\n"
                   "11-22 21:08:00.000 <0>[  170.000000] Kernel panic - not syncing: out of memory\n"
                   "11-22 21:09:05.000 <5>[    2.000000] Booting Linux\n"
                   "11-22 21:20:00.000 <6>[  657.000000] charger: plugged in\n"));
  std::istringstream blocks(ReadFile(QUILCAT_READING));
  int commands = 0;
  for (std::string block; std::getline(blocks, block, '`');) {
    if (block.compare(0, 10, "console\n$ ") != 0) continue;
    const size_t end = block.find('\n', 10);
    const std::string variables = "cd /tmp/page; TZ=UTC PATH=$PATH:$(dirname " QUILCAT_QUILLOG ") ";
    EXPECT_EQ(Shell(variables + "sh -c '" + block.substr(10, end - 10) + "' 2>&1 || true"), block.substr(end + 1));
    ++commands;
  }
  EXPECT_GE(commands, 10);
}

// A pile gives the text of the directory that it was made of, and a hostile one a message.
TEST(Pile, IsReadAsItComes) {
  const std::string line = "11-22 21:04:05.042 <6>[ 1.0] a\n";
  for (const int index : {0, 1}) WriteFile(IndexedPath(index, TimeText::FromDate(2026, 11, 22)), Member(line));
  symlink("/data/log/t/cat.I001.20261122-000000.gz", kOutput);
  WriteFile("/data/log/u/rows.1", line + line);
  WriteFile("/data/log/u/rows", line);
  WriteFile("/data/log/v/live", line);
  WriteFile("/data/log/notes", "other files\n");
  WriteFile("/tmp/secret/key.1", "secret\n");
  WriteFile("/tmp/secret/rows.5", "secret\n");
  symlink("/tmp/secret", "/data/log/keys");
  symlink("/tmp/secret", "/data/log/u/rows_tmp");
  mkfifo("/tmp/fifo", 0600);
  const auto verify = [](const std::string& arguments) {
    Result result = Quillog("--verify " + arguments);
    std::string text;
    for (const std::string& row : Lines(result.text)) {
      const size_t slash = row.rfind('/', row.find(':'));
      text += row.substr(row.rfind('/', slash - 1) + 1) + '\n';  // of the path its last two names
    }
    result.text = text;
    return result;
  };
  const std::string text =
      "t/cat: 2 files, 62 bytes of text, no damage\nu/rows: 2 files, 93 bytes of text, no damage\n"
      "v/live: 1 file, 31 bytes of text, no damage\n";
  EXPECT_EQ(verify("/data").text, text);
  const std::string here = "cd /data/log && bsdtar -c";
  const std::string inside = " -f /tmp/in . && cd /tmp && bsdtar -c";
  for (const std::string& make : {here + " .", here + "z .", here + " --format zip .",
                                  here + "z" + inside + " --format zip in", here + " --format zip" + inside + "z in"}) {
    ASSERT_EQ(system(("{ " + make + "; } > /tmp/pile").c_str()), 0);
    EXPECT_EQ(verify("/tmp/pile").text, text) << make;
    EXPECT_EQ(verify("- < /tmp/pile").text, text) << make;
    system("cat /tmp/pile > /tmp/fifo &");
    EXPECT_EQ(verify("- < /tmp/fifo").text, text) << make;
    EXPECT_EQ(Quillog("/tmp/pile" + std::string(make.find("in") == std::string::npos ? "" : "/in") + "/u").text,
              line + line + line)
        << make;
  }
  const std::string hostile[][2] = {
      {here + "z . | head -c 400", "cut short"},
      {here + " --format zip --options zip:compression=store . | sed 's/<6>/<7>/'", "bad CRC"},
      {"cd /tmp && truncate -s 100G cat.1 && echo >> cat.1 && bsdtar -c cat.1", "longer than 16 GiB"},
      {"cd /tmp && truncate -s 2G cat.2 && head -c 64M /dev/zero | gzip > zeros && bsdtar -c --no-read-sparse cat.2 | "
       "head -c 512 | gzip && for i in $(seq 20); do cat zeros; done",
       "more than 500 times"},
      {here + "z" + inside + "f pack in && mv pack pack.tar && bsdtar -cf pack pack.tar && bsdtar -c pack",
       "not looked into"},
  };
  for (const auto& [make, says] : hostile) {
    system(("{ " + make + "; } > /tmp/pile").c_str());
    const Result result = verify("/tmp/pile");
    EXPECT_NE(result.status, 0);
    EXPECT_NE(result.errors.find(says), std::string::npos) << make << "\n" << result.errors;
  }
}

// Merged, lines come by their time; a later pull gives them the names of the earlier one, though files have grown, been
// rotated and packed.
TEST(Merge, KeepsTheNamesOfLines) {
  Clock clock;
  clock.Set(2026, 11, 22);
  const std::string mapped = IndexedPath(1, clock.time);
  std::string text = clock.Lines(3);
  std::string members = Member(text);
  for (const char* name : {"rows.5", "rows.4", "rows.3", "rows.2", "rows.1", "rows"}) {
    const std::string parts[] = {clock.Lines(1500), clock.Lines(2)};
    WriteFile(std::string("/data/log/u/") + name, parts[0]);
    members += Member(parts[1]);
    text += parts[0] + parts[1];
  }
  WriteFile(mapped, members);
  EXPECT_TRUE(Quillog("-m", "| sed 's/^[^ ]*: //'").text == text);
  Shell("mkdir /tmp/1 /tmp/2 && cp -r /data/log /tmp/1/phone");
  const std::string names = "| sed 's/.*\"device\"//' | sort -u";
  WriteFile("/tmp/names", Quillog("-m -o json /tmp/1/phone", names).text);
  EXPECT_EQ(Count(ReadFile("/tmp/names"), "\n"), Count(text, "\n"));
  Shell("cd /data/log/u && bsdtar -czf rows-0.tar.gz rows.? && rm rows.? && mv rows rows.1 && echo a > rows");
  WriteFile(mapped, members + Member(clock.Lines(2)) + std::string(99, '\0'));
  WriteFile(IndexedPath(2, clock.time), Member(text));
  Shell("cd /data/log && bsdtar -czf /tmp/2/phone.tar.gz .");
  EXPECT_EQ(Quillog("-m -o json /tmp/2/phone.tar.gz", names + " | comm -23 /tmp/names - | head -n 3").text, "");
  EXPECT_EQ(Count(Quillog("-l").text, "two writers?"), 1u);
}

// The daemon writes, rotates, is killed and starts anew, while one quillog follows and others read.
TEST(LiveDaemon, IsReadWhileItWritesRotatesAndDies) {
  for (const char* mode : {"mmap", "factory"}) {
    std::filesystem::remove_all("/data/log/t");
    ConfigureStream(mode, 64, 500);
    WriteFile(std::string(kOutput) + (mode[0] == 'm' ? ".I000.20260101-000000.gz" : ".1"), "");
    Daemon follower("-n all -f " + std::string(kOutput) + " > /tmp/followed 2> /tmp/follow-errors", "",
                    QUILCAT_QUILLOG);
    int line = 0;
    int last = 0;
    for (int round = 0; round < Rounds(3); ++round) {
      Daemon daemon("-b test");
      ASSERT_TRUE(daemon.WaitUntilRunning()) << daemon.Errors();
      KernelLog kernel;
      for (const int end = line + 6000; line < end;) {
        if (!kernel.Write(KernelLog::Line(line))) continue;
        last = line++;
        if (line % 1500 == 0) {
          const Result read = Quillog(kOutput);
          const std::vector<int> numbers = KernelLog::Numbers(read.text);
          EXPECT_EQ(read.status, 0) << read.errors;
          EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
          EXPECT_EQ(std::count(numbers.begin(), numbers.end(), -1), 0);
        }
      }
      EXPECT_TRUE(WaitFor([&] { return kernel.IsDrained(); }));
      if (round % 2 == 0) {
        // The directory is looked at: what waits in memory comes to the file.
        EXPECT_TRUE(
            WaitFor([&] { return KernelLog::Numbers(Quillog("-n 1 " + std::string(kOutput)).text).back() == last; }));
      }
      daemon.Signal(SIGKILL);
    }
    const Result all = Quillog("--verified-only " + std::string(kOutput));
    const std::vector<int> numbers = KernelLog::Numbers(all.text);
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    EXPECT_EQ(std::adjacent_find(numbers.begin(), numbers.end()), numbers.end());
    std::string decoded;
    for (const std::string& path : IndexedPaths("/data/log/t")) decoded += Decode(path).text;
    EXPECT_TRUE(all.text == (mode[0] == 'm' ? decoded : FactoryText(kOutput)));
    EXPECT_TRUE(WaitFor([&] { return ReadFile("/tmp/followed").size() >= all.text.size(); })) << all.text.size();
    EXPECT_TRUE(ReadFile("/tmp/followed") == all.text) << ReadFile("/tmp/followed").size() << " " << all.text.size();
    for (const std::string& error : Lines(ReadFile("/tmp/follow-errors"))) {
      EXPECT_NE(error.find("its writer died"), std::string::npos) << error;
    }
  }
}

TEST(Follow, GoesOnBehindADeletedFile) {
  ConfigureStream("mmap", 4096, 5);
  Daemon daemon("-b test");
  ASSERT_TRUE(daemon.WaitUntilRunning());
  KernelLog kernel;
  Daemon follower("-n 0 -f > /tmp/followed 2> /tmp/follow-errors", "", QUILCAT_QUILLOG);
  const auto comes = [&](int line) {
    kernel.Write(KernelLog::Line(line));
    return WaitFor(
        [&] { return ReadFile("/tmp/followed").find("<6>[" + std::to_string(line) + "]") != std::string::npos; }, 3);
  };
  ASSERT_TRUE(WaitFor([] { return !IndexedPaths("/data/log/t").empty(); }));
  sleep(1);
  EXPECT_TRUE(comes(1));
  for (const std::string& path : IndexedPaths("/data/log/t")) unlink(path.c_str());
  EXPECT_TRUE(comes(2));
  EXPECT_TRUE(comes(3));
  EXPECT_EQ(KernelLog::Numbers(ReadFile("/tmp/followed")), (std::vector<int>{1, 2, 3}));
  WriteFile(std::string(kOutput) + ".I005.20990101-000000.gz", "");
  EXPECT_TRUE(WaitFor([] { return ReadFile("/tmp/follow-errors").find("rotated away") != std::string::npos; }, 3));
  // A second writer's file is newer; the first writer lives all the same.
  WriteFile(std::string(kOutput) + ".I500.20990101-000000.gz", "");
  EXPECT_NE(Quillog("-l").text.find(" open\n"), std::string::npos) << Quillog("-l").text;
}
