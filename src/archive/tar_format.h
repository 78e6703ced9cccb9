#ifndef QUILCAT_ARCHIVE_TAR_FORMAT_H_
#define QUILCAT_ARCHIVE_TAR_FORMAT_H_

#include <stddef.h>
#include <stdint.h>

/// Layout of an archive: one gzip stream (RFC 1952) that holds a tar stream in the pre-POSIX form, which has no magic
/// and no extension fields. Each regular file is a header block and its bytes in blocks, the last one filled with
/// zeros; behind the last file stands a single block of zeros. Nothing else has an entry.
namespace TarFormat {

constexpr size_t kBlockSize = 512;

/// Where a header field lies in its block. What no field below covers is zero.
struct Field {
  size_t offset;
  size_t length;
};

constexpr Field kName = {0, 100};  ///< cut to fit; a NUL follows only when there is room
constexpr Field kMode = {100, 8};
constexpr Field kOwner = {108, 8};
constexpr Field kGroup = {116, 8};
constexpr Field kSize = {124, 12};     ///< octal digits, no leading zeros, NUL
constexpr Field kTime = {136, 12};     ///< stays zero: 1970
constexpr Field kChecksum = {148, 8};  ///< octal digits, NUL: sum of all header bytes, these eight taken as spaces
constexpr Field kType = {156, 1};      ///< stays zero: a regular file

/// Every entry is a regular file (0100000) that all may read and write and that belongs to root.
constexpr char kModeText[] = "100666 ";
constexpr char kOwnerText[] = "     0 ";
static_assert(sizeof(kModeText) == kMode.length, "the field holds the text and its NUL");
static_assert(sizeof(kOwnerText) == kOwner.length && sizeof(kOwnerText) == kGroup.length, "as above");

/// Sizes are 32-bit numbers.
constexpr int64_t kMaxFileSize = UINT32_MAX;

/// Longest entry name of a file that is named after its directory too.
constexpr size_t kMaxPrefixedName = 99;

}  // namespace TarFormat

#endif  // QUILCAT_ARCHIVE_TAR_FORMAT_H_
