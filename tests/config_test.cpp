// Services as they come from real files in /system/etc, from the built-in definitions, and out of a shortage of memory.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <string>

#include "config/quil_config.h"
#include "config/records.h"
#include "device.h"
#include "fault_injection.h"

using Device::StandardErrorOf;
using Device::WriteFile;
using namespace QuilCommon;

namespace {

constexpr char kConfig[] = "/system/etc/quilcat_config.xml";
constexpr char kLibrary[] = "/system/lib64/libxml2.so";

std::string Quoted(const char* text) {
  return text != nullptr ? '\'' + std::string(text) + '\'' : "null";
}

std::string Field(const char* name, size_t value) {
  return value != 0 ? name + ('=' + std::to_string(value)) + ' ' : "";
}

std::string Field(const char* name, const char* value) {
  return value != nullptr ? name + ('=' + Quoted(value)) + ' ' : "";
}

std::string Describe(const QuilcatInputNodeSet_t& set) {
  std::string text = "(" + Field("data", set.data_path) + Field("titlePath", set.title_path) +
                     Field("title", set.title) + Field("width", set.width);
  for (const QuilcatStrList_t* path = set.alter_data_path; path != nullptr; path = path->next) {
    text += "or=" + Quoted(path->str) + ' ';
  }
  return text + ")";
}

std::string Describe(const QuilcatGroup_t& group) {
  std::string text = "{" + std::to_string(group.style) + ' ' + Field("poll", group.polling_interval) +
                     Field("retry", group.failureRetry) + Field("out", group.output_file_path);
  if (ReadsNodes(&group)) {
    for (const auto* set = NodeSets(&group); set != nullptr; set = set->next) {
      text += Describe(*set);
    }
  } else if (ListsTexts(&group)) {
    for (const auto* entry = StringList(&group); entry != nullptr; entry = entry->next) {
      text += Quoted(entry->str) + ' ';
    }
  } else if (group.input != nullptr) {
    text += "input without style";
  }
  return text + "}";
}

/// All that a record holds, in file order; fields that are zero or null do not show.
std::string Describe(const QuilcatInfo_t& info) {
  std::string text = Field("name", info.name) + Field("rotate", info.rotate_size_kbytes) +
                     Field("files", info.maxCompressdFiles) + Field("cpu", info.cpu_set) +
                     Field("write", info.writeMode);
  for (const QuilcatGroup_t* group = info.group_list; group != nullptr; group = group->next) {
    text += group->info == &info ? Describe(*group) : "{group of another service}";
  }
  return text;
}

/// A service record with what was printed while it was filled.
struct Service {
  Service() = default;
  Service(const Service&) = delete;
  ~Service() { QuilConfig::free_config_file(&info); }

  /// Fills the record. Gives the result and what the record then holds, "0 ..." or "1 ...".
  std::string Fill(int (*fill)(const char*, QuilcatInfo_t*), const char* name) {
    int result = -1;
    messages = StandardErrorOf([&] { result = fill(name, &info); });
    return std::to_string(result) + ' ' + Describe(info);
  }

