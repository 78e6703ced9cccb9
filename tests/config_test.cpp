// Services as they come from real files in /system/etc, from the built-in definitions, and out of a shortage of memory.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <string.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "config/quil_config.h"
#include "config/records.h"
#include "device.h"
#include "fault_injection.h"

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
std::string List(const char* prefix, const QuilcatStrList_t* entry) {
  std::string text;
  for (; entry != nullptr; entry = entry->next) text += prefix + Quoted(entry->str) + ' ';
  return text;
}
std::string Describe(const QuilcatGroup_t& group) {
  std::string text = '{' + std::to_string(group.style) + ' ' + Field("poll", group.polling_interval) +
                     Field("retry", group.failureRetry) + Field("out", group.output_file_path);
  if (!ReadsNodes(&group)) return text + List("", StringList(&group)) + '}';
  for (const auto* set = NodeSets(&group); set != nullptr; set = set->next) {
    text += '(' + Field("data", set->data_path) + Field("titlePath", set->title_path) + Field("title", set->title) +
            Field("width", set->width) + List("or=", set->alter_data_path) + ')';
  }
  return text + '}';
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
  ~Service() {
    const QuilcatInfo_t zeros{};
    for (int i = 0; i < 2; ++i) {
      QuilConfig::free_config_file(&info);
      EXPECT_EQ(memcmp(&info, &zeros, sizeof info), 0);
    }
  }

  /// Fills the record, without memory for one allocation if given. Returns the result and what the record then holds,
  /// "0 ..." or "1 ...".
  std::string Fill(int (*fill)(const char*, QuilcatInfo_t*), const char* name, int failingAllocation = INT_MAX) {
    int result = -1;
    messages = Device::StandardErrorOf([&] {
      const FailNthAllocation fault(failingAllocation);
      result = fill(name, &info);
      failed = fault.happened();
    });
    EXPECT_EQ(dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "the parser stayed loaded";
    return std::to_string(result) + ' ' + Describe(info);
  }

  QuilcatInfo_t info{};
  std::string messages;
  bool failed = false;
};

std::string FromFile(const char* name) {
  return Service().Fill(QuilConfig::parse_config_file, name);
}
std::string BuiltIn(const char* name) {
  return Service().Fill(QuilConfig::parseDefault, name);
}

/// Installs a document that holds service "s" with the given children; `<name=text>` stands for `<name value='text'/>`.
void InstallService(const std::string& children, const std::string& path = kConfig) {
  std::string xml = children;
  for (size_t at = xml.find('='); at != std::string::npos; at = xml.find('=', at + 1)) {
    if (xml[at + 1] != '\'') xml.insert(xml.find('>', at), "'/").replace(at, 1, " value='");
  }
  WriteFile(path, "<c><quilcat name='s'>" + xml + "</quilcat></c>");
}
/// A group of `style` with the given inputs and output "/o".
std::string Group(const std::string& style, const std::string& inputs) {
  return "<quilcatGroup><logStyle=" + style + '>' + inputs + "<outputFilePath=/o></quilcatGroup>";
}

const std::string kNode = "<inputNodeSet><dataPath=/n></inputNodeSet>";
const std::string kDirectory = "<inputDirSet><inputDirPath=/d><pickNode=p></inputDirSet>";
const std::string kCommand = "<inputCmdSet><command=c></inputCmdSet>";
const std::string kGroup = Group("monitor_node", kNode);
const std::string kGroupText = "{1 out='/o' (data='/n' )}";

TEST(Config, SampleGivesTheBuiltInServicesWhateverTheProperties) {
  // CMake puts the sample beside this program.
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  WriteFile(kConfig, Device::ReadFile(program.parent_path() / "quilcat_config.xml"));
  const std::string kModes[] = {"", "factory", "normal"}, kTypes[] = {"", "eng", "user"};
  for (size_t i = 0; i < 3 * 3 * 2 * 2; ++i) {
    const std::string &mode = kModes[i % 3], &type = kTypes[i / 3 % 3];
    const bool vexa = i / 9 % 2 != 0, recovery = i / 18 != 0;
    SCOPED_TRACE(mode + '/' + type + '/' + std::to_string(vexa) + '/' + std::to_string(recovery));
    Device::SetProperty("ro.runmode", mode);
    Device::SetProperty("ro.build.type", type);
    Device::SetProperty("ro.build.version.vexa", vexa ? "1" : "");
    Device::SetProperty("init.svc.recovery", recovery ? "running" : "stopped");
    const std::string writeMode = mode == "factory" || (type == "eng" && !vexa) ? "write=1 " : "";
    const std::string kernel = "0 name='kmsglogcat' rotate=4096 files=25 " + writeMode +
                               "{1 out='/data/log/android_logs/kmsgcat-log' (data='/proc/kmsg' )}";
    const std::string charge = FromFile("chargelogcat");
    EXPECT_EQ(FromFile("kmsglogcat"), kernel);
    EXPECT_EQ(BuiltIn("kmsglogcat"), recovery ? "1 " : kernel);
    EXPECT_EQ(charge.find("0 name='chargelogcat' rotate=4096 files=20 cpu=1 {3 poll=5 "), 0u) << charge;
    EXPECT_EQ(BuiltIn("chargelogcat"), recovery ? "1 " : charge);
  }
}

TEST(Config, MessagesAndDump) {
  InstallService("<logRotateSizeKBytes=1024><maxCompressdFiles=10><cpuSets=big><syncSeconds=30><other/>" +
                 Group("poll_node", "<quilcat/><logStyle interval='60' failureRetry='3'/>" + kNode +
                                        "<inputNodeSet><alterdataPath=/a><title=t><width=23></inputNodeSet>") +
                 Group("monitor_dir", kDirectory + kDirectory + "<LogStyle/>") + Group("poll_cmd", kCommand) +
                 Group("monitor_node", "<logStyle onWriteFailure='retry'/><logStyle onWriteFailure='end'/>" + kNode));
  Service service;
  EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "s")[0], '0');
  char owner[64];
  snprintf(owner, sizeof owner, "info              : 0x%lx\n", reinterpret_cast<unsigned long>(&service.info));
  const auto group = [&](const char* interval, const char* retry, const char* style, const char* inputs) {
    return std::string("~~~~~~ QuilcatGroup begin ~~~~~~\npolling_interval  : ") + interval +
           "\nfailureRetry      : " + retry + "\nstyle             : " + style + "\noutput_file_path  : /o\n" + owner +
           inputs + "~~~~~~ QuilcatGroup end ~~~~~~~~\n";
  };
  const std::string expected =
      "Unsupport quilcatGroup para [quilcat]!\nOnly support one inputDirSet!\nUnsupport quilcatGroup para [LogStyle]!\n"
      "------------- printQuilcatInfo begin -------------\nname              : s\nrotate_size_kbytes: 1024\n"
      "maxCompressdFiles : 10\ncpu_set           : 2\nwriteMode         : 0\nsync_seconds      : 30\n" +
      group("60", "3", "3",
            "data_path         : /n\ntitle_path        : (null)\ntitle             : (null)\nwidth             : 0\n"
            "data_path         : (null)\ntitle_path        : (null)\ntitle             : t\nwidth             : 23\n"
            "alter_data_path   : /a\n") +
      group("0", "0", "2", "inputDirPath      : /d\npickNode          : p\n") +
      group("0", "0", "4", "command           : c\n") +
      group("0", "0", "1",
            "on_write_failure  : 1\ndata_path         : /n\ntitle_path        : (null)\ntitle             : (null)\n"
            "width             : 0\n") +
      "------------- printQuilcatInfo end ---------------\n";
  EXPECT_EQ(service.messages, expected);
}

