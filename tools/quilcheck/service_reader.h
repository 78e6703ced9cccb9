#ifndef QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_
#define QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_

#include <libxml/tree.h>

#include <memory>
#include <string>
#include <vector>

#include "config/quilcommon.h"

namespace Quilcheck {

struct FreeGroup {
  void operator()(QuilCommon::QuilcatGroup_t* group) const;
};
struct FreeService {
  void operator()(QuilCommon::QuilcatInfo_t* info) const;
};

/// A node set as the daemon reads it, and its element.
struct NodeSetReading {
  const xmlNode* element;
  const QuilCommon::QuilcatInputNodeSet_t* record;  ///< the group's
};

/// A command or directory as the daemon reads it, and its element.
struct TextReading {
  const xmlNode* element;
  const QuilCommon::QuilcatStrList_t* record;  ///< the group's
};

/// An input that the daemon passes over.
struct DroppedInput {
  const xmlNode* element;
  QuilCommon::type_style style;  ///< of the group when the input comes
  bool isEarly;                  ///< it comes before any logStyle
};

/// A group as the daemon reads it, and which elements its parts come from.
struct GroupReading {
  const xmlNode* element = nullptr;
  const xmlNode* style = nullptr;   ///< the last logStyle
  const xmlNode* output = nullptr;  ///< the last outputFilePath that has a value
  std::unique_ptr<QuilCommon::QuilcatGroup_t, FreeGroup> record;
  std::vector<NodeSetReading> nodeSets;
  std::vector<TextReading> texts;
  std::vector<DroppedInput> dropped;

  bool Streams() const { return record->style == QuilCommon::STYLE_MONITOR_NODE; }
  bool Polls() const { return record->style == QuilCommon::STYLE_POLL_NODE; }
  std::string Output() const { return record->output_file_path != nullptr ? record->output_file_path : ""; }
};

/// A service as the daemon's own reader reads it with the system properties at the time of ReadService.
struct ServiceReading {
  std::string name;
  const xmlNode* element = nullptr;
  bool valid = false;  ///< a process started for it collects; otherwise it idles
  std::unique_ptr<QuilCommon::QuilcatInfo_t, FreeService> record;
  std::vector<GroupReading> groups;
  std::string whyWriteMode;
};

/// Reads service `name`, the one described by `element`, from `document` with the daemon's reader. What the reader
/// prints is dropped. The document has to outlive the result. One thread.
ServiceReading ReadService(xmlDoc* document, xmlNode* element, const std::string& name);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_