  QuilcatInfo_t info{};
  std::string messages;
};

std::string FromFile(const char* name) {
  return Service().Fill(QuilConfig::parse_config_file, name);
}
std::string BuiltIn(const char* name) {
  return Service().Fill(QuilConfig::parseDefault, name);
}

/// A document that holds service "s" with the given children.
std::string Document(const std::string& children) {
  return "<c><quilcat name='s'>" + children + "</quilcat></c>";
}

/// A group with output "/o" and the given further children.
std::string Group(const std::string& children) {
  return "<quilcatGroup>" + children + "<outputFilePath value='/o'/></quilcatGroup>";
}

/// A group of `style` with output "/o" and the given inputs.
std::string Group(const std::string& style, const std::string& inputs) {
  return Group("<logStyle value='" + style + "'/>" + inputs);
}

const std::string kNode = "<inputNodeSet><dataPath value='/n'/></inputNodeSet>";
const std::string kGroup = Group("monitor_node", kNode);
const std::string kGroupText = "{1 out='/o' (data='/n' )}";

std::string kmsglogcat(int writeMode) {
  return "0 name='kmsglogcat' rotate=4096 files=25 " + Field("write", static_cast<size_t>(writeMode)) +
         "{1 out='/data/log/android_logs/kmsgcat-log' (data='/proc/kmsg' )}";
}

constexpr char kChargelogcat[] =
    "0 name='chargelogcat' rotate=4096 files=20 cpu=1 {3 poll=5 out='/data/log/charge-log/charge-log' "
    "(data='DateTime' title='Time' width=23 )"
    "(data='/sys/class/kq_power/coul/coul_data/gaugelog' "
    "titlePath='/sys/class/kq_power/coul/coul_data/gaugelog_head' )"
    "(data='/sys/class/kq_power/charger/charge_data/chargelog' "
    "titlePath='/sys/class/kq_power/charger/charge_data/chargelog_head' )}";

/// Installs the sample configuration, which CMake puts beside this program.
void InstallSample() {
  std::filesystem::copy_file(std::filesystem::read_symlink("/proc/self/exe").replace_filename("quilcat_config.xml"),
                             kConfig, std::filesystem::copy_options::overwrite_existing);
}

TEST(Config, SampleGivesTheBuiltInServicesWhateverTheProperties) {
  InstallSample();
  for (const char* recovery : {"", "running", "stopped"}) {
    for (const char* mode : {"", "factory", "normal"}) {
      for (const char* type : {"", "eng", "user"}) {
        for (const char* vexa : {"", "1"}) {
          SCOPED_TRACE(testing::Message() << recovery << '/' << mode << '/' << type << '/' << vexa);
          Device::SetProperty("init.svc.recovery", recovery);
          Device::SetProperty("ro.runmode", mode);
          Device::SetProperty("ro.build.type", type);
          Device::SetProperty("ro.build.version.vexa", vexa);
          const bool factory = strcmp(mode, "factory") == 0 || (strcmp(type, "eng") == 0 && *vexa == '\0');
          const bool running = strcmp(recovery, "running") == 0;
          EXPECT_EQ(FromFile("kmsglogcat"), kmsglogcat(factory));
          EXPECT_EQ(FromFile("chargelogcat"), kChargelogcat);
          EXPECT_EQ(BuiltIn("kmsglogcat"), running ? "1 " : kmsglogcat(factory));
          EXPECT_EQ(BuiltIn("chargelogcat"), running ? "1 " : kChargelogcat);
        }
      }
    }
  }
}

TEST(Config, DumpOfSampleServiceWithEveryStyle) {
  InstallSample();
  Service service;
  EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "thermallogcat")[0], '0');
  char owner[64];
  snprintf(owner, sizeof owner, "info              : 0x%lx\n", reinterpret_cast<unsigned long>(&service.info));
  const std::string end = "~~~~~~ QuilcatGroup end ~~~~~~~~\n";
  const auto group = [&](const char* interval, const char* retry, const char* style, const char* log) {
    return std::string("~~~~~~ QuilcatGroup begin ~~~~~~\npolling_interval  : ") + interval +
           "\nfailureRetry      : " + retry + "\nstyle             : " + style +
           "\noutput_file_path  : /data/log/thermal-" + log + "\n" + owner;
  };
  EXPECT_EQ(service.messages,
            "------------- printQuilcatInfo begin -------------\n"
            "name              : thermallogcat\n"
            "rotate_size_kbytes: 1024\n"
            "maxCompressdFiles : 10\n"
            "cpu_set           : 2\n"
            "writeMode         : 1\n" +
                group("0", "0", "1", "trace/trace-log") +
                "data_path         : /sys/kernel/debug/tracing/trace_pipe\n"
                "title_path        : (null)\n"
                "title             : (null)\n"
                "width             : 0\n" +
                end + group("60", "3", "3", "log/thermal-log") +
                "data_path         : DateTime\n"
                "title_path        : (null)\n"
                "title             : Time\n"
                "width             : 23\n"
                "data_path         : (null)\n"
                "title_path        : (null)\n"
                "title             : Board\n"
                "width             : 10\n"
                "alter_data_path   : /sys/class/thermal/thermal_zone9/temp\n"
                "alter_data_path   : /sys/class/thermal/thermal_zone0/temp\n" +
                end + group("0", "0", "2", "tombstones/tombstone-log") +
                "inputDirPath      : /data/tombstones\n"
                "pickNode          : tombstone_00\n"
                "pickNode          : tombstone_01\n" +
                end + group("60", "0", "4", "dump/dump-log") +
                "command           : dumpsys batteryproperties\n"
                "command           : dumpsys thermalservice\n" +
                end + "------------- printQuilcatInfo end ---------------\n");
}

