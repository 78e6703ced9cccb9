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
/// device without properties. The file can be written in a test device only.
class ConfigCase {
 public:
  using QuilcatInfo_t = QuilCommon::QuilcatInfo_t;
  static constexpr char kPath[] = "/system/etc/quilcat_config.xml";

  ConfigCase(const uint8_t* data, size_t size) : choices(data, size) {
    for (int i = 0; i < 3; ++i) {
      const std::string name = Pick("s|s|S|ss|");
      xml += "<quilcat/><other><quilcat name='s'/></other><quilcat name='" + name + "'>";
      const std::string outcome = Service();
      if (name == "s" && expected == "1\n") expected = outcome;
      xml += "</quilcat>";
    }
    xml = "<c>" + xml + "</c>";
  }

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
  /// One of the texts between the bars.
  std::string Pick(const std::string& texts) {
    size_t at = 0;
    for (auto n = Below(1 + static_cast<size_t>(std::count(texts.begin(), texts.end(), '|'))); n > 0; --n) {
      at = texts.find('|', at) + 1;
    }
    return texts.substr(at, texts.find('|', at) - at);
  }

  // Parts of the file. Each adds itself to it and returns what the reader makes of it.

  Text Attribute(const char* name) {
    if (Below(5) == 0) return {};
    static constexpr char kValues[] =
        "monitor_node|monitor_dir|poll_node|poll_cmd|mmap|factory|little|big|LITTLE|retry|remove|/d||0|5|7|-5|+7x| 12 "
        "|\t1|0x10|"
        "2147483648|4294967301|99999999999999999999|-99999999999999999999|<&|\xc3\xa4|%s%n";
    const size_t length = 255 + Below(32);
    const std::string value = length < 257 ? std::string(length, 'x') : Pick(kValues);
    xml += std::string(" ") + name + "='";
    for (const char c : value)
      xml += c == '<' || c == '&' || c == '\t' ? "&#" + std::to_string(c) + ';' : std::string(1, c);
    xml += '\'';
    return value.size() < 256 ? value : "";
  }
  void Number(const Text& text, int* field) {
    const int number = atoi(text.value_or("-1").c_str());
    if (number >= 0) *field = number;
  }
  Text Element(const std::string& name) {
    xml += Pick("||text|<!-- <width value='9'/> -->|<![CDATA[<quilcat>]]>|<?instruction?>") + '<' + name;
    const Text value = Attribute("value");
    xml += "/>";
    return value;
  }
  void First(const char* name, Text* field) {
    const Text value = Element(name);
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
    for (size_t count = 1 + Below(5); count > 0; --count) {
      const size_t kind = Below(10);
      if (kind == 0) Number(Element("logRotateSizeKBytes"), &rotate);
      if (kind == 1) Number(Element("maxCompressdFiles"), &files);
      if (kind == 2) Number(Element("syncSeconds"), &sync);
      if (kind == 3) cpu = (value = Element("cpuSets")) == "little" ? 1 : value == "big" ? 2 : 0;
      if (kind == 4) write = Element("writeMode") != "mmap";
      if (kind == 5) Element("other");
      if (kind == 6 && Element("emptyFiles") == "remove") empty = 1;
      if (kind >= 7) groups += Group(&valid, &messages);
    }
    return (valid && !groups.empty() ? "0\n" : "1\n") + messages +
           "------------- printQuilcatInfo begin -------------\n" + Line("name", "s") +
           Line("rotate_size_kbytes", rotate) + Line("maxCompressdFiles", files) + Line("cpu_set", cpu) +
           Line("writeMode", write) + (sync > 0 ? Line("sync_seconds", sync) : "") +
           (empty > 0 ? Line("empty_files", empty) : "") + groups +
           "------------- printQuilcatInfo end ---------------\n";
  }