TEST(Config, ServiceElements) {
  const struct {
    std::string children, expected;  ///< elements; result and record without the name
  } kCases[] = {
      // Settings: the last one counts, unknown elements and everything between elements do not.
      {"", "1 "},
      {"text<!-- comment --><other/><cpuSets=little><cpuSets=big><writeMode=factory><writeMode=mmap>" + kGroup + kGroup,
       "0 cpu=2 " + kGroupText + kGroupText},
      {"<logRotateSizeKBytes=1><logRotateSizeKBytes=2><maxCompressdFiles=3><MaxCompressdFiles=4>"
       "<cpuSets=big><cpuSets=LITTLE><writeMode=MMAP>" +
           kGroup,
       "0 rotate=2 files=3 write=1 " + kGroupText},
      {"<cpuSets=little><cpuSets/><writeMode=mmap><writeMode/>" + kGroup, "0 write=1 " + kGroupText},
      // One bad group rejects the service. The last output with a value counts, and the last numbers.
      {kGroup + Group("MONITOR_NODE", kNode), "1 " + kGroupText + "{0 out='/o' }"},
      {"<quilcatGroup><logStyle=poll_node>" + kNode + "</quilcatGroup>", "1 {3 (data='/n' )}"},
      {"<quilcatGroup><outputFilePath=/x><logStyle=poll_cmd>" + kCommand +
           "<outputFilePath=/o><outputFilePath/></quilcatGroup>",
       "0 {4 out='/o' 'c' }"},
      {Group("poll_node", "<logStyle interval='7' failureRetry='2'/><logStyle interval='-1'/>" + kNode),
       "0 {3 poll=7 retry=2 out='/o' (data='/n' )}"},
      // A style binds the inputs that follow it, and inputs bind the style.
      {Group("poll_cmd", kNode + kDirectory + "<logStyle=poll_node>" + kNode), "0 {3 out='/o' (data='/n' )}"},
      {Group("poll_node", kNode + "<logStyle value='poll_cmd' interval='9' failureRetry='8'/>" + kNode),
       "0 {3 poll=9 retry=8 out='/o' (data='/n' )(data='/n' )}"},
      {Group("poll_node", kDirectory + kCommand + kNode), "0 {3 out='/o' (data='/n' )}"},
      {Group("monitor_dir", kNode + kCommand), "1 {2 out='/o' }"},
      // Inputs: the first text and the first width above 0 count, and all alternatives and picked names.
      {Group("poll_node", kNode + "<inputNodeSet/>"), "1 {3 out='/o' (data='/n' )()}"},
      {Group("poll_node",
             "<inputNodeSet><dataPath/><dataPath=/a><dataPath=/b><title=><other/><title=t><titlePath=/t><titlePath=/u>"
             "</inputNodeSet><inputNodeSet><alterdataPath=/b><alterdataPath/><alterdataPath=/a>"
             "<width=-5><width=0><width=6><width=7></inputNodeSet>"),
       "0 {3 out='/o' (data='/a' titlePath='/t' title='' )(width=6 or='/b' or=null or='/a' )}"},
      {Group("monitor_dir",
             "<inputDirSet><pickNode/><inputDirPath/><pickNode=p><inputDirPath=/d><inputDirPath=/e></inputDirSet>"),
       "0 {2 out='/o' '/d' null 'p' }"},
      {Group("monitor_dir", "<inputDirSet><pickNode=p></inputDirSet>" + kDirectory), "1 {2 out='/o' null 'p' }"},
      // Of a command set the first child counts, with or without a value.
      {Group("poll_cmd", "<inputCmdSet><other/><command=a><command=b></inputCmdSet>" + kCommand),
       "0 {4 out='/o' 'a' 'c' }"},
      {Group("poll_cmd", kCommand + "<inputCmdSet/><inputCmdSet><command/><command=b></inputCmdSet>"),
       "1 {4 out='/o' 'c' null null }"},
  };
  for (const auto& test : kCases) {
    InstallService(test.children);
    EXPECT_EQ(FromFile("s"), std::string(test.expected).insert(2, "name='s' ")) << test.children;
  }
}

