// What quilcheck says, compared with what the daemon's reader and the schema make of the same documents.

#include <fnmatch.h>
#include <gtest/gtest.h>
#include <libxml/xmlschemas.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "../fuzz/config_case.h"
#include "device.h"
#include "logfile/indexed_files.h"
#include "quilcheck/grammar.h"
#include "quilcheck/report.h"
#include "quilcheck/rules.h"

using namespace Quilcheck;
using Device::WriteFile;

namespace {

constexpr const char* kConfig = ConfigCase::kPath;

/// A file that CMake has put beside this program.
std::string Beside(const char* name) {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path() / name;
}

/// `<name=text>` stands for `<name value='text'/>`.
std::string Expand(std::string xml) {
  for (size_t at = xml.find('='); at != std::string::npos; at = xml.find('=', at + 1)) {
    if (xml[at + 1] != '\'') xml.insert(xml.find('>', at), "'/").replace(at, 1, " value='");
  }
  return xml;
}

std::unique_ptr<Report> CheckText(const std::string& xml, const std::string& service, const std::string& root = "") {
  WriteFile(kConfig, xml);
  auto report = std::make_unique<Report>();
  std::string reason;
  EXPECT_TRUE(Check({kConfig, service, {}, root, "", 0, true}, report.get(), &reason)) << reason;
  return report;
}

/// "3 error: ..." for each finding, a line each.
std::string Lines(const Report& report) {
  std::string lines;
  for (const Finding& finding : report.findings.All()) {
    lines += std::to_string(finding.line) + ' ' + finding.id + ": " + finding.text + '\n';
  }
  return lines;
}

/// Expects these findings in this order; in an expected text "*" stands for any.
void ExpectFindings(const Report& report, const std::vector<std::string>& expected, const std::string& document) {
  const std::string lines = Lines(report);
  std::string pattern;
  for (const std::string& line : expected) pattern += line + '\n';
  // With as many line feeds in both no "*" holds one.
  EXPECT_TRUE(Device::Lines(lines).size() == expected.size() && fnmatch(pattern.c_str(), lines.c_str(), 0) == 0)
      << document << "\n"
      << pattern << '\n'
      << lines;
}

/// Service "s" with good settings in line 2 and the given children from line 3 on.
std::string Service(const std::string& children) {
  return Expand("<quilcatConfigs>\n<quilcat name='s'><logRotateSizeKBytes=1><maxCompressdFiles=5>\n" + children +
                "</quilcat></quilcatConfigs>");
}
const std::string kOut = "<outputFilePath=/data/log/s/s>";
const std::string kNode = "<inputNodeSet><dataPath=/dev/n></inputNodeSet>";
const std::string kStream = "<quilcatGroup><logStyle=monitor_node>" + kOut + kNode + "</quilcatGroup>";

/// Short forms for configurations, each with its text.
const std::string kGroup = "<quilcatGroup>", kPolls = "<logStyle value='poll_node' interval='5' failureRetry='0'/>";
const std::vector<std::string> kShort = {"M(",  kGroup + "<logStyle=monitor_node>" + kOut,
                                         "(",   kGroup + kPolls + kOut,
                                         ")",   "</quilcatGroup>",
                                         "[",   "<inputNodeSet>",
                                         "]",   "</inputNodeSet>",
                                         "{",   kGroup + kOut + "<logStyle ",
                                         "}",   "/>" + kNode + "</quilcatGroup>",
                                         "@",   kGroup + kPolls + kNode + "<outputFilePath=",
                                         "|",   "></quilcatGroup>",
                                         "\\n", "\n",
                                         "$S",  kStream,
                                         "$N",  kNode,
                                         "$O",  kOut,
                                         "$X",  std::string(256, 'x'),
                                         "$W",  std::string(232, 'x'),
                                         "$A",  "'><logRotateSizeKBytes=1><maxCompressdFiles=5>"};
std::string Meant(std::string text) {
  for (auto form = kShort.begin(); form != kShort.end(); form += 2) {
    for (size_t at = 0; (at = text.find(*form, at)) != std::string::npos; at += form[1].size()) {
      text.replace(at, form->size(), form[1]);
    }
  }
  return text;
}

/// Children of a service in line 3, "##", and for each finding its line unless that is 3, its rule, and a part of what
/// it says; short forms are below.
constexpr char kMistakes[] = R"(
$S ##
([<dataPath=DateTime><title=T><width=23>]$N) ##
Names and places.
$S\n<maxCompressedFiles=3>\n<outputFilePath=/data/x> ## 4 element-unknown:mean maxCompressdFiles? & 5 element-unknown:belongs in quilcatGroup
$S<interval=5><quilcat name='t'/> ## element-unknown:is an attribute of logStyle & element-unknown:belongs in the root element
$S<writeMode/><cpuSets>little</cpuSets> ## value-missing:takes factory & value-missing:cpuSets without & text-ignored:text in <cpuSets>
$S\n<cpuSets value='little'>x &lt;\n</cpuSets>\n<!--\n-->\nx ## 4 text-ignored: & 8 text-ignored:
{value='monitor_node' intervall='5'} ## attribute-unknown:did you mean interval?
$S<cpuSets=little>\n<cpuSets=little> ## 4 again:cpuSets again (first in line 3): the last one counts
([<dataPath=/d><width=0>\n<width=10>]) ## 4 again:the first above 0 counts
Numbers.
$S<logRotateSizeKBytes=1M> ## number:takes it for 1; did you mean 1024? & again:logRotateSizeKBytes again
$S<syncSeconds=2 min><writeMode=map><cpuSets=0-3> ## number:for 2; did you mean 120? & keyword:takes factory; did you mean mmap? & keyword:there are little, big
{value='poll_node' interval='4294967301' failureRetry=''} ## number:more than 2147483647: the daemon takes it for 5 & number:is not a number: the daemon takes it for 0
{value='poll_node' interval='2147483648' failureRetry='-1'} ## number:the daemon passes over it & number:is negative: the daemon passes over it & poll-fast:
$S<syncSeconds= +07 > ##
{value='poll_node' interval='0.5'} ## number:takes it for 0; there are no fractions & poll-fast:polls without a pause
$S<maxCompressdFiles=0><logRotateSizeKBytes=0> ## again: & again: & rotation-never:until the disk is full & files-none:no log is kept
<logRotateSizeKBytes=4194304>$S ## again: & rotation-large:4 GiB*2 GiB*mean 4096?
$S<maxCompressdFiles=999> ## again: & files-many:deletes the newest first
<writeMode=factory>$S<maxCompressdFiles=1001> ## again: & files-many:takes 1000
<writeMode=factory><maxCompressdFiles=0>$S ## again: & files-none:no archive is made
Paths.
([<dataPath=datetime>][<alterdataPath=>][<dataPath=/d/>]) ## path:did you mean DateTime? & path:is empty & path:ends in
([<dataPath=/d><title=$X>][<dataPath=/$X>]) ## text-long:longer than 255 bytes & path:is longer than 255 bytes
@log|@/data/log/..| ## path:is not an absolute path: nothing is logged & path:ends in "..": the daemon makes hidden files
@/data/log/log-%d|@/data/log/$W| ## pattern:looks like a pattern & path:more than 231 bytes
([<dataPath=/d/ ><width=8192>]) ## blank: & width:8191
Validity.
{value='poll-node'} ## keyword:did you mean poll_node? & invalid:without a style & input-dropped:before a style
<quilcatGroup>$N<logStyle=monitor_node>$O</quilcatGroup> ## invalid:without inputNodeSet & input-dropped:before the logStyle
M($N<inputCmdSet><command=c></inputCmdSet>) ## input-dropped:does not fit
($N\n<logStyle=poll_cmd>) ## 4 again:logStyle again & 4 style-late:the daemon keeps poll_node
What collects nothing, or something else.
<quilcatGroup>$O<logStyle=poll_cmd><inputCmdSet><command=c></inputCmdSet>) ## 2 collects-nothing: & group-idle:poll_cmd
<quilcatGroup>$O<logStyle=monitor_dir><inputDirSet><inputDirPath=/d/></inputDirSet><inputDirSet/>) ## 2 collects-nothing: & input-dropped:is the second & group-idle:
M([<alterdataPath=/d>]) ## stream-path:a stream reads dataPath only
M([<dataPath=DateTime>]) ## stream-path:is no path
M([<dataPath=/sys/x>])<cpuSets=big> ## no-effect:binds nothing & stream-ends:poll_node?
What waits, and what a log does to others.
([<dataPath=/dev/kmsg><titlePath=/proc/../proc/kmsg>]) ## poll-waits: & title-waits:
([<alterdataPath=/data/log/s/s.I000.20260101-000000.gz>]) ## output-node:is a file of the output in line 3
@/dev/n| ## output-place: & output-node:
@/system/etc/quilcat_config.xml| ## output-place:outside /data & output-node:configuration
@/data/log|@/data/system/x/y|@/data/other/x| ## output-foreign:"/data"*to root:system & output-foreign: & output-place:
What is accepted.
$S<!-- quilcheck: allow no-effect: on purpose -->\n<cpuSets=big> ##
$S<!-- quilcheck: allow no-effect -->\n<cpuSets=big> ## allow-unused:reason & 4 no-effect:
<!-- quilcheck: allow oops: it is so -->$S<!-- quilcheck: allow disk: later -->\n<cpuSets=little> ## allow-unused:"oops"
What has no effect.
<writeMode=factory><emptyFiles=remove>$S ## no-effect:emptyFiles has no effect
{value='monitor_node' interval='5' failureRetry='3'} ## no-effect:interval has no effect & no-effect:failureRetry has no
{value='poll_node' interval='5' onWriteFailure='retry'} ## no-effect:logStyle onWriteFailure has no
M([<dataPath=/d><width=9>]\n$N) ## no-effect:width has & 4 no-effect:reads the first one
([<dataPath=/d><alterdataPath=/e><title=T><titlePath=/t>]) ## no-effect:alterdataPath has & no-effect:titlePath has
Columns.
([<dataPath=/d><width=8>][<dataPath=DateTime><width=21>]) ## width:too narrow for "Read Fail" & width:narrow for the date
([<dataPath=/d><title=Temperature><width=10>]) ## headings:for the title
($N[<dataPath=/d><title=T>]) ## headings:without a title before
([<dataPath=/d><title=T>][<dataPath=/d><title=U>]) ## headings:no width before
Outputs.
@/data/log/a/log|\n@/data/log/b/..//a/./log| ## 4 output-shared:is the output in line 3
@/data/log/a/log|@/data/log/b/log|@/data/log/c/other|@/data/log/c/two| ##
@/data/log/a/log|\n@/data/log/a/logcat| ## output-shared:takes "/data/log/a/logcat.I000.20260101-000000.gz"*line 4
@/data/log/log|\n@/data/log/abc| ## output-shared:takes "/data/log/abc.I000.20260101-000000.gz"
@/data/log/a/x|\n@/data/log/a/x.1| ## output-shared:"/data/log/a/x.1" & 4 output-shared:"/data/log/a/x.1"
<writeMode=factory>@/data/log/a/x|\n@/data/log/a/x.5| ## output-shared:takes "/data/log/a/x.5" & 4 output-shared:
<writeMode=factory>@/data/log/a/log|@/data/log/a/logcat| ##
<writeMode=factory>@/data/log/a/x|\n@/data/log/a/x_tmp/y| ## 4 output-shared:needs a directory
@/data/log/a/x|\n@/data/log/a/x/y/z| ## 4 output-shared:needs a directory where the output in line 3 has
Whole files, for one service or all. The second service of a name is never read; clean-ups reach other services.
=  <quilcatConfigs>\n<quilcat></a>\n</quilcatConfigs> ## 2 xml:not well-formed: Opening and ending
=  ## 1 xml:not well-formed
=s <quilcat name='s'/> ## 1 no-effect:the root element's & 1 root-name: & 1 service-missing:around <quilcat>?
=s <quilcatConfigs>\n<quilcat/></quilcatConfigs> ## 1 service-missing:no service in & 2 value-missing:quilcat without
=s <quilcatConfigs>\n<quilcat name='st'>$S</quilcat></quilcatConfigs> ## 1 service-missing:did you mean st?
=  <quilcatConfigs>\n&x;<?x?><!-- --></quilcatConfigs> ## 2 xml:not well-formed: Entity 'x' not defined
=  <quilcatConfigs><quilcat name=''/></quilcatConfigs> ## 1 name: & 1 service-missing: & 1 built-in-gone:kms & 1 built-in-gone:charge
=t <quilcatConfigs><quilcat name='s$A@/data/log/a/log|</quilcat>\n<quilcat name='t$A@/data/log/a/log2|</quilcat></quilcatConfigs> ## 1 output-shared:clean-up
=t <quilcatConfigs><quilcat name='s$A$S</quilcat>\n<quilcat name='t$A$S</quilcat></quilcatConfigs> ## 2 stream-shared:in line 1 & 2 output-shared:
=s <quilcatConfigs><quilcat name='s$A$S</quilcat>\n<quilcat name='s'/></quilcatConfigs> ## 2 service-again:service "s" again
)";

