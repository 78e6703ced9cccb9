#ifndef QUILCAT_FUZZ_CONFIG_CASE_H_
#define QUILCAT_FUZZ_CONFIG_CASE_H_

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "choices.h"
#include "config/quil_config.h"

/// A configuration file formed from arbitrary bytes, and beside it what has to come out of its first service "s" on a
/// device without properties. Of 256 choices `mistakes` go wrong: with 0 the file is all right, with 255 hardly a file.
/// It can be written in a test device only.
class ConfigCase {
 public:
  using QuilcatInfo_t = QuilCommon::QuilcatInfo_t;
  static constexpr char kPath[] = "/system/etc/quilcat_config.xml";

  ConfigCase(const uint8_t* data, size_t size, size_t mistakes) : choices(data, size), wrong(mistakes) {
    Begin("quilcatConfigs");
    xml += '>';
    for (const std::string right : {"s", "t", "u"}) {
      if (Wrong()) xml += Pick("<quilcat/>|<other><quilcat name='s'/></other>");
      const std::string name = Wrong() ? Pick("s|S|ss|") : right;
      Begin("quilcat");
      xml += " name='" + name + "'>";
      const std::string outcome = Service();
      if (name == "s" && expected == "1\n") expected = outcome;
      xml += "</quilcat>";
    }
    xml += "</quilcatConfigs>";
  }

  const std::string& Document() const { return xml; }

  /// Tells how the outcome differs from what it has to be; empty: not at all.
  std::string Compare() const {
    std::ofstream(kPath) << xml;
    const std::string actual = Fill(QuilConfig::parse_config_file, "s");
    return actual == expected ? "" : xml + "\ngives\n" + actual + "\nand not\n" + expected;
  }

  /// What `fill` returns, and what it and, if asked for, the dump of its record print.
  static std::string Fill(const std::function<int(const char*, QuilcatInfo_t*)>& fill, const char* name,
                          bool dump = false) {
    static char* text;
    static size_t size;
    static FILE* sink = open_memstream(&text, &size);  // never closed: the parser keeps it for its own complaints
    rewind(sink);
    FILE* standardError = std::exchange(stderr, sink);
    const int result = fill(name, &record);
    if (dump) QuilConfig::printQuilcatInfo(&record);
    fflush(std::exchange(stderr, standardError));
    const QuilcatInfo_t kZeros{};
    for (int i = 0; i < 2; ++i) QuilConfig::free_config_file(&record);
    const bool released = memcmp(&record, &kZeros, sizeof record) == 0;
    return std::to_string(result) + '\n' + (released ? std::string(text, size) : "not released");
  }

 private:
  using Text = std::optional<std::string>;

  size_t Below(size_t count) { return choices.Below(count); }
  bool Wrong() { return Below(256) >= 256 - wrong; }
  /// One of the texts between the bars.
  std::string Pick(const std::string& texts) {
    size_t at = 0;
    for (auto n = Below(1 + static_cast<size_t>(std::count(texts.begin(), texts.end(), '|'))); n > 0; --n) {
      at = texts.find('|', at) + 1;
    }
    return texts.substr(at, texts.find('|', at) - at);
  }

  // Parts of the file. Each adds itself to it and returns what the reader makes of it.

