// quilcheck survives any configuration file, and takes a service for valid when the daemon does.
//
// Input that begins with "<" is a file; other bytes form one.

#include <fstream>

#include "config_case.h"
#include "quilcheck/report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string file(reinterpret_cast<const char*>(data), size);
  std::ofstream(ConfigCase::kPath) << (file[0] == '<' ? file : ConfigCase(data, size, 64).Document());
  Quilcheck::Report report;
  std::string reason;
  if (Quilcheck::Check({ConfigCase::kPath, "", {}, "/", "", 1, true}, &report, &reason)) {
    for (const Quilcheck::ServiceReading& service : report.services) Summary(service);
    Json(report, true);
    const bool isValid = std::any_of(report.services.begin(), report.services.end(),
                                     [](const auto& service) { return service.name == "s" && service.valid; });
    if (isValid != (ConfigCase::Fill(QuilConfig::parse_config_file, "s")[0] == '0')) abort();
  }
  return 0;
}