TEST(Quilcheck, EachMistakeHasItsLine) {
  for (const std::string& line : Device::Lines(kMistakes)) {
    const size_t end = std::min(line.find(" ##"), line.size());
    const bool isFile = line[0] == '=';
    const std::string text = Meant(isFile ? line.substr(3, end - 3) : line.substr(0, end));
    std::vector<std::string> expected;
    for (size_t at = end + 4, stop; at < line.size(); at = stop + 3) {
      stop = std::min(line.find(" & ", at), line.size());
      const size_t colon = line.find(':', at);
      expected.push_back((isdigit(line[at]) ? "" : "3 ") + line.substr(at, colon - at) + ": *" +
                         line.substr(colon + 1, stop - colon - 1) + '*');
    }
    if (end == line.size()) continue;
    ExpectFindings(*CheckText(isFile ? Expand(text) : Service(text), isFile ? line.substr(1, line[1] != ' ') : "s"),
                   expected, line);
  }
  const std::string entity = "<!DOCTYPE c [<!ENTITY x '<quilcat/>'>]><quilcatConfigs>\n&x;</quilcatConfigs>";
  ExpectFindings(*CheckText(entity, "s"), {"1 service-missing: *", "2 text-ignored: entity x*"}, "");
  std::string late =
      "<quilcatConfigs>\n" + std::string(70000, '\n') + "<quilcat name='s'>\n<oops/>\n</quilcat></quilcatConfigs>";
  ExpectFindings(*CheckText(late, "s"),
                 {"7000? rotation-never: *", "7000? files-none: *", "7000? invalid: *", "7000? element-unknown: *"},
                 "");
}