  Text Attribute(const char* name, std::string value) {
    static constexpr char kValues[] =
        "monitor_node|monitor_dir|poll_node|poll_cmd|mmap|factory|little|big|LITTLE|retry|remove|/d|/d/|d|/"
        "d\ne|DateTime|"
        "/data/log/o1/o||0|5|7|-5|+7x| 12 |\t1|0x10|1M|2147483648|4294967301|99999999999999999999|"
        "-99999999999999999999|<&|\xc3\xa4|%s%n|s";
    if (Wrong()) {
      const size_t kind = Below(8);
      if (kind < 2) return {};
      value = kind == 2 ? std::string(255 + Below(2), 'x') : Pick(kValues);
    }
    xml += std::string(" ") + name + "='";
    for (const char c : value)
      xml += strchr("<&\t\n", c) != nullptr ? "&#" + std::to_string(c) + ';' : std::string(1, c);
    xml += '\'';
    return value.size() < 256 ? value : "";
  }
  void Number(const Text& text, int* field) {
    const int number = atoi(text.value_or("-1").c_str());
    if (number >= 0) *field = number;
  }
  /// Begins an element, perhaps with something before it, and an attribute that nobody knows.
  void Begin(const std::string& name) {
    if (Wrong() && !xml.empty()) xml += Pick("text|<!-- <width value='9'/> -->|<![CDATA[<quilcat>]]>|<?instruction?>");
    xml += '<' + name;
    if (Wrong()) xml += Pick(" xmlns='urn:x'| a=''");
  }
  Text Element(const std::string& name, const std::string& right) {
    Begin(name);
    const Text value = Attribute("value", right);
    xml += "/>";
    return value;
  }
  /// An element that belongs nowhere but in the root element. Returns its name.
  std::string Stranger() {
    const std::string name = Pick("other|quilcat|Width|interval|maxCompressedFiles");
    Element(name, "s");
    return name;
  }
  void First(const char* name, const std::string& right, Text* field) {
    const Text value = Element(name, right);
    if (!*field) *field = value;
  }
  static std::string Line(std::string label, const Text& text) {
    label.resize(18, ' ');
    return label + ": " + text.value_or("(null)") + '\n';
  }
  static std::string Line(const char* label, int number) { return Line(label, std::to_string(number)); }

  std::string Service() {
    int rotate = 0, files = 0, sync = 0, cpu = 0, write = 0, empty = 0;
    std::string groups, messages;
    bool valid = true;
    Text value;
    for (size_t count = Below(6); count > 0; --count) {
      const size_t kind = Below(8);
      if (kind == 0) Number(Element("logRotateSizeKBytes", "64"), &rotate);
      if (kind == 1) Number(Element("maxCompressdFiles", Pick("998|5")), &files);
      if (kind == 2) Number(Element("syncSeconds", "30"), &sync);
      if (kind == 3) cpu = (value = Element("cpuSets", Pick("little|big"))) == "little" ? 1 : value == "big" ? 2 : 0;
      if (kind == 4) write = Element("writeMode", Pick("mmap|factory")) != "mmap";
      if (kind == 5 && Element("emptyFiles", "remove") == "remove") empty = 1;
      if (kind >= 6) groups += Group(1 + Below(4), &valid, &messages);
      if (Wrong()) Stranger();
    }
    if (!Wrong()) groups += Group(1 + 2 * Below(2), &valid, &messages);  // one that collects
    return (valid && !groups.empty() ? "0\n" : "1\n") + messages +
           "------------- printQuilcatInfo begin -------------\n" + Line("name", "s") +
           Line("rotate_size_kbytes", rotate) + Line("maxCompressdFiles", files) + Line("cpu_set", cpu) +
           Line("writeMode", write) + (sync > 0 ? Line("sync_seconds", sync) : "") +
           (empty > 0 ? Line("empty_files", empty) : "") + groups +
           "------------- printQuilcatInfo end ---------------\n";
  }

  std::string Group(size_t style, bool* valid, std::string* messages) {
    static const std::vector<std::string> kStyles = {"none", "monitor_node", "monitor_dir", "poll_node", "poll_cmd"};
    int poll = 0, retry = 0;
    bool keeps = false;
    Text output, value;
    std::string inputs;
    Begin("quilcatGroup");
    xml += '>';
    if (Wrong()) style = 0;
    if (!Wrong()) output = Element("outputFilePath", NextOutput());
    xml += "<logStyle value='" + kStyles[style] + "'/>";
    for (size_t count = 1 + Below(5); count > 0; --count) {
      const size_t kind = inputs.empty() && count == 1 ? 2 : Below(6);
      if (kind == 0) {
        Begin("logStyle");
        value = Attribute("value", kStyles[style]);
        for (size_t i = 1; i < 5 && inputs.empty(); ++i) style = value == kStyles[i] ? i : style;
        Number(Attribute("interval", Pick("5|1")), &poll);
        Number(Attribute("failureRetry", "3"), &retry);
        keeps = Attribute("onWriteFailure", "retry") == "retry" || keeps;
        xml += "/>";
      }
      if (kind == 1) output = (value = Element("outputFilePath", NextOutput())) ? value : output;
      if (kind >= 2 && !Wrong()) inputs += Input(style, inputs.empty(), valid, messages);
      if (Wrong()) *messages += "Unsupport quilcatGroup para [" + Stranger() + "]!\n";
    }
    xml += "</quilcatGroup>";
    *valid = *valid && output && !inputs.empty();
    char owner[32];
    snprintf(owner, sizeof owner, "%p", static_cast<void*>(&record));
    return "~~~~~~ QuilcatGroup begin ~~~~~~\n" + Line("polling_interval", poll) + Line("failureRetry", retry) +
           Line("style", static_cast<int>(style)) + Line("output_file_path", output) + Line("info", owner) +
           (keeps ? Line("on_write_failure", 1) : "") + inputs + "~~~~~~ QuilcatGroup end ~~~~~~~~\n";
  }

