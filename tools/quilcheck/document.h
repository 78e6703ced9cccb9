#ifndef QUILCAT_TOOLS_QUILCHECK_DOCUMENT_H_
#define QUILCAT_TOOLS_QUILCHECK_DOCUMENT_H_

#include <libxml/tree.h>

#include <optional>
#include <string>

#include "quilcheck/findings.h"

namespace Quilcheck {

/// Reads all of a regular file of at most 128 KiB. False, with `*reason`, for any other.
bool ReadPath(const std::string& path, std::string* text, std::string* reason);

/// A configuration file as libxml2 sees it: parsed with the options of xmlParseFile, without loading other files.
class Document {
 public:
  /// Reads and parses `path`. A file that is not well-formed gives findings and no root. False, with `*reason`: the
  /// file cannot be read, or nobody would give it to the daemon: it is not a regular file, larger than 128 KiB, or its
  /// entities expand to more than 1 MiB of text.
  bool Load(const std::string& path, Findings* findings, std::string* reason);

  Document() = default;
  ~Document() { xmlFreeDoc(document); }
  Document(const Document&) = delete;
  Document& operator=(const Document&) = delete;

  xmlDoc* get() const { return document; }
  /// The root element; null when there is no document.
  xmlNode* Root() const { return document != nullptr ? xmlDocGetRootElement(document) : nullptr; }

 private:
  xmlDoc* document = nullptr;
};

/// The next node in document order, without recursion; entities are not entered.
xmlNode* NextOf(xmlNode* node);
/// True for the element itself, too.
bool IsInside(const xmlNode* node, const xmlNode* element);
int LineOf(const xmlNode* node);
std::string NameOf(const xmlNode* node);
bool IsElement(const xmlNode* node, const char* name);
/// The text of an attribute as the daemon's reader gets it; empty optional when the element does not have it.
std::optional<std::string> AttributeOf(const xmlNode* element, const char* name);
/// The first child element of that name; null when there is none.
xmlNode* ChildOf(const xmlNode* element, const char* name);

}  // namespace Quilcheck

#endif  // QUILCAT_TOOLS_QUILCHECK_DOCUMENT_H_
