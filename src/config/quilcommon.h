#ifndef QUILCAT_CONFIG_QUILCOMMON_H_
#define QUILCAT_CONFIG_QUILCOMMON_H_

#include <stddef.h>
#include <stdint.h>

// NOLINTBEGIN(readability-identifier-naming): these names were given.

/// The records that describe one service, and their codes.
///
/// A record is filled on the main thread before any collector thread exists and is only read afterwards, except that a
/// collector's constructor may lower maxCompressdFiles. Every string and record that a QuilcatInfo_t reaches is a heap
/// block of its own, made by malloc or calloc and released by the free operations of QuilConfig; strings are exactly
/// their length plus one byte long. `info` is the one borrowed link.
namespace QuilCommon {

/// How collectors write.
enum type_write : uint32_t {
  WRITE_MMAP = 0,     ///< gzip members appended through a sliding mapping, in indexed files
  WRITE_FACTORY = 1,  ///< plain files, rotated through five numbers and then archived
};

/// What a group reads. The kind of its `input` list follows from it. A switch over it names every style and has no
/// default: the compiler then leads whoever adds one from place to place.
enum type_style : uint32_t {
  STYLE_NONE = 0,          ///< no style: such a group is invalid
  STYLE_MONITOR_NODE = 1,  ///< streams one node; input: QuilcatInputNodeSet_t chain
  STYLE_MONITOR_DIR = 2,   ///< input: QuilcatStrList_t, the directory, then the picked names
  STYLE_POLL_NODE = 3,     ///< reads all nodes once an interval; input: QuilcatInputNodeSet_t chain
  STYLE_POLL_CMD = 4,      ///< input: QuilcatStrList_t chain, one command text each
};

/// What a streaming group does with a line that its output refuses.
enum type_write_failure : uint32_t {
  WRITE_FAILURE_END = 0,    ///< the stream ends
  WRITE_FAILURE_RETRY = 1,  ///< the line is kept and tried again, and nothing is read meanwhile
};

/// What a start in mmap mode does with files of its outputs that hold no text.
enum type_empty_files : uint32_t {
  EMPTY_FILES_KEEP = 0,
  EMPTY_FILES_REMOVE = 1,
};

/// CPUs that a service is bound to.
enum : uint32_t {
  CPU_SET_NONE = 0,
  CPU_SET_LITTLE = 1,  ///< CPUs 0 to 3
  CPU_SET_BIG = 2,     ///< recorded, binds nothing
};

struct QuilcatInfo_t;

/// One entry of a string list.
struct QuilcatStrList_t {
  char* str;  ///< null when the configuration gave no value
  QuilcatStrList_t* next;
};

/// One node of a group that streams or polls nodes.
struct QuilcatInputNodeSet_t {
  size_t width;      ///< column width in characters; 0: the value's own length
  char* data_path;   ///< the node; a text that begins with "DateTime" or "CurrentTime" means a time stamp
  char* title_path;  ///< a node that holds the column's title
  char* title;       ///< the column's title
  QuilcatStrList_t* alter_data_path;  ///< nodes to try in order when there is no data_path
  QuilcatInputNodeSet_t* next;
};

/// One group: one collector with its own worker thread and output.
struct QuilcatGroup_t {
  size_t polling_interval;  ///< seconds between two polling passes
  size_t failureRetry;      ///< failed reads after which a reader gives up; 0: no retry
  type_style style;
  QuilcatInfo_t* info;  ///< borrowed: the service that owns the group
  void* input;          ///< first input record, of the kind that `style` tells
  char* output_file_path;
  QuilcatGroup_t* next;
  type_write_failure on_write_failure;  ///< of a group that streams; other styles ignore it
};

/// One service. All zeros before it is filled and after it is released.
struct QuilcatInfo_t {
  size_t rotate_size_kbytes;  ///< KiB written at which a new file starts; 0: never
  size_t maxCompressdFiles;   ///< log files kept of each output
  uint32_t cpu_set;
  type_write writeMode;
  char* name;
  QuilcatGroup_t* group_list;
  size_t sync_seconds;  ///< time between two syncs of a file that is written; 0: the kernel decides
  type_empty_files empty_files;
};

}  // namespace QuilCommon
// NOLINTEND(readability-identifier-naming)

#endif  // QUILCAT_CONFIG_QUILCOMMON_H_