  std::string Group(bool* valid, std::string* messages) {
    static const std::vector<std::string> kStyles = {"none", "monitor_node", "monitor_dir", "poll_node", "poll_cmd"};
    size_t style = Below(5);
    int poll = 0, retry = 0;
    bool keeps = false;
    Text output = "/o", value;
    std::string inputs;
    xml += "<quilcatGroup><outputFilePath value='/o'/><logStyle value='" + kStyles[style] + "'/>";
    if (Below(8) == 0) {
      output = {};
      style = 0;
      xml.resize(xml.rfind("<outputFilePath"));
    }
    for (size_t count = 1 + Below(5); count > 0; --count) {
      const size_t kind = Below(7);
      if (kind == 0) {
        xml += "<logStyle";
        value = Attribute("value");
        for (size_t i = 1; i < 5 && inputs.empty(); ++i) style = value == kStyles[i] ? i : style;
        Number(Attribute("interval"), &poll);
        Number(Attribute("failureRetry"), &retry);
        keeps = Attribute("onWriteFailure") == "retry" || keeps;
        xml += "/>";
      }
      if (kind == 1) output = (value = Element("outputFilePath")) ? value : output;
      if (kind == 2) Element("other"), *messages += "Unsupport quilcatGroup para [other]!\n";
      if (kind == 3) inputs += Command(style == 4, valid);
      if (kind == 4 && style == 2 && !inputs.empty()) *messages += "Only support one inputDirSet!\n";
      if (kind == 4) inputs += Directory(style == 2 && inputs.empty(), valid);
      if (kind >= 5) inputs += NodeSet(style % 2 == 1, valid);
    }
    xml += "</quilcatGroup>";
    *valid = *valid && output && !inputs.empty();
    char owner[32];
    snprintf(owner, sizeof owner, "%p", static_cast<void*>(&record));
    return "~~~~~~ QuilcatGroup begin ~~~~~~\n" + Line("polling_interval", poll) + Line("failureRetry", retry) +
           Line("style", static_cast<int>(style)) + Line("output_file_path", output) + Line("info", owner) +
           (keeps ? Line("on_write_failure", 1) : "") + inputs + "~~~~~~ QuilcatGroup end ~~~~~~~~\n";
  }

  std::string NodeSet(bool counts, bool* valid) {
    Text data, titlePath, title;
    std::string others;
    int width = 0, ignored = 0;
    xml += "<inputNodeSet>";
    for (size_t count = Below(6); count > 0; --count) {
      const size_t kind = Below(7);
      if (kind == 0) First("titlePath", &titlePath);
      if (kind == 1) First("title", &title);
      if (kind == 2) others += Line("alter_data_path", Element("alterdataPath"));
      if (kind == 3) Number(Element("width"), width == 0 ? &width : &ignored);
      if (kind == 4) Element("inputDirPath");
      if (kind >= 5) First("dataPath", &data);
    }
    xml += "</inputNodeSet>";
    if (!counts) return "";
    *valid = *valid && (data || !others.empty());
    return Line("data_path", data) + Line("title_path", titlePath) + Line("title", title) + Line("width", width) +
           others;
  }

  std::string Directory(bool counts, bool* valid) {
    Text path;
    std::string picks;
    xml += "<inputDirSet>";
    for (size_t count = Below(5); count > 0; --count) {
      if (Below(2) == 0) picks += Line("pickNode", Element("pickNode"));
      First("inputDirPath", &path);
    }
    xml += "</inputDirSet>";
    if (!counts) return "";
    *valid = *valid && path;
    return Line("inputDirPath", path) + picks;
  }

  std::string Command(bool counts, bool* valid) {
    xml += "<inputCmdSet>";
    if (Below(2) == 0) Element("other");
    const size_t commands = Below(4);
    const Text command = commands > 0 ? Element("command") : Text();  // the first, with or without a value
    if (commands > 1) Element("command");
    xml += "</inputCmdSet>";
    if (!counts) return "";
    *valid = *valid && command;
    return Line("command", command);
  }

  static inline QuilcatInfo_t record;  ///< one for all: the dump tells its address
  Choices choices;
  std::string xml, expected = "1\n";
};

#endif  // QUILCAT_FUZZ_CONFIG_CASE_H_
