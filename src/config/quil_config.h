#ifndef QUILCAT_CONFIG_QUIL_CONFIG_H_
#define QUILCAT_CONFIG_QUIL_CONFIG_H_

#include <stdio.h>

#include "config/quilcommon.h"

/// Fills, prints, examines and releases the description of one service. Main thread only.
class QuilConfig {
 public:
  using QuilcatInfo_t = QuilCommon::QuilcatInfo_t;
  using QuilcatGroup_t = QuilCommon::QuilcatGroup_t;
  using QuilcatInputNodeSet_t = QuilCommon::QuilcatInputNodeSet_t;

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

  /// Writes `info` to standard error, or elsewhere, one line per field.
  static void printQuilcatInfo(QuilcatInfo_t* info, FILE* to = stderr);

  /// Releases everything that `info` owns and fills it with zeros; it may be released again. Null does nothing.
  static void free_config_file(QuilcatInfo_t* info);
  /// Releases `group`, its inputs and its path, but not the groups after it. Null does nothing.
  static void free_logcatGroup(QuilcatGroup_t* group);
  /// Releases `set` and its texts, but not the sets after it. Null does nothing.
  static void free_inputNodeSet(QuilcatInputNodeSet_t* set);
};

#endif  // QUILCAT_CONFIG_QUIL_CONFIG_H_
