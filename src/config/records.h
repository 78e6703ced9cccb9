#ifndef QUILCAT_CONFIG_RECORDS_H_
#define QUILCAT_CONFIG_RECORDS_H_

#include <stdlib.h>

#include <functional>

#include "config/quilcommon.h"

/// Small operations on the records that the files of this folder share.
namespace QuilCommon {

/// Allocates a zero-filled record; null when there is no memory. Released by free.
template <typename Record>
Record* NewRecord() {
  return static_cast<Record*>(calloc(1, sizeof(Record)));
}

/// Appends a zero-filled record to a chain linked by `next`. Returns it; null, with the chain unchanged, when there is
/// no memory.
template <typename Record>
Record* Append(Record** chain) {
  while (*chain != nullptr) {
    chain = &(*chain)->next;
  }
  *chain = NewRecord<Record>();
  return *chain;
}

/// What the inputs of a style are. Switches over it name every kind and have no default, like those over the styles.
enum InputKind {
  INPUT_NONE,
  INPUT_NODE_SETS,  ///< a chain of QuilcatInputNodeSet_t
  INPUT_DIRECTORY,  ///< QuilcatStrList_t: the directory, then the picked names
  INPUT_COMMANDS,   ///< QuilcatStrList_t: one command each
};

inline InputKind InputKindOf(type_style style) {
  switch (style) {
    case STYLE_NONE:
      return INPUT_NONE;
    case STYLE_MONITOR_NODE:
    case STYLE_POLL_NODE:
      return INPUT_NODE_SETS;
    case STYLE_MONITOR_DIR:
      return INPUT_DIRECTORY;
    case STYLE_POLL_CMD:
      return INPUT_COMMANDS;
  }
  return INPUT_NONE;
}

/// The input chain of a group that streams or polls nodes.
inline QuilcatInputNodeSet_t* NodeSets(const QuilcatGroup_t* group) {
  return static_cast<QuilcatInputNodeSet_t*>(group->input);
}

/// The input chain of a group that watches a directory or lists commands.
inline QuilcatStrList_t* StringList(const QuilcatGroup_t* group) {
  return static_cast<QuilcatStrList_t*>(group->input);
}

/// Appends a zero-filled record to the inputs of `group`; null when there is no memory.
template <typename Record>
Record* AppendInput(QuilcatGroup_t* group) {
  auto* first = static_cast<Record*>(group->input);
  Record* added = Append(&first);
  group->input = first;
  return added;
}

/// Bytes of a record's text at most.
constexpr size_t kLongestText = 255;

/// Copies `text` into a new heap block of its length plus one byte; null when there is no memory. A text longer than
/// kLongestText becomes an empty string.
char* CopyText(const char* text);

/// Stores the number that `text` begins with: leading blanks, a sign, digits; without digits it is 0. A number that no
/// int can hold is cut to its low bits, like by atoi. A negative number leaves `*field` alone.
void ReadNumber(const char* text, size_t* field);

/// Tells whether system property `name` has the value `expected`; a missing property has the value "".
using PropertyLookUp = std::function<bool(const char* name, const char* expected)>;

/// A PropertyLookUp: that of this device.
bool PropertyIs(const char* name, const char* expected);

/// The write mode of a service that may run in factory mode: WRITE_FACTORY on a factory device ("ro.runmode" is
/// "factory"), and on an engineering build without "ro.build.version.vexa"; otherwise WRITE_MMAP.
type_write WriteModeOfDevice(const PropertyLookUp& propertyIs);

}  // namespace QuilCommon

#endif  // QUILCAT_CONFIG_RECORDS_H_
