// Services as they come from real files in /system/etc, from the built-in definitions, and out of a shortage of memory.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <filesystem>

#include "../fuzz/config_case.h"
#include "config/record_transfer.h"
#include "device.h"
#include "fault_injection.h"

using Device::WriteFile;

namespace {

constexpr char kLibrary[] = "/system/lib64/libxml2.so";
constexpr char kService[] =
    "<c><quilcat name='s'><syncSeconds value='30'/><emptyFiles value='remove'/><quilcatGroup><logStyle "
    "value='poll_node' onWriteFailure='retry'/>"
    "<outputFilePath value='/o'/><inputNodeSet><dataPath value='/n'/><alterdataPath value='/a'/><title value='t'/>"
    "</inputNodeSet></quilcatGroup><quilcatGroup><logStyle value='monitor_dir'/><outputFilePath "
    "value='/o'/><inputDirSet>"
    "<inputDirPath value='/d'/><pickNode value='p'/></inputDirSet></quilcatGroup></quilcat></c>";

std::string FromFile(const char* name) {
  const std::string text = ConfigCase::Fill(QuilConfig::parse_config_file, name);
  EXPECT_EQ(dlopen(kLibrary, RTLD_LAZY | RTLD_NOLOAD), nullptr) << "the parser stayed loaded";
  return text;
}
std::string BuiltIn(const char* name) {
  return ConfigCase::Fill(QuilConfig::parseDefault, name, true);
}

}  // namespace

TEST(Config, SampleGivesTheBuiltInServicesWhateverTheProperties) {
  // CMake puts the samples beside this program.
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  const auto fromSample = [&](const char* file, const char* name) {
    WriteFile(ConfigCase::kPath, Device::ReadFile(program.parent_path() / file));
    return FromFile(name);
  };
  const std::string none = BuiltIn("kmsglogcat2");
  EXPECT_EQ(fromSample("quilcat_samples.xml", "thermallogcat")[0], '0');
  const std::string kModes[] = {"", "factory", "normal"}, kTypes[] = {"", "eng", "user"};
  for (size_t i = 0; i < 3 * 3 * 2 * 2; ++i) {
    const std::string mode = kModes[i % 3], type = kTypes[i / 3 % 3];
    const bool vexa = i / 9 % 2 != 0, recovery = i / 18 != 0;
    SCOPED_TRACE(mode + '/' + type + '/' + std::to_string(vexa) + '/' + std::to_string(recovery));
    Device::SetProperty("ro.runmode", mode);
    Device::SetProperty("ro.build.type", type);
    Device::SetProperty("ro.build.version.vexa", vexa ? "1" : "");
    Device::SetProperty("init.svc.recovery", recovery ? "running" : "stopped");
    const bool factory = mode == "factory" || (type == "eng" && !vexa);
    const std::string keeps = "on_write_failure  : 1\n";
    std::string kernel = fromSample("quilcat_config.xml", "kmsglogcat");
    kernel.erase(kernel.find(keeps), keeps.size());
    EXPECT_EQ(kernel[0], '0');
    EXPECT_NE(kernel.find(factory ? "writeMode         : 1\n" : "writeMode         : 0\n"), std::string::npos);
    EXPECT_EQ(BuiltIn("kmsglogcat"), recovery ? none : kernel);
    const std::string charge = fromSample("quilcat_samples.xml", "chargelogcat");
    EXPECT_EQ(charge[0], '0');
    EXPECT_EQ(BuiltIn("chargelogcat"), recovery ? none : charge);
  }
}

TEST(Config, TheFirstFileThatExistsHasTheLastWord) {
  WriteFile(ConfigCase::kPath, kService);
  const std::string service = FromFile("s");
  WriteFile("/system/etc/quilcat_config_cc.xml", kService);
  WriteFile(ConfigCase::kPath, "");
  EXPECT_EQ(FromFile("s"), service);
  // A name that nobody gave finds no service, though one has it.
  const std::string unnamed = std::string(kService).replace(strlen("<c><quilcat name='"), 1, "");
  for (const std::string text : {"<c/>", "<c><quilcat name='t'/></c>", unnamed.c_str()}) {
    WriteFile("/system/etc/quilcat_config_cs.xml", text);
    for (const char* name : {"s", "kmsglogcat", "", static_cast<const char*>(nullptr)}) {
      EXPECT_EQ(FromFile(name), "1\n") << text;
    }
  }
}

