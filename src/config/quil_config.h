#ifndef QUILCAT_CONFIG_QUIL_CONFIG_H_
#define QUILCAT_CONFIG_QUIL_CONFIG_H_

#include "config/quilcommon.h"

// libxml2's own types; its headers stay with the files that read a document.
struct _xmlDoc;
struct _xmlNode;
typedef struct _xmlDoc xmlDoc;
typedef struct _xmlNode xmlNode;

/// Fills, prints, examines and releases the description of one service. Main thread only.
class QuilConfig {
 public:
  using QuilcatInfo_t = QuilCommon::QuilcatInfo_t;
  using QuilcatGroup_t = QuilCommon::QuilcatGroup_t;
  using QuilcatInputNodeSet_t = QuilCommon::QuilcatInputNodeSet_t;
  using QuilcatStrList_t = QuilCommon::QuilcatStrList_t;

  /// The files that may describe services; the first that exists is the only one read.
  static constexpr const char* kCandidates[] = {
      "/system/etc/quilcat_config_cs.xml",
      "/system/etc/quilcat_config_cc.xml",
      "/system/etc/quilcat_config.xml",
  };

  /// The services that parseDefault knows.
  static constexpr const char* kBuiltInServices[] = {"kmsglogcat", "chargelogcat"};

  /// Fills the zero-filled `info` with service `name` from the first of kCandidates that exists. Without any of them,
  /// or without /system/lib64/libxml2.so, parseDefault fills it. Returns 0 when `info` holds a valid service, else 1;
  /// what was filled until then stays in `info` and is the caller's to release with free_config_file.
  ///
  /// A service that a file describes is printed to standard error before it is examined. The library is loaded and
  /// unloaded within the call, and nothing in `info` points into the document.
  static int parse_config_file(const char* name, QuilcatInfo_t* info);

  /// Fills the zero-filled `info` with the built-in service `name`. Returns 0, or 1 with `info` still all zeros: a null
  /// argument, another name, recovery running, or no memory. Prints nothing.
  static int parseDefault(const char* name, QuilcatInfo_t* info);

  /// Returns 0 when `info` describes a service that can run: it has a name and groups, and each group has an output
  /// path, a style and the inputs that its style needs. Otherwise 1: one bad group rejects the whole service.
  static int checkQuilcatInfo(const QuilcatInfo_t* info);

  /// Writes `info` to standard error, one line per field.
  static void printQuilcatInfo(QuilcatInfo_t* info);

  /// Releases everything that `info` owns and fills it with zeros; it may be released again. Null does nothing.
  static void free_config_file(QuilcatInfo_t* info);
  /// Releases `group`, its inputs and its path, but not the groups after it. Null does nothing.
  static void free_logcatGroup(QuilcatGroup_t* group);
  /// Releases `set` and its texts, but not the sets after it. Null does nothing.
  static void free_inputNodeSet(QuilcatInputNodeSet_t* set);

  // The steps of parse_config_file.
  //
  // Without memory an element is skipped, and a text leaves its field unchanged. The readers
  // do nothing when an argument is null. All but initLibxml2 need xmlParser (xml_parser.h) bound to a library: by
  // initLibxml2, or by a program that is linked with one.

  /// Loads libxml2 and looks up the five functions used. Returns 0, or 1 with a message on standard error. Either way
  /// releaseLibxml2 (xml_parser.h) has to follow.
  static int initLibxml2();

  /// Reads service `name` from the first element of that name among `first` and its following siblings. Returns what
  /// parseQuilcat returns; 1 when there is no such element or an argument is null.
  static int parseQuilcatConfigs(xmlDoc* document, xmlNode* first, const char* name, QuilcatInfo_t* info);
  /// Reads, prints and examines one service. Returns 0 when it is valid, else 1.
  static int parseQuilcat(xmlNode* service, const char* name, QuilcatInfo_t* info);

  /// Sets the write mode: that of the device if it wants factory mode, otherwise the element's, where only "mmap" is
  /// WRITE_MMAP.
  static void parseXmlNodeWriteMode(xmlNode* node, QuilcatInfo_t* info);
  /// Appends a group and reads its children. Unknown children are reported on standard error.
  static void parseXmlNodeQuilcatGroup(xmlNode* node, QuilcatInfo_t* info);
  /// Reads style, interval, retry budget and what a failed write does. A group that has inputs keeps its style, which
  /// tells their kind.
  static void parseXmlNodeLogStyle(xmlNode* node, QuilcatGroup_t* group);
  /// Sets or replaces the output path.
  static void parseXmlNodeOutputFilePath(xmlNode* node, QuilcatGroup_t* group);
  /// Appends a node set to a group that streams or polls nodes, and reads its children.
  static void parseXmlNodeInputNodeSet(xmlNode* node, QuilcatGroup_t* group);
  /// Gives a group that watches a directory its directory and picked names. A second one is reported and skipped.
  static void parseXmlNodeInputDirSet(xmlNode* node, QuilcatGroup_t* group);
  /// Appends a command, the first child's, to a group that lists commands.
  static void parseXmlNodeInputCmdSet(xmlNode* node, QuilcatGroup_t* group);
  /// Stores a copy of the element's "value" and releases what `*field` held. Without a value nothing changes.
  static void parseXmlNodeStr(xmlNode* node, char** field);
  /// Appends an entry with the element's "value"; without a value its text is null.
  static void parseXmlNodeStrList(xmlNode* node, QuilcatStrList_t** list);
};

#endif  // QUILCAT_CONFIG_QUIL_CONFIG_H_