TEST(Config, Values) {
  const std::string earlier = "<maxCompressdFiles=5>";
  const struct {
    size_t number;
    std::vector<std::string> texts;
  } kNumbers[] = {{0, {"abc", "", "0", "-0", "0x10", "4294967296"}},
                  {5, {"-1", "2147483648", "99999999999999999999"}},
                  {12, {"12abc", " \t+12 8", "4294967308"}},
                  {INT_MAX, {"2147483647"}}};
  for (const auto& test : kNumbers) {
    for (const std::string& text : test.texts) {
      InstallService(earlier + "<maxCompressdFiles=" + text + '>' + kGroup);
      EXPECT_EQ(FromFile("s"), "0 name='s' " + Field("files", test.number) + kGroupText) << text;
    }
  }
  for (const size_t length : {255u, 256u, 5000u}) {
    const std::string path(length, 'x');
    InstallService(Group("poll_cmd", "<inputCmdSet><command=" + path + "></inputCmdSet>"));
    EXPECT_EQ(FromFile("s"), "0 name='s' {4 out='/o' '" + (length < 256 ? path : "") + "' }");
  }
}

TEST(Config, FindsTheFirstServiceOfThatNameBelowTheRoot) {
  WriteFile(kConfig,
            "<quilcat name='root'><x><quilcat name='nested'/></x><quilcat/><other name='s'/>"
            "<quilcat name='s'><maxCompressdFiles value='1'/></quilcat><quilcat name='s'/></quilcat>");
  EXPECT_EQ(FromFile("s"), "1 name='s' files=1 ");
  for (const char* name : {"root", "nested", "", "S", "ss", "kmsglogcat"}) EXPECT_EQ(FromFile(name), "1 ") << name;
  EXPECT_EQ(FromFile(nullptr), "1 ");
}