TEST(Config, ServiceElements) {
  const std::string once = "<inputDirSet><inputDirPath value='/d'/></inputDirSet>";
  const struct {
    std::string children;
    std::string expected;  ///< result and record, without the name
  } kCases[] = {
      // Settings: the last one counts, unknown elements and everything between elements do not.
      {"", "1 "},
      {kGroup, "0 " + kGroupText},
      {kGroup + kGroup, "0 " + kGroupText + kGroupText},
      {"text<!-- comment --><other/><maxCompressdFiles value='3'/><MaxCompressdFiles value='4'/>" + kGroup,
       "0 files=3 " + kGroupText},
      {"<logRotateSizeKBytes value='1'/><logRotateSizeKBytes value='2'/>" + kGroup, "0 rotate=2 " + kGroupText},
      {"<cpuSets value='little'/><cpuSets value='big'/>" + kGroup, "0 cpu=2 " + kGroupText},
      {"<cpuSets value='big'/><cpuSets value='LITTLE'/>" + kGroup, "0 " + kGroupText},
      {"<cpuSets value='little'/><cpuSets/>" + kGroup, "0 " + kGroupText},
      {"<writeMode value='factory'/><writeMode value='mmap'/>" + kGroup, "0 " + kGroupText},
      {"<writeMode value='MMAP'/>" + kGroup, "0 write=1 " + kGroupText},
      {"<writeMode value='mmap'/><writeMode/>" + kGroup, "0 write=1 " + kGroupText},
      // Groups.
      {"<quilcatGroup/>" + kGroup, "1 {0 }" + kGroupText},
      {kGroup + Group(""), "1 " + kGroupText + "{0 out='/o' }"},
      {Group("<logStyle value='MONITOR_NODE'/>" + kNode), "1 {0 out='/o' }"},
      {Group("<outputFilePath value='/first'/><logStyle value='poll_node'/>" + kNode), "0 {3 out='/o' (data='/n' )}"},
      {Group("poll_node", kNode + "<outputFilePath value='/o'/><outputFilePath/>"), "0 {3 out='/o' (data='/n' )}"},
      {"<quilcatGroup><logStyle value='poll_node'/>" + kNode + "</quilcatGroup>", "1 {3 (data='/n' )}"},
      {Group("<logStyle value='poll_node' interval='7' failureRetry='2'/><logStyle interval='-1'/>" + kNode),
       "0 {3 poll=7 retry=2 out='/o' (data='/n' )}"},
      // A style binds the inputs that follow it, and inputs bind the style.
      {Group(kNode + "<logStyle value='monitor_node'/>"), "1 {1 out='/o' }"},
      {Group("<logStyle value='poll_cmd'/>" + kNode + "<logStyle value='poll_node'/>" + kNode),
       "0 {3 out='/o' (data='/n' )}"},
      {Group("poll_node", kNode + "<logStyle value='poll_cmd' interval='9' failureRetry='8'/>" + kNode),
       "0 {3 poll=9 retry=8 out='/o' (data='/n' )(data='/n' )}"},
      {Group("poll_node", once + "<inputCmdSet/>" + kNode), "0 {3 out='/o' (data='/n' )}"},
      {Group("monitor_dir", kNode + "<inputCmdSet/>"), "1 {2 out='/o' }"},
      // Node sets: the first text and the first width above 0 count, and all alternatives.
      {Group("poll_node", kNode + "<inputNodeSet/>"), "1 {3 out='/o' (data='/n' )()}"},
      {Group("poll_node",
             "<inputNodeSet><dataPath/><dataPath value='/a'/><dataPath value='/b'/><title value=''/><title value='t'/>"
             "<titlePath value='/t'/><titlePath value='/u'/><other/></inputNodeSet>"),
       "0 {3 out='/o' (data='/a' titlePath='/t' title='' )}"},
      {Group("monitor_node",
             "<inputNodeSet><alterdataPath value='/b'/><alterdataPath/><alterdataPath value='/a'/></inputNodeSet>"),
       "0 {1 out='/o' (or='/b' or=null or='/a' )}"},
      {Group("poll_node",
             "<inputNodeSet><dataPath value='/n'/><width value='-5'/><width value='0'/><width value='6'/>"
             "<width value='7'/></inputNodeSet>"),
       "0 {3 out='/o' (data='/n' width=6 )}"},
      // Directories.
      {Group("monitor_dir",
             "<inputDirSet><pickNode/><inputDirPath/><pickNode value='p'/><inputDirPath value='/d'/>"
             "<inputDirPath value='/e'/></inputDirSet>"),
       "0 {2 out='/o' '/d' null 'p' }"},
      {Group("monitor_dir", once), "0 {2 out='/o' '/d' }"},
      {Group("monitor_dir", "<inputDirSet><pickNode value='p'/></inputDirSet>" + once), "1 {2 out='/o' null 'p' }"},
      // Commands: the first child counts, with or without a value.
      {Group("poll_cmd",
             "<inputCmdSet><other/><command value='a'/><command value='b'/></inputCmdSet>"
             "<inputCmdSet><command value='c'/></inputCmdSet>"),
       "0 {4 out='/o' 'a' 'c' }"},
      {Group("poll_cmd", "<inputCmdSet><command/><command value='b'/></inputCmdSet>"), "1 {4 out='/o' null }"},
      {Group("poll_cmd", "<inputCmdSet><command value='a'/></inputCmdSet><inputCmdSet/>"), "1 {4 out='/o' 'a' null }"},
  };
  for (const auto& test : kCases) {
    WriteFile(kConfig, Document(test.children));
    std::string expected = test.expected;
    EXPECT_EQ(FromFile("s"), expected.insert(2, "name='s' ")) << test.children;
  }
}

