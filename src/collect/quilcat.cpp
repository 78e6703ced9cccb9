#include "collect/quilcat.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "collect/column_format.h"
#include "config/records.h"
#include "platform/local_time.h"
#include "safestr/safestr.h"
#include "thread/interruptible.h"

using namespace QuilCommon;

namespace {

constexpr size_t kShortTextSize = 256;

bool BeginsWith(const char* text, const char* prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

/// The time of now in `format`; the first moment of 1900, without a day, when the local time is not to be had.
char* FormatTime(const char* format) {
  tm local;
  localTime(time(nullptr), &local);
  char* text = nullptr;
  const int length = asprintf(&text, format, local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour,
                              local.tm_min, local.tm_sec);
  return length < 0 ? nullptr : text;
}

}  // namespace

Quilcat::Quilcat(QuilcatGroup_t* ownGroup, type_write mode) : Quilbase(ownGroup, mode), group(ownGroup) {}

Quilcat::~Quilcat() {
  stop();
}

void Quilcat::openLogFilePost() {
  if (group != nullptr && group->style == STYLE_POLL_NODE) {
    writeTitleLine();
  }
}

void Quilcat::wakeToStop() {
  requestStop();
  wake();
  if (hasEnded() && monitor() != nullptr) {
    monitor()->requestStop();
    monitor()->wake();
  }
}

bool Quilcat::haveThreadsEnded() const {
  return hasEnded() && (monitor() == nullptr || monitor()->hasEnded());
}

void Quilcat::run() {
  if (!currentStopRequested()) {
    setupOutput();
  }
  setUp = true;
  if (group == nullptr) {
    return;
  }
  setWorker();
  switch (group->style) {
    case STYLE_MONITOR_NODE:
      if (NodeSets(group) != nullptr) {
        node_cat_stream(NodeSets(group)->data_path);
      }
      return;
    case STYLE_POLL_NODE:
      poll_node();
      return;
    case STYLE_NONE:
    case STYLE_MONITOR_DIR:
    case STYLE_POLL_CMD:
      return;
  }
}

void Quilcat::poll_node() {
  const auto interval = static_cast<unsigned>(group->polling_interval);
  while (!currentStopRequested()) {
    pollOnce();
    sleepSeconds(interval);
  }
}

void Quilcat::pollOnce() {
  if (pollColumns()) {
    writeEndOfRow();
  }
}

/// Writes the columns of a row. False: a stop broke it off. Columns that were not begun are left out then, and the line
/// feed is to be left out too, so that what was written does not look like a row.
bool Quilcat::pollColumns() {
  for (const QuilcatInputNodeSet_t* set = NodeSets(group); set != nullptr; set = set->next) {
    if (currentStopRequested()) {
      return false;
    }
    if (pollNodeSet(*set, set->next == nullptr) == 0) {
      continue;
    }
    if (currentStopRequested()) {
      return false;
    }
    fprintf(stderr, "node_cat write data fail!!\n");
  }
  return true;
}

int Quilcat::pollNodeSet(const QuilcatInputNodeSet_t& set, bool isLast) {
  if (set.data_path == nullptr) {
    return set.alter_data_path != nullptr ? node_cat_alter_once(set.alter_data_path, set.width, isLast) : 0;
  }
  if (BeginsWith(set.data_path, ColumnFormat::kDateTime)) {
    return writeStamp(nodePollingDateTime(), set.width);
  }
  if (BeginsWith(set.data_path, ColumnFormat::kCurrentTime)) {
    return writeStamp(nodePollingCurrentTime(), set.width);
  }
  return node_cat_once(set.data_path, set.width, isLast);
}

/// Writes and frees `stamp`.
int Quilcat::writeStamp(char* stamp, size_t width) {
  const int result = logcatWriteFixLenBuffer(stamp, width, false);
  free(stamp);
  return result;
}

void Quilcat::writeEndOfRow() {
  char text[kShortTextSize] = {};
  snprintf_s(text, sizeof text, sizeof text - 1, "\n");
  logcatWrite(text, strnlen(text, sizeof text), true);
}

/// An empty line and a row of headings as wide as the data columns, from the first column that has one.
void Quilcat::writeTitleLine() {
  const QuilcatInputNodeSet_t* set = NodeSets(group);
  while (set != nullptr && set->title == nullptr && set->title_path == nullptr) {
    set = set->next;
  }
  if (set == nullptr) {
    return;
  }
  writeEndOfRow();
  for (; set != nullptr; set = set->next) {
    if (writeTitle(*set) != 0 && !currentStopRequested()) {
      fprintf(stderr, "write title fail!!\n");
    }
  }
  writeEndOfRow();
}

int Quilcat::writeTitle(const QuilcatInputNodeSet_t& set) {
  if (set.title != nullptr) {
    return logcatWriteFixLenBuffer(set.title, set.width, false);
  }
  return set.title_path != nullptr ? node_cat_once(set.title_path, set.width, true) : 0;
}

char* Quilcat::nodePollingDateTime() {
  return FormatTime(ColumnFormat::kDateTimeForm);
}

char* Quilcat::nodePollingCurrentTime() {
  return FormatTime(ColumnFormat::kCurrentTimeForm);
}