TEST(Config, FirstCandidateThatExistsHasTheLastWord) {
  InstallService(kGroup);
  InstallService("<maxCompressdFiles=2>" + kGroup, "/system/etc/quilcat_config_cc.xml");
  EXPECT_EQ(FromFile("s"), "0 name='s' files=2 " + kGroupText);
  for (const char* text : {"", "no document", "<c>", "<c/>", "<c><quilcat name='t'/></c>"}) {
    WriteFile("/system/etc/quilcat_config_cs.xml", text);
    EXPECT_EQ(FromFile("s"), "1 ") << text;
    EXPECT_EQ(FromFile("kmsglogcat"), "1 ") << text;
  }
}

TEST(Config, BuiltInServicesAreForDevicesWithoutAFileOrParser) {
  for (const char* name : {"kmsglogcat", "chargelogcat"}) {
    Service service;
    EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, name), BuiltIn(name));
    EXPECT_EQ(service.messages, "");
  }
  EXPECT_EQ(BuiltIn("kmsglogcat2"), "1 ");
  EXPECT_EQ(BuiltIn(nullptr), "1 ");
  InstallService(kGroup);
  const std::string library = Device::ReadFile(kLibrary);
  while (umount(kLibrary) == 0) {
  }
  ASSERT_EQ(unlink(kLibrary), 0);
  // No library at all, then one that lacks a function.
  for (const std::string missing :
       {"", "xmlParseFile", "xmlDocGetRootElement", "xmlFreeDoc", "xmlGetProp", "xmlStrcmp"}) {
    if (!missing.empty()) {
      const size_t symbol = library.find('\0' + missing + '\0');
      ASSERT_NE(symbol, std::string::npos);
      WriteFile(kLibrary, std::string(library).replace(symbol + 1, 1, "_"));
    }
    Service service;
    EXPECT_EQ(service.Fill(QuilConfig::parse_config_file, "chargelogcat"), BuiltIn("chargelogcat")) << missing;
    EXPECT_EQ(service.messages, "initLibxml2: dlopen or dlsym return error\n") << missing;
  }
}

TEST(Config, BuiltInServiceNeedsAllItsMemory) {
  for (const char* name : {"kmsglogcat", "chargelogcat"}) {
    Service complete;
    for (int n = 1; complete.info.name == nullptr && n < 100; ++n) {
      const std::string filled = complete.Fill(QuilConfig::parseDefault, name, n);
      EXPECT_EQ(filled, complete.failed ? "1 " : BuiltIn(name)) << n;
    }
  }
}

TEST(Config, WithoutMemoryAnElementIsSkippedAndATextStaysNull) {
  const struct {
    std::string group;
    std::vector<std::string> expected;  ///< result and group, in the order of the group's allocations
  } kCases[] = {
      {Group("poll_node", "<inputNodeSet><dataPath=/n><alterdataPath=/a><title=t></inputNodeSet>"),
       {"0 ", "1 {3 out='/o' }", "0 {3 out='/o' (title='t' or='/a' )}", "0 {3 out='/o' (data='/n' title='t' )}",
        "0 {3 out='/o' (data='/n' title='t' or=null )}", "0 {3 out='/o' (data='/n' or='/a' )}",
        "1 {3 (data='/n' title='t' or='/a' )}"}},
      {Group("monitor_dir", kDirectory),
       {"0 ", "1 {2 out='/o' }", "1 {2 out='/o' null 'p' }", "0 {2 out='/o' '/d' }", "0 {2 out='/o' '/d' null }",
        "1 {2 '/d' 'p' }"}},
      {Group("poll_cmd", kCommand), {"0 ", "1 {4 out='/o' }", "1 {4 out='/o' null }", "1 {4 'c' }"}},
  };
  for (const auto& test : kCases) {
    InstallService(test.group + kGroup);
    EXPECT_EQ(Service().Fill(QuilConfig::parse_config_file, "s", 1), "1 ");  // the service's name
    int n = 2;
    for (std::string expected : test.expected) {
      expected.insert(2, "name='s' ");
      EXPECT_EQ(Service().Fill(QuilConfig::parse_config_file, "s", n), expected + kGroupText) << n;
      ++n;
    }
  }
}

}  // namespace
