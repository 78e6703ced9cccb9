#ifndef QUILCAT_COLLECT_COLUMN_FORMAT_H_
#define QUILCAT_COLLECT_COLUMN_FORMAT_H_

#include <stddef.h>

/// What the columns of a polled row look like, for the collector and for tools that tell it beforehand.
namespace ColumnFormat {

constexpr size_t kWidest = 8191;              ///< characters written of a column at most
constexpr char kReadFailure[] = "Read Fail";  ///< in place of a value that cannot be read

/// A data path that begins so is a time stamp, formed from year, month, day, hour, minute and second.
constexpr char kDateTime[] = "DateTime";
constexpr char kDateTimeForm[] = "%.4d-%.2d-%.2d %.2d:%.2d:%.2d > ";
constexpr char kCurrentTime[] = "CurrentTime";
constexpr char kCurrentTimeForm[] = "\ncurrent time: %d-%d-%d %d:%d:%d\r\n";

}  // namespace ColumnFormat

#endif  // QUILCAT_COLLECT_COLUMN_FORMAT_H_
