#include "config/record_transfer.h"

#include <string.h>

#include "config/quil_config.h"
#include "config/records.h"

using namespace QuilCommon;

namespace {

/// Both ends walk the records in the same order. A record is sent byte for byte; each owning pointer in it is
/// then replaced by Text() or Chain(). The walk calls these even after a failure, so that no pointer of the receiver's
/// keeps an address of the sender's.
class Sender {
 public:
  explicit Sender(FILE* stream) : to(stream) {}

  template <typename Record>
  void Fields(Record* record) {
    Put(record, sizeof *record);
  }

  void Text(char** text) {
    const size_t size = *text != nullptr ? strlen(*text) + 1 : 0;
    Put(&size, sizeof size);
    if (size != 0) {
      Put(*text, size);
    }
  }

  template <typename Record, typename Walk>
  void Chain(Record** first, Walk walk) {
    for (Record* record = *first; record != nullptr; record = record->next) {
      PutMore(true);
      Fields(record);
      walk(record);
    }
    PutMore(false);
  }

  bool HasSucceeded() { return fflush(to) == 0 && ferror(to) == 0; }

 private:
  void Put(const void* bytes, size_t size) { fwrite(bytes, 1, size, to); }
  void PutMore(bool more) { Put(&more, sizeof more); }

  FILE* to;
};

class Receiver {
 public:
  explicit Receiver(FILE* stream) : from(stream) {}

  template <typename Record>
  void Fields(Record* record) {
    if (!Get(record, sizeof *record)) {
      *record = {};
    }
  }

  void Text(char** text) {
    *text = nullptr;
    size_t size = 0;
    if (!Get(&size, sizeof size) || size == 0) {
      return;
    }
    *text = static_cast<char*>(calloc(size, 1));
    succeeded = *text != nullptr;
    Get(*text, size);
  }

  template <typename Record, typename Walk>
  void Chain(Record** first, Walk walk) {
    *first = nullptr;
    while (GetMore()) {
      Record* record = Append(first);
      succeeded = record != nullptr;
      if (!succeeded) {
        return;
      }
      Fields(record);
      record->next = nullptr;
      walk(record);
    }
  }

  bool HasSucceeded() const { return succeeded; }

 private:
  bool Get(void* bytes, size_t size) {
    succeeded = succeeded && fread(bytes, 1, size, from) == size;
    return succeeded;
  }

  bool GetMore() {
    bool more = false;
    return Get(&more, sizeof more) && more;
  }

  FILE* from;
  bool succeeded = true;
};

template <typename End>
void WalkTexts(End& end, QuilcatStrList_t** first) {
  end.Chain(first, [&end](QuilcatStrList_t* entry) { end.Text(&entry->str); });
}

template <typename End>
void WalkNodeSet(End& end, QuilcatInputNodeSet_t* set) {
  end.Text(&set->data_path);
  end.Text(&set->title_path);
  end.Text(&set->title);
  WalkTexts(end, &set->alter_data_path);
}

template <typename End>
void WalkInputs(End& end, QuilcatGroup_t* group) {
  switch (InputKindOf(group->style)) {
    case INPUT_NONE:
      group->input = nullptr;
      break;
    case INPUT_NODE_SETS: {
      QuilcatInputNodeSet_t* first = NodeSets(group);
      end.Chain(&first, [&end](QuilcatInputNodeSet_t* set) { WalkNodeSet(end, set); });
      group->input = first;
      break;
    }
    case INPUT_DIRECTORY:
    case INPUT_COMMANDS: {
      QuilcatStrList_t* first = StringList(group);
      WalkTexts(end, &first);
      group->input = first;
      break;
    }
  }
}

template <typename End>
bool Walk(End end, QuilcatInfo_t* info) {
  end.Fields(info);
  end.Text(&info->name);
  end.Chain(&info->group_list, [&end, info](QuilcatGroup_t* group) {
    group->info = info;
    end.Text(&group->output_file_path);
    WalkInputs(end, group);
  });
  return end.HasSucceeded();
}

}  // namespace

bool RecordTransfer::send(FILE* to, QuilcatInfo_t* info) {
  return Walk(Sender(to), info);
}

bool RecordTransfer::receive(FILE* from, QuilcatInfo_t* info) {
  if (Walk(Receiver(from), info)) {
    return true;
  }
  QuilConfig::free_config_file(info);
  return false;
}
