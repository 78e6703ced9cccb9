// The configuration reader gives a valid service or 1, whatever stands in the file, and everything it made is released.
//
// Input that begins with "<" is the document; other bytes choose among elements, attributes and values, so that most of
// what they form is close to a configuration. The file is written where the reader looks for it, hence only in a test
// device:  tests/test-device build/fuzz/fuzz_config build/fuzz/corpus fuzz/corpus/config

#include <dlfcn.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <utility>

#include "config/quil_config.h"
#include "config/records.h"

using namespace QuilCommon;

namespace {

constexpr char kPath[] = "/system/etc/quilcat_config.xml";
constexpr char kService[] = "s";

FILE* sink;  // takes the dumps and the parser's complaints

/// Turns bytes into a document: the root's children are services, theirs settings and groups, and so on down.
class DocumentBuilder {
 public:
  DocumentBuilder(const uint8_t* data, size_t size) : bytes_(data, size) {}

  std::string Build() {
    std::string text = "<c>";
    while (bytes_.remaining_bytes() > 0 && text.size() < 60000) {
      text += Element(0);
    }
    return text + "</c>";
  }

 private:
  static constexpr size_t kLevels = 4;

  template <size_t count>
  const char* Pick(const char* const (&texts)[count]) {
    return texts[bytes_.ConsumeIntegralInRange<size_t>(0, count - 1)];
  }

  const char* Name(size_t level) {
    static constexpr const char* kSettings[] = {"quilcatGroup",      "quilcatGroup", "logRotateSizeKBytes",
                                                "maxCompressdFiles", "cpuSets",      "writeMode"};
    static constexpr const char* kGroup[] = {"logStyle", "outputFilePath", "inputNodeSet", "inputDirSet",
                                             "inputCmdSet"};
    static constexpr const char* kInputs[] = {"dataPath", "titlePath",    "title",    "alterdataPath",
                                              "width",    "inputDirPath", "pickNode", "command"};
    if (bytes_.ConsumeIntegral<uint8_t>() % 16 == 0) {
      level = bytes_.ConsumeIntegralInRange<size_t>(0, kLevels);
    }
    switch (level) {
      case 0:
        return "quilcat";
      case 1:
        return Pick(kSettings);
      case 2:
        return Pick(kGroup);
      case 3:
        return Pick(kInputs);
      default:
        return "other";
    }
  }

  std::string Value() {
    static constexpr const char* kValues[] = {"monitor_node",
                                              "monitor_dir",
                                              "poll_node",
                                              "poll_cmd",
                                              "mmap",
                                              "factory",
                                              "little",
                                              "big",
                                              kService,
                                              "/d",
                                              "DateTime",
                                              "",
                                              "0",
                                              "5",
                                              "-5",
                                              "+7x",
                                              " 12 ",
                                              "0x10",
                                              "2147483648",
                                              "99999999999999999999",
                                              "-99999999999999999999",
                                              "&#9;1",
                                              "&lt;&amp;",
                                              "\xc3\xa4",
                                              "%s%n"};
    switch (bytes_.ConsumeIntegral<uint8_t>() % 8) {
      case 0:
        return std::to_string(bytes_.ConsumeIntegral<int64_t>());
      case 1:
        return std::string(bytes_.ConsumeIntegralInRange<size_t>(253, 258), 'x');
      default:
        return Pick(kValues);
    }
  }

  std::string Attributes(size_t level) {
    static constexpr const char* kOthers[] = {"name", "interval", "failureRetry", "Value"};
    std::string text;
    if (level == 0) {
      text += " name='" + (bytes_.ConsumeIntegral<uint8_t>() % 8 != 0 ? kService : Value()) + '\'';
    } else if (bytes_.ConsumeIntegral<uint8_t>() % 8 != 0) {
      text += " value='" + Value() + '\'';
    }
    const char* other = Pick(kOthers);
    if (bytes_.ConsumeBool() && (level != 0 || strcmp(other, "name") != 0)) {
      text += ' ' + std::string(other) + "='" + Value() + '\'';
    }
    return text;
  }