TEST(Config, BuiltInServicesAreForDevicesWithoutAFileOrParser) {
  const auto withDump = [](const char* name) { return ConfigCase::Fill(QuilConfig::parse_config_file, name, true); };
  EXPECT_EQ(withDump("kmsglogcat"), BuiltIn("kmsglogcat"));
  EXPECT_EQ(BuiltIn(nullptr), BuiltIn("kmsglogcat2"));
  const std::string expected = BuiltIn("chargelogcat").insert(2, "initLibxml2: dlopen or dlsym return error\n");
  WriteFile(ConfigCase::kPath, kService);
  const std::string library = Device::ReadFile(kLibrary);
  while (umount(kLibrary) == 0) {
  }
  ASSERT_EQ(unlink(kLibrary), 0);
  // No library at all, then one that lacks a function.
  for (const std::string missing :
       {"", "xmlParseFile", "xmlDocGetRootElement", "xmlFreeDoc", "xmlGetProp", "xmlStrcmp"}) {
    if (!missing.empty()) {
      const size_t symbol = library.find('\0' + missing + '\0');
      ASSERT_NE(symbol, std::string::npos);
      WriteFile(kLibrary, std::string(library).replace(symbol + 1, 1, "_"));
    }
    EXPECT_EQ(withDump("chargelogcat"), expected) << missing;
  }
}

/// Each allocation fails in turn. A built-in service needs them all; of a file's an element is skipped, or a text is
/// missing, and the rest is as ever.
TEST(Config, WithoutMemory) {
  WriteFile(ConfigCase::kPath, kService);
  const struct {
    int (*fill)(const char*, QuilCommon::QuilcatInfo_t*);
    const char* name;
    int allocations;
  } kCases[] = {{QuilConfig::parseDefault, "kmsglogcat", 5},
                {QuilConfig::parseDefault, "chargelogcat", 12},
                {QuilConfig::parse_config_file, "s", 14}};
  for (const auto& test : kCases) {
    const std::string complete = ConfigCase::Fill(test.fill, test.name, true), none = BuiltIn("");
    for (int n = 1; n <= test.allocations + 1; ++n) {
      const auto fill = [&](const char* name, QuilCommon::QuilcatInfo_t* info) {
        const FailNthCall fault("allocation", n);
        return test.fill(name, info);
      };
      const std::string text = ConfigCase::Fill(fill, test.name, true);
      EXPECT_EQ(text == complete, n > test.allocations) << n << text;
      if (test.fill == QuilConfig::parseDefault || n == 1) {
        EXPECT_EQ(text, n > test.allocations ? complete : none) << n;
      }
      for (const std::string& line : Device::Lines(text == none ? "" : text.substr(2))) {
        EXPECT_TRUE(complete.find(line) != std::string::npos || line.find(": (null)") == 18) << line;
      }
    }
  }
}

TEST(Config, GoesToAnotherProcessWholeOrNotAtAll) {
  WriteFile(ConfigCase::kPath, kService);
  char* bytes = nullptr;
  size_t size = 0;
  const auto send = [&](const char* name, QuilCommon::QuilcatInfo_t* info) {
    const int result = QuilConfig::parse_config_file(name, info);
    FILE* to = open_memstream(&bytes, &size);
    EXPECT_TRUE(RecordTransfer::send(to, info));
    fclose(to);
    return result;
  };
  const std::string complete = ConfigCase::Fill(send, "s"), none = BuiltIn("");
  const auto receive = [&](size_t arriving, int failing) {
    const auto fill = [&](const char*, QuilCommon::QuilcatInfo_t* info) {
      FILE* from = fmemopen(bytes, arriving, "r");
      const FailNthCall fault("allocation", failing);
      const bool received = RecordTransfer::receive(from, info);
      fclose(from);
      return received ? 0 : 1;
    };
    return ConfigCase::Fill(fill, "s", true);
  };
  constexpr int kAllocations = 14;
  for (size_t arriving = 0; arriving <= size; ++arriving) {
    EXPECT_EQ(receive(arriving, kAllocations + 1), arriving == size ? complete : none) << arriving;
  }
  for (int n = 1; n <= kAllocations; ++n) {
    EXPECT_EQ(receive(size, n), none) << n;
  }
  free(bytes);
}
