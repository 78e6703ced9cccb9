#ifndef QUILCAT_CONFIG_XML_READER_H_
#define QUILCAT_CONFIG_XML_READER_H_

#include <stdio.h>

#include <functional>

#include "config/grammar.h"
#include "config/xml_parser.h"

/// Reads a service out of a document, by the grammar. Main thread only.
///
/// Every value is an attribute. Children are read in document order; only groups report elements that do not belong.
/// Without memory an element is skipped, and a text leaves its field unchanged.
class XmlReader {
 public:
  /// Is told of each element that belongs where it is, before its children, and of the record that it was read into;
  /// of an input that is passed over with null.
  using Observer = std::function<void(xmlNode* element, void* record)>;

  /// Takes messages, and the dump of a service, to `to`; null drops them.
  XmlReader(const XmlParser& library, FILE* to, QuilCommon::PropertyLookUp lookUp, Observer watcher = {})
      : parser(library), messages(to), propertyIs(std::move(lookUp)), observer(std::move(watcher)) {}

  /// Reads service `name` from the first element of that name among `first` and its following siblings. Returns what
  /// parseQuilcat returns; 1 when there is no such element or an argument is null.
  int parseQuilcatConfigs(xmlDoc* document, xmlNode* first, const char* name, QuilCommon::QuilcatInfo_t* info) const;
  /// Reads, prints and examines one service. Returns 0 when it is valid, else 1.
  int parseQuilcat(xmlNode* service, const char* name, QuilCommon::QuilcatInfo_t* info) const;

 private:
  bool IsNamed(const xmlNode* node, const char* name) const;
  void ReadChildren(xmlNode* parent, const char* parentName, void* record) const;
  void ReadChild(xmlNode* node, const ConfigGrammar::Element& row, void* record) const;
  void ReadAttribute(xmlNode* node, const ConfigGrammar::Element& row, const ConfigGrammar::Attribute& attribute,
                     void* record) const;
  void StoreKeyword(const xmlChar* text, const ConfigGrammar::Attribute& attribute, void* field) const;
  void* Begin(const ConfigGrammar::Element& row, void* parent) const;

  const XmlParser parser;
  FILE* const messages;
  const QuilCommon::PropertyLookUp propertyIs;
  const Observer observer;
};

#endif  // QUILCAT_CONFIG_XML_READER_H_
