#include "logfile/file_names.h"

#include <ctype.h>
#include <string.h>

#include "safestr/safestr.h"

namespace {

bool IsDigit(char c) {
  return isdigit(static_cast<unsigned char>(c)) != 0;
}

}  // namespace

/// "log_tmp", "_tmp" -> "log"; empty when nothing stands before the end, or another one does.
std::string FileNames::without(const std::string& name, const char* end) {
  const size_t length = strlen(end);
  const bool hasEnd = name.size() > length && name.compare(name.size() - length, length, end) == 0;
  return hasEnd ? name.substr(0, name.size() - length) : std::string();
}

std::string FileNames::indexed(const std::string& output, int32_t index, const std::string& timeStamp) {
  char number[kIndexLength + 1];
  snprintf_s(number, sizeof number, sizeof number - 1, "%03d", index);
  return output + ".I" + number + '.' + timeStamp + kGzip;
}

FileNames::Indexed FileNames::parseIndexed(const std::string& name) {
  constexpr char kPattern[] = ".I000.00000000-000000.gz";
  static_assert(sizeof kPattern - 1 == kSuffixLength);
  if (name.size() <= kSuffixLength || name[name.size() - kSuffixLength - 1] == '/') {
    return {};
  }
  const size_t start = name.size() - kSuffixLength;
  for (size_t i = 0; i < kSuffixLength; ++i) {
    if (kPattern[i] == '0' ? !IsDigit(name[start + i]) : name[start + i] != kPattern[i]) {
      return {};
    }
  }
  return {name.substr(0, start), name.substr(start + kIndexOffset, kIndexLength),
          name.substr(start + kTimeStampOffset, kTimeStampLength)};
}

std::string FileNames::outputOfRotated(const std::string& name) {
  const int number = name.empty() ? 0 : name.back() - '0';
  return number >= 1 && number <= kFilesPerArchive ? without(name, rotated("", number).c_str()) : std::string();
}

std::string FileNames::outputOfArchive(const std::string& name) {
  const std::string numbered = without(name, kArchiveEnd);
  const size_t dash = numbered.rfind('-');
  return dash != std::string::npos && IsDigit(numbered[dash + 1]) ? numbered.substr(0, dash) : std::string();
}

std::vector<std::string> FileNames::oldStyle(const std::string& output) {
  std::vector<std::string> names;
  for (int number = 0; number < kOldStyleNumbers; ++number) {
    names.push_back(rotated(output, number));
    names.push_back(archive(output, number));
  }
  return names;
}
