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

  /// What `fill` returns, and what it and the dump of its record print.
  static std::string Fill(const std::function<int(const char*, QuilcatInfo_t*)>& fill, const char* name,
                          bool dump = false) {
    static char* text;
    static size_t size;
    static FILE* sink = open_memstream(&text, &size);  // never closed: the parser keeps it for its own complaints
    QuilcatInfo_t& info = Record();
    rewind(sink);
    FILE* standardError = std::exchange(stderr, sink);
    const int result = fill(name, &info);
    if (dump) QuilConfig::printQuilcatInfo(&info);
    fflush(std::exchange(stderr, standardError));
    const QuilcatInfo_t kZeros{};
    QuilConfig::free_config_file(&info);
    QuilConfig::free_config_file(&info);
    const bool released = memcmp(&info, &kZeros, sizeof info) == 0;
    return std::to_string(result) + '\n' + std::string(text, size) + (released ? "" : "not all zeros");
  }

  /// Has `document` read for service "s", and tells how the outcome differs from what it should be; empty: not at all.
  static std::string Compare(const std::string& document) {
    std::ofstream(kPath) << document;
    const std::string actual = Fill(QuilConfig::parse_config_file, "s");
    ConfigModel model;
    const std::string expected = model.Read();
    // The parser's complaints come first. Without a service there is nothing else.
    const bool same = actual[0] == (model.valid ? '0' : '1') && actual.size() >= expected.size() &&
                      actual.compare(actual.size() - expected.size(), expected.size(), expected) == 0 &&
                      (!expected.empty() || actual.find("printQuilcatInfo") == std::string::npos);
    return same ? "" : document + "\ngives\n" + actual + "\nand not\n" + expected;
  }

 private:
  using Text = std::optional<std::string>;

  /// One record for all, since the dump tells its address.
  static QuilcatInfo_t& Record() {
    static QuilcatInfo_t record;
    return record;
  }

  ~ConfigModel() { dlclose(library); }
  template <typename F>
  F Function(const char* name) {
    return reinterpret_cast<F>(dlsym(library, name));
  }

  Text Get(xmlNode* node, const char* attribute) {
    xmlChar* value = getProp(node, reinterpret_cast<const xmlChar*>(attribute));
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
    xmlDoc* document = Function<decltype(&xmlParseFile)>("xmlParseFile")(kPath);
    if (document == nullptr) return "";
    std::string text;
    xmlNode* root = Function<decltype(&xmlDocGetRootElement)>("xmlDocGetRootElement")(document);
    for (xmlNode* node : Children(root, "quilcat")) {
      if (text.empty() && Get(node, "name") == "s") text = Service(node);
    }
    Function<decltype(&xmlFreeDoc)>("xmlFreeDoc")(document);
    return text;
  }

  std::string Service(xmlNode* service) {
    int rotate = 0, files = 0, sync = 0, cpu = 0, write = 0;
    std::string groups;
    valid = true;
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
    return messages + "------------- printQuilcatInfo begin -------------\n" + Line("name", "s") +
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
        for (size_t i = 0; i < kStyles.size() && inputs.empty(); ++i) {
          if (Get(child, "value") == kStyles[i]) style = static_cast<int>(i) + 1;
        }
        Number(child, "interval", &poll);
        Number(child, "failureRetry", &retry);
        keeps = keeps || Get(child, "onWriteFailure") == "retry";
      } else if (element == "outputFilePath") {
        if (Get(child, "value")) output = Value(child);
      } else if (element == "inputNodeSet") {
        if (style % 2 == 1) inputs += NodeSet(child);
      } else if (element == "inputDirSet") {
        if (style == 2 && !inputs.empty()) messages += "Only support one inputDirSet!\n";
        if (style == 2 && inputs.empty()) inputs = Directory(child);
      } else if (element == "inputCmdSet") {
        if (style == 4) inputs += Command(child);
      } else {
        messages += "Unsupport quilcatGroup para [" + element + "]!\n";
      }
    }
    valid = valid && output && !inputs.empty();
    char owner[32];
    snprintf(owner, sizeof owner, "%p", static_cast<void*>(&Record()));
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

  bool valid = false;
  std::string messages;
  void* library = dlopen(kLibrary, RTLD_LAZY);
  decltype(&xmlGetProp) getProp = Function<decltype(&xmlGetProp)>("xmlGetProp");
};

/// A document formed from arbitrary bytes: the root's children are services, theirs settings and groups, and so on
/// down; most of it is close to a configuration.
class ConfigDocument {
 public:
  ConfigDocument(const uint8_t* data, size_t size) : next(data), end(data + size) {
    while (next != end && text.size() < 60000) AddElement(0);
    text = "<c>" + text + "</c>";
  }
  const std::string& Text() const { return text; }

 private:
  using Texts = std::vector<std::string>;

  size_t Below(size_t count) { return next != end ? *next++ % count : 0; }
  std::string Pick(const Texts& texts) { return texts[Below(texts.size())]; }

  std::string Value() {
    if (Below(16) == 0) return std::string(253 + Below(6), 'x');
    return Pick({"monitor_node",
                 "monitor_dir",
                 "poll_node",
                 "poll_cmd",
                 "MONITOR_DIR",
                 "mmap",
                 "factory",
                 "little",
                 "big",
                 "retry",
                 "s",
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
                 "%s%n"});
  }

  /// Adds an element of `level`: a service, a setting, what a group holds, what an input holds, or something else.
  void AddElement(size_t level) {
    static const Texts kNames[] = {
        {"quilcat"},
        {"quilcatGroup", "quilcatGroup", "quilcatGroup", "logRotateSizeKBytes", "maxCompressdFiles", "cpuSets",
         "writeMode", "syncSeconds"},
        {"logStyle", "outputFilePath", "inputNodeSet", "inputDirSet", "inputCmdSet"},
        {"dataPath", "titlePath", "title", "alterdataPath", "width", "inputDirPath", "pickNode", "command"},
        {"other"}};
    text += Pick({"", "", "", "text", "<!-- comment -->", "<![CDATA[<quilcat>]]>", "<?instruction?>"});
    const std::string name = Pick(kNames[Below(16) != 0 ? level : Below(5)]);
    text += '<' + name;
    if (name == "quilcat") text += " name='" + (Below(8) != 0 ? "s" : Value()) + '\'';
    if (Below(8) != 0) text += " value='" + Value() + '\'';
    if (Below(2) != 0)
      text += ' ' + Pick({"interval", "failureRetry", "onWriteFailure", "Value"}) + "='" + Value() + '\'';
    text += '>';
    if (name == "quilcatGroup" && Below(8) != 0) text += Group();
    for (size_t children = level < 4 ? Below(5) : 0; children > 0 && next != end; --children) AddElement(level + 1);
    text += "</" + name + '>';
  }

  /// What makes a group valid, which chance would seldom have.
  std::string Group() {
    return "<outputFilePath value='/o'/>" +
           Pick({"<logStyle value='monitor_node'/><inputNodeSet><dataPath value='/n'/></inputNodeSet>",
                 "<logStyle value='poll_node'/><inputNodeSet><alterdataPath/></inputNodeSet>",
                 "<logStyle value='monitor_dir'/><inputDirSet><inputDirPath value='/d'/></inputDirSet>",
                 "<logStyle value='poll_cmd'/><inputCmdSet><command value='c'/></inputCmdSet>",
                 "<logStyle value='monitor_dir'/>", "<logStyle value='poll_cmd'/>", "<logStyle value='poll_node'/>"});
  }

  const uint8_t* next;
  const uint8_t* end;
  std::string text;
};
