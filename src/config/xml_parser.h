#ifndef QUILCAT_CONFIG_XML_PARSER_H_
#define QUILCAT_CONFIG_XML_PARSER_H_

#include <libxml/parser.h>
#include <libxml/tree.h>

/// libxml2, bound at run time. Its headers give the types only: nothing here links against the library, so the
/// daemon starts on a device that does not have it.
///
/// In the daemon all members are null except while QuilConfig::parse_config_file runs. A program that is linked with
/// libxml2 may set the functions itself, with a null handle, and use the readers of QuilConfig. Main thread only.
struct XmlParser {
  void* handle;
  decltype(&xmlParseFile) parseFile;
  decltype(&xmlDocGetRootElement) docGetRootElement;
  decltype(&xmlFreeDoc) freeDoc;
  decltype(&xmlGetProp) getProp;
  decltype(&xmlStrcmp) compare;
};

extern XmlParser xmlParser;

/// Closes the library and clears xmlParser. Does nothing when it is clear.
void releaseLibxml2();

#endif  // QUILCAT_CONFIG_XML_PARSER_H_