bool SchemaAccepts(xmlDoc* document) {
  static xmlSchemaParserCtxt* const parser = xmlSchemaNewParserCtxt(Beside("quilcat_config.xsd").c_str());
  static xmlSchemaValidCtxt* const context = xmlSchemaNewValidCtxt(xmlSchemaParse(parser));
  xmlSchemaSetValidErrors(context, nullptr, nullptr, nullptr);
  return xmlSchemaValidateDoc(context, document) == 0;
}

/// Runs the service of the configuration file and holds what the summary says of it against what the daemon does: where
/// files go, of what kind and how many, headings, columns, widths, intervals. Returns the number of whole rows
/// compared.
int CompareWithTheDaemon(const ServiceReading& service) {
  const bool isMapped = WriteModeName(service) == "mmap";
  static const std::string kOld = Device::Shell("echo old | gzip");
  std::filesystem::remove_all("/data/log");
  for (const std::string name : {"n", "m", "t"}) WriteFile("/dev/" + name, '<' + name + ">\n");
  for (const GroupReading& group : service.groups) {
    for (int i = 0; i < 8; ++i) WriteFile(group.Output() + ".I00" + std::to_string(i) + ".20260101-000000.gz", kOld);
  }
  const auto start = std::chrono::steady_clock::now();
  Device::Daemon daemon("-b s");
  EXPECT_TRUE(daemon.WaitUntilRunning()) << daemon.Errors();
  usleep(30000);  // gives time for rows; nothing depends on it
  EXPECT_EQ(daemon.Close(), SIGUSR2);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  const auto withoutDigits = [](std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(), isdigit), text.end());
    return text;
  };
  int compared = 0;
  for (const GroupReading& group : service.groups) {
    const std::string& output = group.Output();
    EXPECT_EQ(std::filesystem::is_symlink(output), isMapped);
    const size_t interval = group.record->polling_interval, old = std::min<size_t>(8, FilesKept(service));
    const size_t files = Device::List(std::filesystem::path(output).parent_path(), ".I").size();
    // Rows without a pause fill files, and a rotation keeps one less than a start.
    EXPECT_TRUE(!isMapped || files == old + 1 || (group.Polls() && interval == 0 && files == old)) << output << files;
    if (!group.Polls()) continue;
    const std::string text = withoutDigits(isMapped ? Device::Decode(output).text : Device::ReadFile(output));
    const std::string heading = HeadingRow(group), row = withoutDigits(SampleRow(group)) + '\n';
    const std::string begin = (heading.empty() ? "" : withoutDigits('\n' + heading + '\n')) + row;
    const size_t size = std::min(text.size(), begin.size());
    EXPECT_EQ(text.substr(0, size), begin.substr(0, size));
    const double rows =
        (static_cast<double>(text.size()) - static_cast<double>(begin.size())) / static_cast<double>(row.size());
    EXPECT_TRUE(interval == 0 || rows <= 1 + seconds.count() / static_cast<double>(interval)) << text;
    compared += size == begin.size();
  }
  return compared;
}