TEST(Config, Values) {
  const struct {
    const char* text;
    const char* expected;  ///< after an earlier 5
  } kIntegers[] = {
      {"12abc", "12"},
      {" \t+7 8", "7"},
      {"abc", ""},
      {"", ""},
      {"0", ""},
      {"-1", "5"},
      {"-0", ""},
      {"0x10", ""},
      {"2147483647", "2147483647"},
      {"99999999999999999999", "2147483647"},
      {"-99999999999999999999", "5"},
  };
  for (const auto& test : kIntegers) {
    const std::string element = "<maxCompressdFiles value='";
    WriteFile(kConfig, Document(element + "5'/>" + element + test.text + "'/>" + kGroup));
    const std::string field = *test.expected != '\0' ? std::string("files=") + test.expected + ' ' : "";
    EXPECT_EQ(FromFile("s"), "0 name='s' " + field + kGroupText) << test.text;
  }
  for (const size_t length : {255u, 256u, 5000u}) {
    const std::string path(length, 'x');
    WriteFile(kConfig,
              Document(Group("monitor_node", "<inputNodeSet><dataPath value='" + path + "'/></inputNodeSet>")));
    EXPECT_EQ(FromFile("s"), "0 name='s' {1 out='/o' (data='" + (length < 256 ? path : "") + "' )}");
  }
}

TEST(Config, MessagesAboutGroupElements) {
  const std::string directory = "<inputDirSet><inputDirPath value='/d'/></inputDirSet>";
  WriteFile(kConfig, Document("<other/>" + Group("monitor_dir", "<quilcat/>" + directory + directory + "<LogStyle/>")));
  Service service;
  EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "s"), "0 name='s' {2 out='/o' '/d' }");
  EXPECT_EQ(service.messages.substr(0, service.messages.find("---")),
            "Unsupport quilcatGroup para [quilcat]!\n"
            "Only support one inputDirSet!\n"
            "Unsupport quilcatGroup para [LogStyle]!\n");
}

