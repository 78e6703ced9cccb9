#ifndef QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_INPUT_H_
#define QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_INPUT_H_

#include <archive.h>
#include <stdint.h>
#include <sys/types.h>
#include <zlib.h>

#include <string>

#include "quillog/bytes/byte_range.h"

/// The bytes of a container as libarchive asks for them: of a file or a stream, inflated where they are a gzip file. So
/// what a header takes and what inflating makes is bounded here, where all of it passes.
class ContainerInput {
 public:
  enum class Form { kZip, kTar, kGzipTar };

  /// A zip has to be a file. Of a stream, `head` was read.
  ContainerInput(const ByteRange& from, Form what);
  ContainerInput(int from, std::string beginning, Form what);
  ~ContainerInput();
  ContainerInput(const ContainerInput&) = delete;
  ContainerInput& operator=(const ContainerInput&) = delete;

  /// Begins at the first byte. False: libarchive's error tells why not.
  bool Open(archive* reader);
  /// What libarchive asks for next is a header: one that wants more than a header needs breaks off.
  void ExpectHeader() { allowed = form == Form::kZip ? kMostDirectory : kMostHeader; }
  void ExpectData() { allowed = UINT64_MAX; }

  /// True when bytes can be passed over without reading them.
  bool CanSeek() const { return stream < 0 && form != Form::kGzipTar; }
  /// Bytes read of the container so far.
  uint64_t taken() const { return read; }

  /// True when `made` bytes from `of` are more than text would give; the first `allowance` are let through.
  static bool Explodes(uint64_t made, uint64_t of, uint64_t allowance);
  static constexpr uint64_t kFileAllowance = uint64_t{256} << 20;
  static constexpr uint64_t kPileAllowance = uint64_t{1} << 30;
  static constexpr char kExplosion[] = "expands to more than 500 times its size: not read further";

 private:
  static constexpr uint64_t kMostHeader = uint64_t{4} << 20;
  static constexpr uint64_t kMostDirectory = uint64_t{128} << 20;  ///< of a zip: about a million entries

  static la_ssize_t Read(archive* reader, void* self, const void** bytes);
  static la_int64_t Skip(archive* reader, void* self, la_int64_t wanted);
  static la_int64_t Seek(archive* reader, void* self, la_int64_t offset, int whence);
  ssize_t Fill();
  ssize_t Inflate();

  ByteRange file;
  const int stream = -1;
  const std::string head;
  const Form form;
  uint64_t position = 0;
  uint64_t read = 0;
  uint64_t made = 0;  ///< by inflating
  uint64_t allowed = UINT64_MAX;
  std::string buffer;
  std::string text;  ///< inflated
  z_stream inflater = {};
  bool isInMember = false;
  bool isAtEnd = false;
  const char* fault = nullptr;
};

#endif  // QUILCAT_TOOLS_QUILLOG_PILE_CONTAINER_INPUT_H_
