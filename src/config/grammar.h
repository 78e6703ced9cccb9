#ifndef QUILCAT_CONFIG_GRAMMAR_H_
#define QUILCAT_CONFIG_GRAMMAR_H_

#include <stddef.h>
#include <stdint.h>

#include "config/records.h"

/// What a configuration file consists of, in one table: the reader dispatches by it; quilcheck's rules, the schema and
/// the table of docs/configuration.md are made from it.
namespace ConfigGrammar {

/// What the text of an attribute means, and so what becomes of it.
enum class Kind : uint8_t {
  Name,       ///< of a service
  Number,     ///< a whole number from 0 to INT_MAX, like the next two
  Kilobytes,  ///< of KiB
  Seconds,
  Keyword,
  Style,      ///< a keyword that counts while the group has no inputs
  WriteMode,  ///< a keyword that the device's properties may overrule
  Output,     ///< path of a log, like the next three a text
  Node,
  Column,  ///< path of a node, or a word for the time
  Directory,
  Text,
};

/// What a second element of the same name and parent does.
enum class Repeat : uint8_t {
  Adds,
  Replaces,      ///< what the first has set
  FillsUp,       ///< counts where those before have set nothing
  IsPassedOver,  ///< whatever the first has
};

struct Attribute {
  const char* name;  ///< null after the last attribute
  Kind kind;
  uint16_t field;  ///< offset in the record of the parent: size_t, 32-bit code, text, or list of texts (Adds)
  uint8_t firstCode;
  int8_t otherwise;      ///< code of any other text and of none; -1: the field is left as it was
  const char* keywords;  ///< separated by blanks, with the codes firstCode and following
  const char* fallback;  ///< the default, for people
  const char* meaning;   ///< a sentence for people

  bool IsNumber() const { return kind == Kind::Number || kind == Kind::Kilobytes || kind == Kind::Seconds; }
};

struct Element {
  const char* parent;
  const char* name;
  Repeat repeat;
  QuilCommon::InputKind brings;  ///< inputs of a group
  const char* meaning;           ///< of an element that holds others, which has no attributes with an effect
  Attribute attributes[5];

  bool HoldsOthers() const { return meaning != nullptr; }
  /// An element is nothing without its only attribute.
  bool Needs(const Attribute& attribute) const { return &attribute == attributes && attributes[1].name == nullptr; }
};

/// The parent of the services: the root element, which may have any name.
constexpr char kRoot[] = "";
/// In mmap mode a start adds a file, and the oldest is told by the gap of one free index among 1000.
constexpr size_t kMostOrderedFiles = 998;
constexpr size_t kMostMappedKilobytes = size_t{2} << 20;  ///< a file of mmap mode

/// The table, in the order in which one writes a file, up to a row without a name.
extern const Element kElements[];

/// The row of element `name` below `parent`; null when it does not belong there.
const Element* Find(const char* parent, const char* name);

}  // namespace ConfigGrammar

#endif  // QUILCAT_CONFIG_GRAMMAR_H_