TEST(Config, FindsTheFirstServiceOfThatNameBelowTheRoot) {
  WriteFile(kConfig, "<quilcat name='root'><x><quilcat name='nested'>" + kGroup + "</quilcat></x><quilcat>" + kGroup +
                         "</quilcat><other name='s'>" + kGroup +
                         "</other><quilcat name='s'><maxCompressdFiles value='1'/>" + kGroup +
                         "</quilcat><quilcat name='s'>" + kGroup + "</quilcat></quilcat>");
  EXPECT_EQ(FromFile("s"), "0 name='s' files=1 " + kGroupText);
  for (const char* name : {"root", "nested", "", "S", "ss", "kmsglogcat", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(FromFile(name), "1 ") << (name != nullptr ? name : "null");
  }
  EXPECT_EQ(QuilConfig::parse_config_file("s", nullptr), 1);
}

TEST(Config, FirstCandidateThatExistsHasTheLastWord) {
  const std::string first = "/system/etc/quilcat_config_cs.xml";
  const std::string second = "/system/etc/quilcat_config_cc.xml";
  WriteFile(kConfig, Document("<maxCompressdFiles value='3'/>" + kGroup));
  EXPECT_EQ(FromFile("s"), "0 name='s' files=3 " + kGroupText);
  WriteFile(second, Document("<maxCompressdFiles value='2'/>" + kGroup));
  EXPECT_EQ(FromFile("s"), "0 name='s' files=2 " + kGroupText);
  for (const char* text : {"", "no document", "<c>", "<c/>", "<c><quilcat name='t'/></c>"}) {
    WriteFile(first, text);
    EXPECT_EQ(FromFile("s"), "1 ") << text;
    EXPECT_EQ(FromFile("kmsglogcat"), "1 ") << text;
  }
}

TEST(Config, BuiltInServicesAreForDevicesWithoutAFile) {
  Service service;
  EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "kmsglogcat"), kmsglogcat(0));
  EXPECT_EQ(service.messages, "");
  for (const char* name : {"kmsglogca", "kmsglogcat2", "KMSGLOGCAT", "", static_cast<const char*>(nullptr)}) {
    EXPECT_EQ(BuiltIn(name), "1 ") << (name != nullptr ? name : "null");
  }
}

/// The functions that the parser has to have; an empty name stands for a library that cannot be loaded.
class ConfigWithout : public testing::TestWithParam<const char*> {};

TEST_P(ConfigWithout, FallsBackToTheBuiltInServices) {
  const std::string missing = GetParam();
  std::string library = Device::ReadFile(kLibrary);
  ASSERT_EQ(umount(kLibrary), 0);
  ASSERT_EQ(unlink(kLibrary), 0);
  WriteFile(kConfig, Document(kGroup));
  if (!missing.empty()) {
    const size_t symbol = library.find('\0' + missing + '\0');
    ASSERT_NE(symbol, std::string::npos);
    library[symbol + missing.size()] = '_';
    WriteFile(kLibrary, library);
  }
  Service service;
  EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "chargelogcat"), kChargelogcat);
  EXPECT_EQ(service.messages, "initLibxml2: dlopen or dlsym return error\n");
  EXPECT_EQ(dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

INSTANTIATE_TEST_SUITE_P(Parser, ConfigWithout,
                         testing::Values("", "xmlParseFile", "xmlDocGetRootElement", "xmlFreeDoc", "xmlGetProp",
                                         "xmlStrcmp"));

TEST(Config, UnloadsTheParser) {
  EXPECT_EQ(FromFile("kmsglogcat"), kmsglogcat(0));
  EXPECT_EQ(dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD), nullptr);
  WriteFile(kConfig, Document(kGroup));
  EXPECT_EQ(FromFile("s"), "0 name='s' " + kGroupText);
  EXPECT_EQ(dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD), nullptr);
}

