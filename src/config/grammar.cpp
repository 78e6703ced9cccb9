#include "config/grammar.h"

#include <string.h>

using namespace QuilCommon;

namespace ConfigGrammar {

namespace {

using Info = QuilcatInfo_t;
using Group = QuilcatGroup_t;
using NodeSet = QuilcatInputNodeSet_t;
using Texts = QuilcatStrList_t;

constexpr Element Leaf(const char* parent, const char* name, Repeat repeat, const Attribute& first,
                       const Attribute& second = {}, const Attribute& third = {}, const Attribute& fourth = {}) {
  return {parent, name, repeat, INPUT_NONE, nullptr, {first, second, third, fourth, {}}};
}

constexpr Element Holder(const char* parent, const char* name, InputKind brings, const char* meaning) {
  return {parent, name, Repeat::Adds, brings, meaning, {}};
}

constexpr Attribute Value(Kind kind, uint16_t field, const char* fallback, const char* meaning) {
  return {"value", kind, field, 0, -1, nullptr, fallback, meaning};
}

constexpr Attribute Words(const char* words, uint16_t field, const char* fallback, const char* meaning,
                          Kind kind = Kind::Keyword, uint8_t firstCode = 1, int8_t otherwise = -1) {
  return {"value", kind, field, firstCode, otherwise, words, fallback, meaning};
}

constexpr Attribute Named(const char* name, Attribute attribute) {
  attribute.name = name;
  return attribute;
}

}  // namespace

const Element kElements[] = {
    {kRoot,
     "quilcat",
     Repeat::Adds,
     INPUT_NONE,
     "a service",
     {Named("name",
            Value(Kind::Name, 0, "none", "what follows `quilcat -b`; of several of one name the first counts"))}},
    Leaf("quilcat", "logRotateSizeKBytes", Repeat::Replaces,
         Value(Kind::Kilobytes, offsetof(Info, rotate_size_kbytes), "0",
               "KiB of text at which a new file starts; 0: never. One starts anyhow where a file of mmap mode comes to "
               "2 GiB; in factory mode values from 4 GiB on are a little less than that, which an archive can hold")),
    Leaf("quilcat", "maxCompressdFiles", Repeat::Replaces,
         Value(Kind::Number, offsetof(Info, maxCompressdFiles), "0",
               "log files kept of each output, 1 to 998 in mmap mode: a start adds one, and where every index is there "
               "the next start takes 000 for the oldest and deletes the newest first. In factory mode a fifth of it, "
               "rounded up, is the number of archives kept. More than 1000 counts as 1000")),
    Leaf("quilcat", "cpuSets", Repeat::Replaces,
         Words("little big", offsetof(Info, cpu_set), "none",
               "`little` binds the process to CPUs 0 to 3; `big` is recorded and binds nothing; other texts are none",
               Kind::Keyword, CPU_SET_LITTLE, CPU_SET_NONE)),
    Leaf("quilcat", "writeMode", Repeat::Replaces,
         Words("mmap factory", offsetof(Info, writeMode), "mmap",
               "what files are like, see \"Write mode\"; with any other text, or without one, factory", Kind::WriteMode,
               WRITE_MMAP, WRITE_FACTORY)),
    Leaf("quilcat", "syncSeconds", Repeat::Replaces,
         Value(
             Kind::Seconds, offsetof(Info, sync_seconds), "0",
             "time between two times that the newest file is brought to disk while text comes; 0: the kernel decides")),
    Leaf("quilcat", "emptyFiles", Repeat::Replaces,
         Words("remove", offsetof(Info, empty_files), "keep",
               "in mmap mode a start first deletes the newest files that hold no text. Without it a device that dies "
               "again and again before any text has pushed all history out after as many starts as files are kept")),
    Holder("quilcat", "quilcatGroup", INPUT_NONE, "a group: one collector with its own thread and output"),
    Leaf("quilcatGroup", "logStyle", Repeat::Replaces,
         Words("monitor_node monitor_dir poll_node poll_cmd", offsetof(Group, style), "none",
               "what the group reads, see \"Styles\". Comes before the inputs: those before it, or of another "
               "style, are passed over, and after them it does not change any more",
               Kind::Style),
         Named("interval", Value(Kind::Seconds, offsetof(Group, polling_interval), "0",
                                 "of `poll_node`: time between two rows; 0: no pause")),
         Named("failureRetry", Value(Kind::Number, offsetof(Group, failureRetry), "0",
                                     "failed reads before a reader gives up, see \"Failures\"")),
         Named("onWriteFailure",
               Words("retry", offsetof(Group, on_write_failure), "end",
                     "of `monitor_node`: what a stream does when an opening, a read or a write fails"))),
    Leaf("quilcatGroup", "outputFilePath", Repeat::Replaces,
         Value(Kind::Output, offsetof(Group, output_file_path), "none", "directory and base name of the log")),
    Holder("quilcatGroup", "inputNodeSet", INPUT_NODE_SETS,
           "one node; with `monitor_node`, which reads the first one only, and `poll_node`"),
    Leaf("inputNodeSet", "dataPath", Repeat::FillsUp,
         Value(Kind::Column, offsetof(NodeSet, data_path), "none",
               "the node. A text that begins with `DateTime` or `CurrentTime` is a column with the time instead")),
    Leaf("inputNodeSet", "alterdataPath", Repeat::Adds,
         Value(Kind::Node, offsetof(NodeSet, alter_data_path), "none",
               "with `poll_node` and without `dataPath`: the first of these that can be opened is read")),
    Leaf("inputNodeSet", "title", Repeat::FillsUp,
         Value(Kind::Text, offsetof(NodeSet, title), "none", "the column's heading; with `poll_node`")),
    Leaf("inputNodeSet", "titlePath", Repeat::FillsUp,
         Value(Kind::Node, offsetof(NodeSet, title_path), "none", "without `title`: a node whose text is the heading")),
    Leaf("inputNodeSet", "width", Repeat::FillsUp,
         Value(Kind::Number, offsetof(NodeSet, width), "0",
               "characters of the column, at most 8191; 0: each value at its own length")),
    Holder("quilcatGroup", "inputDirSet", INPUT_DIRECTORY, "a directory; with `monitor_dir`, once"),
    Leaf("inputDirSet", "inputDirPath", Repeat::FillsUp,
         Value(Kind::Directory, offsetof(Texts, str), "none", "the directory")),
    Leaf("inputDirSet", "pickNode", Repeat::Adds,
         Value(Kind::Text, offsetof(Texts, next), "none", "a file name in it")),
    Holder("quilcatGroup", "inputCmdSet", INPUT_COMMANDS, "one command; with `poll_cmd`"),
    Leaf("inputCmdSet", "command", Repeat::IsPassedOver, Value(Kind::Text, offsetof(Texts, str), "none", "its text")),
    {},
};

const Element* Find(const char* parent, const char* name) {
  for (const Element* element = kElements; element->name != nullptr; ++element) {
    if (strcmp(element->parent, parent) == 0 && strcmp(element->name, name) == 0) {
      return element;
    }
  }
  return nullptr;
}

}  // namespace ConfigGrammar
