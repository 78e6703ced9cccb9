#pragma once

#include <dlfcn.h>
#include <libxml/parser.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "config/quil_config.h"

/// What the configuration reader has to make of a file, told once more: straight from the elements to the dump.
/// For a device without properties; its files can be written in a test device only.
class ConfigModel {
 public:
  using QuilcatInfo_t = QuilCommon::QuilcatInfo_t;
  static constexpr char kPath[] = "/system/etc/quilcat_config.xml";
  static constexpr char kLibrary[] = "/system/lib64/libxml2.so";

  /// What `fill` returns, and what it and, if asked for, the dump of its record print.
  static std::string Fill(const std::function<int(const char*, QuilcatInfo_t*)>& fill, const char* name,
                          bool dump = false) {
    char* text = nullptr;
    size_t size = 0;
    FILE* standardError = std::exchange(stderr, open_memstream(&text, &size));
    const int result = fill(name, &record);
    if (dump) QuilConfig::printQuilcatInfo(&record);
    fclose(std::exchange(stderr, standardError));
    const std::string printed(text, size);
    free(text);
    const QuilcatInfo_t kZeros{};
    for (int i = 0; i < 2; ++i) QuilConfig::free_config_file(&record);
    return std::to_string(result) + '\n' + (memcmp(&record, &kZeros, sizeof record) == 0 ? printed : "not released");
  }

  /// Has `document` read for service "s", and tells how the outcome differs from what it should be; empty: not at all.
  /// Keeps the parser loaded, and silent.
  static std::string Compare(const std::string& document) {
    ConfigModel model;
    model.xmlSetGenericErrorFunc(nullptr, Ignore);
    std::ofstream(kPath) << document;
    const std::string actual = Fill(QuilConfig::parse_config_file, "s"), expected = model.Read();
    return actual == expected ? "" : document + "\ngives\n" + actual + "\nand not\n" + expected;
  }

 private:
  using Text = std::optional<std::string>;

  template <typename Function>
  static Function LookUp(const char* name) {
    static void* library = dlopen(kLibrary, RTLD_LAZY);
    return reinterpret_cast<Function>(dlsym(library, name));
  }

  static void Ignore(void*, const char*, ...) {}

  Text Get(xmlNode* node, const char* attribute) {
    xmlChar* value = xmlGetProp(node, reinterpret_cast<const xmlChar*>(attribute));
    const Text copy = value != nullptr ? Text(reinterpret_cast<char*>(value)) : Text();
    free(value);
    return copy;
  }
  Text Value(xmlNode* node) {
    const Text value = Get(node, "value");
    return value && value->size() > 255 ? "" : value;
  }
  void Number(xmlNode* node, const char* attribute, int* field) {
    const int number = atoi(Get(node, attribute).value_or("-1").c_str());
    if (number >= 0) *field = number;
  }
  static std::string Name(const xmlNode* node) { return reinterpret_cast<const char*>(node->name); }
  /// The elements below `parent`, or those of one name.
  static std::vector<xmlNode*> Children(const xmlNode* parent, const std::string& name = "") {
    std::vector<xmlNode*> elements;
    for (xmlNode* child = parent->children; child != nullptr; child = child->next) {
      if (child->type == XML_ELEMENT_NODE && (name.empty() || Name(child) == name)) elements.push_back(child);
    }
    return elements;
  }
  Text First(xmlNode* set, const char* name) {
    Text first;
    for (xmlNode* child : Children(set, name)) first = first ? first : Value(child);
    return first;
  }
  std::string All(xmlNode* set, const char* name, const char* label) {
    std::string lines;
    for (xmlNode* child : Children(set, name)) lines += Line(label, Value(child));
    return lines;
  }
  static std::string Line(std::string label, const Text& text) {
    label.resize(18, ' ');
    return label + ": " + text.value_or("(null)") + '\n';
  }
  static std::string Line(const char* label, int number) { return Line(label, std::to_string(number)); }

  std::string Read() {
    xmlDoc* document = xmlParseFile(kPath);
    if (document == nullptr) return "1\n";
    std::string text;
    for (xmlNode* node : Children(xmlDocGetRootElement(document), "quilcat")) {
      if (text.empty() && Get(node, "name") == "s") text = Service(node);
    }
    xmlFreeDoc(document);
    return (valid && !text.empty() ? "0\n" : "1\n") + messages + text;
  }

