#ifndef QUILCAT_CONFIG_XML_PARSER_H_
#define QUILCAT_CONFIG_XML_PARSER_H_

#include <libxml/parser.h>
#include <libxml/tree.h>

/// libxml2, bound at run time. Its headers give the types only: nothing here links against the library, so the
/// daemon starts on a device that does not have it. A program that is linked with it gives the functions itself.
struct XmlParser {
  void* handle;
  decltype(&xmlParseFile) parseFile;
  decltype(&xmlDocGetRootElement) docGetRootElement;
  decltype(&xmlFreeDoc) freeDoc;
  decltype(&xmlGetProp) getProp;
  decltype(&xmlStrcmp) compare;
};

/// Loads libxml2 and looks up the five functions used. Returns 0, or 1 with a message on standard error. Either way
/// releaseLibxml2 has to follow.
int initLibxml2(XmlParser* parser);

/// Closes the library and clears `*parser`. Does nothing when it is clear.
void releaseLibxml2(XmlParser* parser);

#endif  // QUILCAT_CONFIG_XML_PARSER_H_