TEST(Quilcheck, AgreesWithTheDaemonAndWithTheSchema) {
  int invalid = 0, refused = 0, rows = 0;
  const int documents = Device::Rounds(3000);
  std::mt19937 random(20241122);
  for (int seed = 0; seed < documents; ++seed) {
    uint8_t bytes[1000];
    std::generate(std::begin(bytes), std::end(bytes), [&] { return static_cast<uint8_t>(random()); });
    const size_t mistakes = seed % 3 * 3;
    const std::string document = ConfigCase(bytes, sizeof bytes, mistakes).Document();
    const std::unique_ptr<Report> report = CheckText(document, "s");
    const bool fails = ConfigCase::Fill(QuilConfig::parse_config_file, "s")[0] != '0';

    const std::string lines = Lines(*report);
    ASSERT_EQ(lines.find("idles") != std::string::npos, fails) << document;
    ASSERT_EQ(report->services.empty() || !report->services[0].valid, fails) << document;
    const bool accepted = SchemaAccepts(report->document.get());
    // A refusal is told as a mistake or by the grammar; a repetition is no reason for one.
    Findings grammar;
    CheckStructure(report->document.Root(), ConfigGrammar::kRoot, &grammar);
    const bool isTold = CheckText(document, "")->findings.Count(Severity::Error) > 0 ||
                        std::any_of(grammar.All().begin(), grammar.All().end(), [](const Finding& finding) {
                          return finding.text.find(" again (") == std::string::npos;
                        });
    ASSERT_TRUE(accepted || isTold) << document;
    if (mistakes == 0) {
      ASSERT_TRUE(accepted && report->findings.Count(Severity::Error) == 0) << document << '\n' << lines;
    }
    invalid += fails;
    refused += !accepted;
    if (seed % 120 == 0 && !fails) rows += CompareWithTheDaemon(report->services[0]);
  }
  EXPECT_GT(invalid, documents / 20);
  EXPECT_GT(refused, documents / 5);
  EXPECT_GT(rows, 0);
}

