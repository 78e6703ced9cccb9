#ifndef QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_
#define QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_

#include <libxml/tree.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/quilcommon.h"

namespace Quilcheck {

/// Names and values of system properties.
using Properties = std::map<std::string, std::string>;

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
  const xmlNode* style = nullptr;                      ///< the last logStyle
  const xmlNode* output = nullptr;                     ///< the last outputFilePath that has a value
  const QuilCommon::QuilcatGroup_t* record = nullptr;  ///< the service's
  std::vector<NodeSetReading> nodeSets;
  std::vector<TextReading> texts;
  std::vector<DroppedInput> dropped;

  bool Streams() const { return record->style == QuilCommon::STYLE_MONITOR_NODE; }
  bool Polls() const { return record->style == QuilCommon::STYLE_POLL_NODE; }
  std::string Output() const { return record->output_file_path != nullptr ? record->output_file_path : ""; }
};

/// A service as the daemon's own reader reads it.
struct ServiceReading {
  std::string name;
  xmlNode* element = nullptr;
  bool valid = false;  ///< a process started for it collects; otherwise it idles
  std::unique_ptr<QuilCommon::QuilcatInfo_t, FreeService> record;
  std::vector<GroupReading> groups;
  std::string whyWriteMode;
};

/// Reads service `name`, the one described by `element`, with the daemon's reader: with these system properties, others
/// as this machine has them. The document has to outlive the result.
ServiceReading ReadService(xmlNode* element, const std::string& name, const Properties& properties);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_SERVICE_READER_H_