  std::string Element(size_t level) {
    static constexpr const char* kBetween[] = {
        "", "", "", "text", "<!-- comment -->", "<![CDATA[<quilcat>]]>", "<?instruction?>"};
    const std::string name = Name(level);
    std::string text = Pick(kBetween) + ('<' + name) + Attributes(level) + '>';
    const size_t children = level < kLevels ? bytes_.ConsumeIntegralInRange<size_t>(0, 6) : 0;
    for (size_t i = 0; i < children && bytes_.remaining_bytes() > 0; ++i) {
      text += Element(level + 1);
    }
    return text + "</" + name + '>';
  }

  FuzzedDataProvider bytes_;
};

void Check(bool holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "%s\n", what);
    abort();
  }
}

void CheckText(const char* text) {
  Check(text == nullptr || strlen(text) < 256, "a text of 256 characters or more");
}

/// Checks the links and texts of a string list. Tells whether every entry has a text.
bool CheckStringList(const QuilcatStrList_t* entry) {
  bool complete = true;
  for (; entry != nullptr; entry = entry->next) {
    CheckText(entry->str);
    complete = complete && entry->str != nullptr;
  }
  return complete;
}

/// Checks node sets. Tells whether there is one and each has something to read.
bool CheckNodeSets(const QuilcatInputNodeSet_t* set) {
  bool valid = set != nullptr;
  for (; set != nullptr; set = set->next) {
    for (const char* text : {set->data_path, set->title_path, set->title}) {
      CheckText(text);
    }
    Check(set->width <= INT_MAX, "a width above the largest int");
    CheckStringList(set->alter_data_path);
    valid = valid && (set->data_path != nullptr || set->alter_data_path != nullptr);
  }
  return valid;
}

/// Checks a group. Tells whether it is one that a service may have.
bool CheckGroup(const QuilcatGroup_t& group) {
  CheckText(group.output_file_path);
  Check(group.polling_interval <= INT_MAX && group.failureRetry <= INT_MAX, "a number above the largest int");
  bool valid = false;
  if (ReadsNodes(&group)) {
    valid = CheckNodeSets(NodeSets(&group));
  } else if (ListsTexts(&group)) {
    const bool complete = CheckStringList(StringList(&group));
    const bool directory = group.style == STYLE_MONITOR_DIR;
    valid = group.input != nullptr && (directory ? StringList(&group)->str != nullptr : complete);
  } else {
    Check(group.style == STYLE_NONE && group.input == nullptr, "inputs without a style");
  }
  return valid && group.output_file_path != nullptr;
}

void CheckService(int result, const QuilcatInfo_t& info) {
  bool valid = info.name != nullptr && info.group_list != nullptr;
  Check(info.name == nullptr || strcmp(info.name, kService) == 0, "another service");
  Check(info.cpu_set <= CPU_SET_BIG && info.writeMode <= WRITE_FACTORY, "a code that does not exist");
  for (const QuilcatGroup_t* group = info.group_list; group != nullptr; group = group->next) {
    Check(group->info == &info, "a group of another service");
    valid = CheckGroup(*group) && valid;
  }
  Check(result == (valid ? 0 : 1), "the result does not fit the service");
}

void WriteDocument(const std::string& text) {
  FILE* file = fopen(kPath, "w");
  Check(file != nullptr && fwrite(text.data(), 1, text.size(), file) == text.size() && fclose(file) == 0,
        "cannot write the configuration file");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // Held open, so that the reader's dlopen does not load it anew for every input.
  if (dlopen("/system/lib64/libxml2.so", RTLD_LAZY) == nullptr) {
    fprintf(stderr, "fuzz_config runs in a test device only: tests/test-device fuzz_config ...\n");
    exit(1);
  }
  sink = fopen("/dev/null", "w");
  Check(sink != nullptr, "no /dev/null");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const bool isDocument = size > 0 && data[0] == '<';
  WriteDocument(isDocument ? std::string(reinterpret_cast<const char*>(data), size)
                           : DocumentBuilder(data, size).Build());
  QuilcatInfo_t info{};
  FILE* standardError = std::exchange(stderr, sink);
  const int result = QuilConfig::parse_config_file(kService, &info);
  stderr = standardError;
  CheckService(result, info);
  QuilConfig::free_config_file(&info);
  const QuilcatInfo_t kZeros{};
  Check(memcmp(&info, &kZeros, sizeof info) == 0, "a released record is not all zeros");
  return 0;
}