TEST(Quilcheck, ClashesAreThoseOfTheCleanUp) {
  const std::string directory = "/data/log/";
  const std::vector<std::string> bases = {"a",     "b",     "ab",    "log",  "cat",  "log2",
                                          "log.1", "log.4", "log.5", "data", "a.gz", "xa.gz"};
  int clashes = 0;
  for (const std::string& base : bases) {
    for (const std::string& other : bases) {
      if (base == other) continue;
      const std::string output = directory + base, victim = directory + other;
      std::filesystem::remove_all(directory);
      const std::string indexed = victim + ".I000.20260101-000000.gz";
      WriteFile(indexed, "");
      std::filesystem::create_symlink(indexed, victim);
      std::filesystem::create_symlink(indexed, victim + ".1");
      IndexedFiles files(output);
      EXPECT_TRUE(files.formFileVectors());
      std::vector<std::string> taken = {output, output + ".1"};  // the links
      for (const auto& more : {files.paths(), files.otherCompressedFiles(), files.oldStyleNames()}) {
        taken.insert(taken.end(), more.begin(), more.end());
      }
      const bool clash = std::any_of(taken.begin(), taken.end(), [](const std::string& path) {
        return std::filesystem::is_symlink(path) || std::filesystem::exists(path);
      });
      const std::string lines = Lines(*CheckText(Service(Meant('@' + output + "|\n@" + victim + '|')), "s"));
      EXPECT_EQ(lines.find("3 output-shared: ") == 0 && lines.find("clean-up") < lines.find('\n'), clash) << lines;
      clashes += clash;
    }
  }
  EXPECT_GT(clashes, 20);
}

