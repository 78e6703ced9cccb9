#ifndef QUILCAT_COLLECT_QUILCAT_H_
#define QUILCAT_COLLECT_QUILCAT_H_

#include <atomic>

#include "collect/quilbase.h"
#include "thread/thread_base.h"

/// The collector of one group: its output, and the worker thread that reads its inputs.
///
/// Created, started, stopped and destroyed by one thread at a time: the service's main thread, or the step that it
/// waits for.
class Quilcat : public Quilbase, public ThreadBase {
 public:
  /// Borrows `group`, which outlives the collector. The worker sets up the output: a title or a disk that blocks holds
  /// nobody else.
  Quilcat(QuilcatGroup_t* group, type_write writeMode);
  /// Stops the worker, however long that takes, and releases the output.
  ~Quilcat() override;

  /// Writes the title line of a polling group into a new file.
  void openLogFilePost() override;

  /// The worker: sets up the output, then streams the group's node, or polls its nodes; other groups end at once.
  void run() override;
  void woken() override { setUpForHeldText(); }

  /// True when the worker has set up its output: the first log file is there, with its title line. Any thread.
  bool isSetUp() const { return setUp; }

  /// Asks the worker, and once that has ended the directory monitor, to stop, and interrupts what they wait in. For any
  /// thread that keeps the collector from being destroyed; repeated until haveThreadsEnded().
  void wakeToStop();
  bool haveThreadsEnded() const;

  /// The time of now, "2024-01-31 23:59:59 > "; "1900-01-00 00:00:00 > " when the local time is not to be had. Heap
  /// text, freed by the caller; null when there is no memory.
  static char* nodePollingDateTime();
  /// The time of now between line breaks, "\ncurrent time: 2024-1-31 23:59:59\r\n". As above.
  static char* nodePollingCurrentTime();

 private:
  using QuilcatInputNodeSet_t = QuilCommon::QuilcatInputNodeSet_t;

  void poll_node();
  void pollOnce();
  bool pollColumns();
  int pollNodeSet(const QuilcatInputNodeSet_t& set, bool isLast);
  void writeTitleLine();
  int writeTitle(const QuilcatInputNodeSet_t& set);
  void writeEndOfRow();
  int writeStamp(char* stamp, size_t width);

  QuilcatGroup_t* group;
  std::atomic<bool> setUp{false};
};

#endif  // QUILCAT_COLLECT_QUILCAT_H_
