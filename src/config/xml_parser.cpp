#include "config/xml_parser.h"

#include <dlfcn.h>
#include <stdio.h>

#include "config/quil_config.h"

XmlParser xmlParser;

namespace {

/// Points `*function` to what the library calls `name`; null when it has no such function.
template <typename Function>
bool LookUp(const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(xmlParser.handle, name));
  return *function != nullptr;
}

bool LoadLibrary() {
  xmlParser.handle = dlopen("/system/lib64/libxml2.so", RTLD_LAZY);
  return xmlParser.handle != nullptr && LookUp("xmlParseFile", &xmlParser.parseFile) &&
         LookUp("xmlDocGetRootElement", &xmlParser.docGetRootElement) && LookUp("xmlFreeDoc", &xmlParser.freeDoc) &&
         LookUp("xmlGetProp", &xmlParser.getProp) && LookUp("xmlStrcmp", &xmlParser.compare);
}

}  // namespace

int QuilConfig::initLibxml2() {
  if (LoadLibrary()) {
    return 0;
  }
  fprintf(stderr, "initLibxml2: dlopen or dlsym return error\n");
  return 1;
}

void releaseLibxml2() {
  if (xmlParser.handle != nullptr) {
    dlclose(xmlParser.handle);
  }
  xmlParser = {};
}