  std::string Service(xmlNode* service) {
    int rotate = 0, files = 0, sync = 0, cpu = 0, write = 0;
    std::string groups;
    for (xmlNode* child : Children(service)) {
      const std::string element = Name(child);
      if (element == "logRotateSizeKBytes") Number(child, "value", &rotate);
      if (element == "maxCompressdFiles") Number(child, "value", &files);
      if (element == "syncSeconds") Number(child, "value", &sync);
      if (element == "cpuSets") cpu = Get(child, "value") == "little" ? 1 : Get(child, "value") == "big" ? 2 : 0;
      if (element == "writeMode") write = Get(child, "value") != "mmap";
      if (element == "quilcatGroup") groups += Group(child);
    }
    valid = valid && !groups.empty();
    return "------------- printQuilcatInfo begin -------------\n" + Line("name", "s") +
           Line("rotate_size_kbytes", rotate) + Line("maxCompressdFiles", files) + Line("cpu_set", cpu) +
           Line("writeMode", write) + (sync > 0 ? Line("sync_seconds", sync) : "") + groups +
           "------------- printQuilcatInfo end ---------------\n";
  }

  std::string Group(xmlNode* group) {
    const std::vector<std::string> kStyles = {"monitor_node", "monitor_dir", "poll_node", "poll_cmd"};
    int style = 0, poll = 0, retry = 0;
    bool keeps = false;
    Text output;
    std::string inputs;
    for (xmlNode* child : Children(group)) {
      const std::string element = Name(child);
      if (element == "logStyle") {
        for (int i = 0; i < 4 && inputs.empty(); ++i)
          style = Get(child, "value") == kStyles[static_cast<size_t>(i)] ? i + 1 : style;
        Number(child, "interval", &poll);
        Number(child, "failureRetry", &retry);
        keeps = keeps || Get(child, "onWriteFailure") == "retry";
      } else if (element == "outputFilePath") {
        output = Get(child, "value") ? Value(child) : output;
      } else if (element == "inputNodeSet") {
        inputs += style % 2 == 1 ? NodeSet(child) : "";
      } else if (element == "inputDirSet") {
        if (style == 2 && !inputs.empty()) messages += "Only support one inputDirSet!\n";
        if (style == 2 && inputs.empty()) inputs = Directory(child);
      } else if (element == "inputCmdSet") {
        inputs += style == 4 ? Command(child) : "";
      } else {
        messages += "Unsupport quilcatGroup para [" + element + "]!\n";
      }
    }
    valid = valid && output && !inputs.empty();
    char owner[32];
    snprintf(owner, sizeof owner, "%p", static_cast<void*>(&record));
    return "~~~~~~ QuilcatGroup begin ~~~~~~\n" + Line("polling_interval", poll) + Line("failureRetry", retry) +
           Line("style", style) + Line("output_file_path", output) + Line("info", owner) +
           (keeps ? Line("on_write_failure", 1) : "") + inputs + "~~~~~~ QuilcatGroup end ~~~~~~~~\n";
  }

  std::string NodeSet(xmlNode* set) {
    const Text data = First(set, "dataPath");
    const std::string others = All(set, "alterdataPath", "alter_data_path");
    int width = 0;
    for (xmlNode* child : Children(set, "width")) {
      if (width == 0) Number(child, "value", &width);
    }
    valid = valid && (data || !others.empty());
    return Line("data_path", data) + Line("title_path", First(set, "titlePath")) + Line("title", First(set, "title")) +
           Line("width", width) + others;
  }

  std::string Directory(xmlNode* set) {
    const Text path = First(set, "inputDirPath");
    valid = valid && path;
    return Line("inputDirPath", path) + All(set, "pickNode", "pickNode");
  }

  std::string Command(xmlNode* set) {
    const std::vector<xmlNode*> commands = Children(set, "command");
    const Text command = commands.empty() ? Text() : Value(commands[0]);
    valid = valid && command;
    return Line("command", command);
  }