TEST(Quilcheck, SamplesAndPage) {
  const std::unique_ptr<Report> sample = CheckText(Device::ReadFile(Beside("quilcat_samples.xml")), "");
  ExpectFindings(*sample, {"*no service kmsglogcat*"}, "samples");
  EXPECT_TRUE(SchemaAccepts(sample->document.get()));
  const std::string page = Device::ReadFile(Beside("configuration.md"));
  EXPECT_NE(page.find(ElementTable()), std::string::npos) << "the page needs the table of quilcheck --help-elements";
  const size_t example = page.find("<quilcatConfigs>\n");
  const auto report = CheckText(page.substr(example, page.find("```", example) - example), "batterylogcat");
  ExpectFindings(*report, {}, "page");
  EXPECT_NE(Summary(report->services.at(0)).find("27.0 hours back at rows of 54 bytes"), std::string::npos);
}

TEST(Quilcheck, RootIsLookedUp) {
  std::filesystem::create_directories("/data/root/data/log/s/s");
  for (const char* name : {"dev", "proc/self"}) std::filesystem::create_directories(std::string("/data/root/") + name);
  WriteFile("/data/root/dev/n", "");
  WriteFile("/data/root/data/log/file", "");
  std::filesystem::create_symlink("/data", "/data/root/link");  // the image's own, not this machine's
  const auto expect = [](const std::string& children, const std::vector<std::string>& expected) {
    ExpectFindings(*CheckText(Service(Meant(children)), "s", "/data/root"), expected, children);
  };
  expect("$S", {"3 stream-ends: *", "3 output-blocked: *is a directory; did you mean a file in it?"});
  expect("@/data/log/file/a/b|", {"3 output-blocked: *\"/data/log/file\" is none*"});
  std::filesystem::remove("/data/root/dev/n");
  EXPECT_EQ(mkfifo("/data/root/dev/n", 0600), 0);
  std::filesystem::create_symlink("n", "/data/root/dev/n1");
  std::filesystem::create_symlink("n2", "/data/root/dev/n2");
  const std::string stream = "<quilcatGroup><logStyle=monitor_node>[<dataPath=/dev/n";
  expect(stream + ">]<outputFilePath=/data/log/new/log>)\\n" + stream +
             "1>]<outputFilePath=/link/x/../log/new/log>)\\n" + stream + "2>]<outputFilePath=/data/log/x/y>)",
         {"4 stream-shared: *", "4 output-shared: *is the output in line 3*", "5 node-missing: *"});
  expect(
      "($N\\n[<dataPath=/link/log/file>]\\n[<alterdataPath=/none><alterdataPath=/link/log>]\\n[<alterdataPath=/none>\\n"
      "<alterdataPath=/no>])",
      {"3 poll-waits: *", "3 output-blocked: *", "5 node-unreadable: *", "6 node-missing: *", "7 node-missing: *"});
  std::filesystem::remove("/data/root/proc/self");  // an image, without what the kernel gives
  expect(stream + "2>]<outputFilePath=/data/log/x/y>)", {});
}

/// What the checker prints in a shell, then its status.
std::string Shell(const std::string& arguments, const std::string& before = "") {
  FILE* pipe = popen((before + Beside("quilcheck") + ' ' + arguments + " 2>&1; echo status $?").c_str(), "r");
  std::string text;
  for (int letter; (letter = fgetc(pipe)) != EOF;) text += static_cast<char>(letter);
  pclose(pipe);
  return text;
}

/// Arguments, "##", and a part of what is printed, from the beginning to the end after "^".
constexpr char kRuns[] = R"(-v ## /quilcat_config.xml:1: note: no service kmsglogcat in this file
 ## write mode    mmap: as writeMode says
 ## most disk     384 KiB for each output: (1 + 5) x 64 KiB, which
 ## status 0