  std::string NextOutput() { return "/data/log/o" + std::to_string(outputs++) + "/o"; }

  /// The inputs of a group, of the kind that its style has.
  std::string Input(size_t style, bool isFirst, bool* valid, std::string* messages) {
    const size_t right = style == 2 ? 0 : style == 4 ? 1 : 2;
    if (style == 2 && !isFirst && !Wrong()) return "";
    const size_t kind = Wrong() ? Below(3) : right;
    if (kind == 1) return Command(style == 4, valid);
    if (kind == 2) return NodeSet(style, valid);
    if (style == 2 && !isFirst) *messages += "Only support one inputDirSet!\n";
    return Directory(style == 2 && isFirst, valid);
  }

  std::string NodeSet(size_t style, bool* valid) {
    const bool polls = style == 3;
    Text data, titlePath, title;
    std::string others;
    int width = 0, ignored = 0;
    Begin("inputNodeSet");
    xml += '>';
    for (size_t count = Below(6); count > 0; --count) {
      const size_t kind = Below(6);
      if (kind == 0) First("titlePath", "/dev/t", &titlePath);
      if (kind == 1) First("title", Pick("T|Title"), &title);
      if (kind == 2) others += Line("alter_data_path", Element("alterdataPath", "/dev/m"));
      if (kind == 3) Number(Element("width", Pick("30|0|4|12")), width == 0 ? &width : &ignored);
      if (kind >= 4) First("dataPath", polls ? Pick("/dev/n|DateTime|CurrentTime") : "/dev/n", &data);
      if (Wrong()) Stranger();
    }
    if (!data && (!polls || others.empty()) && !Wrong()) First("dataPath", "/dev/n", &data);
    xml += "</inputNodeSet>";
    if (style % 2 == 0) return "";
    *valid = *valid && (data || !others.empty());
    return Line("data_path", data) + Line("title_path", titlePath) + Line("title", title) + Line("width", width) +
           others;
  }

  std::string Directory(bool counts, bool* valid) {
    Text path;
    std::string picks;
    Begin("inputDirSet");
    xml += '>';
    for (size_t count = Wrong() ? 0 : 1 + Below(4); count > 0; --count) {
      if (Below(2) == 0) picks += Line("pickNode", Element("pickNode", "p"));
      First("inputDirPath", "/d/", &path);
    }
    xml += "</inputDirSet>";
    if (!counts) return "";
    *valid = *valid && path;
    return Line("inputDirPath", path) + picks;
  }

  std::string Command(bool counts, bool* valid) {
    Begin("inputCmdSet");
    xml += '>';
    if (Wrong()) Stranger();
    const size_t commands = Wrong() ? Below(3) : 1;
    const Text command = commands > 0 ? Element("command", "c") : Text();  // the first, with or without a value
    if (commands > 1) Element("command", "c");
    xml += "</inputCmdSet>";
    if (!counts) return "";
    *valid = *valid && command;
    return Line("command", command);
  }

  static inline QuilcatInfo_t record;  ///< one for all: the dump tells its address
  Choices choices;
  const size_t wrong;
  int outputs = 0;
  std::string xml, expected = "1\n";
};

#endif  // QUILCAT_FUZZ_CONFIG_CASE_H_
