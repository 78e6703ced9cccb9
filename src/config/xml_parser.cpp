#include "config/xml_parser.h"

#include <dlfcn.h>
#include <stdio.h>

namespace {

/// Points `*function` to what the library calls `name`; null when it has no such function.
template <typename Function>
bool LookUp(void* library, const char* name, Function* function) {
  *function = reinterpret_cast<Function>(dlsym(library, name));
  return *function != nullptr;
}

bool LoadLibrary(XmlParser* parser) {
  void* library = dlopen("/system/lib64/libxml2.so", RTLD_LAZY);
  parser->handle = library;
  return library != nullptr && LookUp(library, "xmlParseFile", &parser->parseFile) &&
         LookUp(library, "xmlDocGetRootElement", &parser->docGetRootElement) &&
         LookUp(library, "xmlFreeDoc", &parser->freeDoc) && LookUp(library, "xmlGetProp", &parser->getProp) &&
         LookUp(library, "xmlStrcmp", &parser->compare);
}

}  // namespace

int initLibxml2(XmlParser* parser) {
  *parser = {};
  if (LoadLibrary(parser)) {
    return 0;
  }
  fprintf(stderr, "initLibxml2: dlopen or dlsym return error\n");
  return 1;
}

void releaseLibxml2(XmlParser* parser) {
  if (parser->handle != nullptr) {
    dlclose(parser->handle);
  }
  *parser = {};
}