-q -s s ## ^status 0
-q -W ## ^status 0
-s s -p ro.runmode=factory ## factory: ro.runmode is factory
-s s -p ro.runmode=factory ## 10 KiB for each output: 5 x (1 + 1) x 1 KiB
-s s -p ro.build.type=eng ## factory: ro.build.type is eng
-s s -p ro.build.type=eng -p ro.build.version.vexa=1 ## mmap: as writeMode says
-q -s s -o json ## "errors": 0,
-q -s s --disk 384K ## ^status 0
-q -s s --disk 383k ## may take 384 KiB, more than the 383 KiB that
-q --rc /data/rc ## :1: error: /data/rc:1 starts "ss"
-q --rc /data/rc ## [init-missing]
--explain poll-fast ## poll-fast (warning): Without an interval
--version ## ^quilcheck )" QUILCAT_VERSION R"(
-q -o json /data/oops ## "text": "element \"oops\" does not belong)";

TEST(Quilcheck, OptionsAndStatus) {
  EXPECT_EQ(Shell(""), "quilcheck: there is no configuration file: the daemon has its built-in services\nstatus 2\n");
  WriteFile(kConfig, Service("<writeMode=mmap>" + kStream));
  WriteFile("/data/rc",
            "service a /system/bin/logwrapper \\\n /system/bin/quilcat -b ss\n  user root\n"
            "service b /system/bin/quilcat -b s\n  disabled\n");
  WriteFile("/data/oops", Service(kStream + "<oops/>"));
  for (const std::string& run : Device::Lines(kRuns)) {
    const size_t end = run.find("## ");
    const std::string said = Shell(run.substr(0, end)), part = run.substr(end + 3);
    EXPECT_TRUE(part[0] == '^' ? said.find(part.substr(1)) == 0 : said.find(part) != std::string::npos) << run << said;
  }
  Device::SetProperty("ro.build.type", "eng");
  EXPECT_NE(Shell("-s s").find("factory: ro.build.type is eng"), std::string::npos);
  EXPECT_EQ(Device::Shell(QUILCAT_DAEMON " --version"), "quilcat " QUILCAT_VERSION "\n");
  Report odd;  // surrogate, overlong, beyond Unicode, cut short: no UTF-8
  odd.file = "\xed\xa0\x80 \xe0\x9f\xbf \xf4\x90\x80\x80 \xe2\x82\"\xc3\xa4\n";
  EXPECT_NE(Json(odd, false)
                .find(R"("\ufffd\ufffd\ufffd \ufffd\ufffd\ufffd \ufffd\ufffd\ufffd\ufffd \ufffd\ufffd\"ä\u000a")"),
            std::string::npos);
  for (const char* wrong : {"-x", "-o xml", "-p a", "a b", "/none", "/data", "/dev/zero", "/proc/kmsg", "-r /none",
                            "--rc /none", "--explain none", "--disk 0k"}) {
    EXPECT_NE(Shell(wrong).find("status 2\n"), std::string::npos) << wrong;
  }
}

TEST(Quilcheck, HostileFilesAreRefusedSoon) {
  const auto repeat = [](int count, const std::string& text) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  const std::string documents[] = {
      "<!DOCTYPE c [<!ENTITY a '" + std::string(60000, 'x') + "'>]><c><quilcat name='" + repeat(20000, "&a;") +
          "'/></c>",
      repeat(20000, "<c>") + repeat(10000, "</c>"),
      "<c>" + repeat(20000, "<a/>") + "</c>",
      "<c><quilcat name='s'>" + repeat(2200, "<quilcatGroup><outputFilePath value='/d/a'/></quilcatGroup>") +
          "</quilcat></c>",
      "<c>" + repeat(5, "<quilcat name='s'>" + repeat(600, "<quilcatGroup/>") + "</quilcat>") + "</c>",
  };
  const std::string limit = Device::Sanitized() ? "" : "ulimit -v 100000; ";
  for (const std::string& document : documents) {
    WriteFile(kConfig, document);
    const double start = Device::CpuSecondsOfPrograms();
    const std::string said = Shell("", limit);
    EXPECT_LT(Device::CpuSecondsOfPrograms() - start, Device::Sanitized() ? 20 : 2);
    EXPECT_TRUE(said.find("error:") != std::string::npos || said.find("quilcheck: ") != std::string::npos)
        << document.substr(0, 100) << said.substr(0, 500);
  }
  std::filesystem::resize_file(kConfig, 100'000'000);
  EXPECT_EQ(Shell(""), "quilcheck: " + std::string(kConfig) + ": larger than 128 KiB: not a configuration\nstatus 2\n");
}

}  // namespace