  static inline QuilcatInfo_t record;  ///< one for all: the dump tells its address
  bool valid = true;
  std::string messages;

#define LOOK_UP(function) decltype(&::function) function = LookUp<decltype(&::function)>(#function)
  LOOK_UP(xmlParseFile);
  LOOK_UP(xmlDocGetRootElement);
  LOOK_UP(xmlGetProp);
  LOOK_UP(xmlFreeDoc);
  LOOK_UP(xmlSetGenericErrorFunc);
#undef LOOK_UP
};

/// A document formed from arbitrary bytes. Most of it is close to a configuration.
class ConfigDocument {
 public:
  ConfigDocument(const uint8_t* data, size_t size) : next(data), end(data + size) {}
  std::string Form() { return "<c>" + Level(0) + "</c>"; }

 private:
  using Texts = std::vector<std::string>;
  size_t Below(size_t count) { return next != end ? *next++ % count : 0; }
  std::string Pick(const Texts& texts) { return texts[Below(texts.size())]; }

  std::string Value() {
    static const Texts kValues = {"monitor_node",
                                  "monitor_dir",
                                  "poll_node",
                                  "poll_cmd",
                                  "mmap",
                                  "factory",
                                  "little",
                                  "big",
                                  "retry",
                                  "s",
                                  "S",
                                  "/d",
                                  "",
                                  "0",
                                  "5",
                                  "-5",
                                  "+7x",
                                  " 12 ",
                                  "0x10",
                                  "2147483648",
                                  "4294967301",
                                  "99999999999999999999",
                                  "-99999999999999999999",
                                  "&#9;1",
                                  "&lt;&amp;",
                                  "\xc3\xa4",
                                  "%s%n"};
    return Below(16) == 0 ? std::string(255 + Below(2), 'x') : Pick(kValues);
  }

  /// Some elements: services, their settings, what a group holds, what an input holds. In them % stands for a value and
  /// @ for elements of the next level.
  std::string Level(size_t level) {
    static const Texts kElements[] = {
        {"<quilcat name='s'>@</quilcat>", "<quilcat name='s'>@</quilcat>", "<quilcat name='%'>@</quilcat>",
         "<quilcat/><o><quilcat name='s'/></o>"},
        {"<logRotateSizeKBytes value='%'/>", "<maxCompressdFiles value='%'/><o/>", "<syncSeconds value='%'/>",
         "<cpuSets value='%'/>", "<cpuSets value='big'/>", "<cpuSets/>", "<writeMode value='%'/>", "<writeMode/>",
         "<quilcatGroup>@</quilcatGroup>",
         "<quilcatGroup><logStyle value='poll_cmd'/><outputFilePath value='/o'/>@</quilcatGroup>",
         "<quilcatGroup><logStyle value='poll_node'/><outputFilePath value='/o'/>@</quilcatGroup>",
         "<quilcatGroup><logStyle value='monitor_dir'/><outputFilePath value='/o'/>@</quilcatGroup>"},
        {"<logStyle value='%'/>", "<logStyle interval='%' failureRetry='%' onWriteFailure='%'/>",
         "<logStyle value='monitor_node' onWriteFailure='retry'/>", "<outputFilePath value='%'/>", "<outputFilePath/>",
         "<inputNodeSet>@</inputNodeSet>", "<inputNodeSet><dataPath value='/n'/>@</inputNodeSet>",
         "<inputDirSet>@</inputDirSet>", "<inputDirSet>@<inputDirPath value='/d'/></inputDirSet>",
         "<inputCmdSet><command value='%'/>@</inputCmdSet>", "<inputCmdSet>@</inputCmdSet>", "<other>@</other>"},
        {"<dataPath value='%'/>", "<titlePath value='%'/>", "<title value='%'/>", "<alterdataPath value='%'/>",
         "<width value='%'/>", "<width value='6'/><width value='%'/>", "<inputDirPath value='%'/>",
         "<pickNode value='%'/>", "<command value='%'/>", "<dataPath/><alterdataPath/><command/>", "<pickNode/>",
         "text<!-- @ --><![CDATA[<width value='9'/>]]>"}};
    std::string text;
    for (size_t count = level == 0 ? 3 : Below(6); count > 0 && level < 4; --count) {
      for (const char c : Pick(kElements[level]))
        text += c == '%' ? Value() : c == '@' ? Level(level + 1) : std::string(1, c);
    }
    return text;
  }

  const uint8_t* next;
  const uint8_t* end;
};
