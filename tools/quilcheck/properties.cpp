// Answers the daemon's reader when it asks for a system property: the linker redirects its calls here (--wrap).

#include "quilcheck/properties.h"

#include "platform/system_properties.h"

namespace {

Quilcheck::Properties& Assumed() {
  static Quilcheck::Properties properties;
  return properties;
}

}  // namespace

extern "C" {

int __real___system_property_get(const char* name, char* value);

int __wrap___system_property_get(const char* name, char* value) {
  const auto assumed = Assumed().find(name);
  if (assumed == Assumed().end()) {
    return __real___system_property_get(name, value);
  }
  const size_t length = assumed->second.copy(value, PROP_VALUE_MAX - 1);
  value[length] = '\0';
  return static_cast<int>(length);
}
}

namespace Quilcheck {

void AssumeProperties(const Properties& properties) {
  Assumed() = properties;
}

}  // namespace Quilcheck