TEST(Config, ReleasesTwice) {
  WriteFile(kConfig, Document(kGroup));
  Service service;
  service.Fill(QuilConfig::parse_config_file, "s");
  const QuilcatInfo_t kZeros{};
  for (int i = 0; i < 2; ++i) {
    QuilConfig::free_config_file(&service.info);
    EXPECT_EQ(memcmp(&service.info, &kZeros, sizeof kZeros), 0);
  }
  QuilConfig::free_config_file(nullptr);
  QuilConfig::free_logcatGroup(nullptr);
  QuilConfig::free_inputNodeSet(nullptr);
}

TEST(Config, BuiltInServiceNeedsAllItsMemory) {
  for (const char* name : {"kmsglogcat", "chargelogcat"}) {
    bool failed = true;
    for (int n = 1; failed; ++n) {
      Service service;
      const FailNthAllocation fault(n);
      const int result = QuilConfig::parseDefault(name, &service.info);
      failed = fault.happened();
      EXPECT_EQ(result, failed ? 1 : 0) << name << ' ' << n;
      EXPECT_EQ(Describe(service.info).empty(), failed) << name << ' ' << n;
    }
  }
}

TEST(Config, WithoutMemoryAnElementIsSkippedAndATextStaysNull) {
  WriteFile(kConfig, Document(Group("poll_node",
                                    "<inputNodeSet><dataPath value='/d'/><alterdataPath value='/a'/><title value='t'/>"
                                    "</inputNodeSet>") +
                              Group("monitor_dir",
                                    "<inputDirSet><inputDirPath value='/d'/><pickNode value='p'/></inputDirSet>") +
                              Group("poll_cmd", "<inputCmdSet><command value='c'/></inputCmdSet>")));
  const std::string poll = "{3 out='/o' (data='/d' title='t' or='/a' )}";
  const std::string dir = "{2 out='/o' '/d' 'p' }";
  const std::string cmd = "{4 out='/o' 'c' }";
  const std::string kExpected[] = {
      // in the order of the allocations
      "1 ",
      "0 name='s' " + dir + cmd,
      "1 name='s' {3 out='/o' }" + dir + cmd,
      "0 name='s' {3 out='/o' (title='t' or='/a' )}" + dir + cmd,
      "0 name='s' {3 out='/o' (data='/d' title='t' )}" + dir + cmd,
      "0 name='s' {3 out='/o' (data='/d' title='t' or=null )}" + dir + cmd,
      "0 name='s' {3 out='/o' (data='/d' or='/a' )}" + dir + cmd,
      "1 name='s' {3 (data='/d' title='t' or='/a' )}" + dir + cmd,
      "0 name='s' " + poll + cmd,
      "1 name='s' " + poll + "{2 out='/o' }" + cmd,
      "1 name='s' " + poll + "{2 out='/o' null 'p' }" + cmd,
      "0 name='s' " + poll + "{2 out='/o' '/d' }" + cmd,
      "0 name='s' " + poll + "{2 out='/o' '/d' null }" + cmd,
      "1 name='s' " + poll + "{2 '/d' 'p' }" + cmd,
      "0 name='s' " + poll + dir,
      "1 name='s' " + poll + dir + "{4 out='/o' }",
      "1 name='s' " + poll + dir + "{4 out='/o' null }",
      "1 name='s' " + poll + dir + "{4 'c' }",
      "0 name='s' " + poll + dir + cmd,
  };
  int n = 1;
  for (const std::string& expected : kExpected) {
    Service service;
    int result = -1;
    bool failed = false;
    const auto withFault = [&] {
      const FailNthAllocation fault(n);
      result = QuilConfig::parse_config_file("s", &service.info);
      failed = fault.happened();
    };
    StandardErrorOf(withFault);
    EXPECT_EQ(std::to_string(result) + ' ' + Describe(service.info), expected) << n;
    EXPECT_EQ(failed, &expected != std::end(kExpected) - 1) << n;
    ++n;
  }
}

}  // namespace
