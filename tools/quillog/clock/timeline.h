#ifndef QUILCAT_TOOLS_QUILLOG_CLOCK_TIMELINE_H_
#define QUILCAT_TOOLS_QUILLOG_CLOCK_TIMELINE_H_

#include <stddef.h>
#include <stdint.h>

#include <utility>
#include <vector>

#include "quillog/clock/line_head.h"

/// A place in a log. The caller chooses the numbers; they rise in the order of the log.
using Place = uint64_t;
constexpr Place kNoPlace = UINT64_MAX;

enum class TimeSource {
  kNone,     ///< the clock was lost, and nothing tells what time it was
  kDerived,  ///< the clock was lost, and was set before or later in the same boot
  kStamped
};

struct Moment {
  Time time = kNoTime;  ///< kNoTime with source kNone
  TimeSource source = TimeSource::kNone;
  int boot = 0;          ///< 0 for the oldest of the log
  Time shown = kNoTime;  ///< what the clock showed, set or lost
};

/// A run of the log in which the clock ran on: from a boot or a jump of the clock to the next.
struct Stretch {
  enum class Begin {
    kNone,    ///< no stretch begins so
    kGoesOn,  ///< nothing happened; a stretch is not longer than some months, so that each line's year is clear
    kJump,    ///< of the clock
    kBoot     ///< or the log's beginning
  };
  Begin begin = Begin::kBoot;
  int boot = 0;
  Place first = 0;  ///< of a stamped line, or of the file that it is the first of
  Place last = 0;
  Time firstShown = kNoTime;
  Time lastShown = kNoTime;
  int64_t lastKernelClock = kNoKernelClock;
  TimeSource source = TimeSource::kNone;
  Time shift = 0;   ///< from what the clock showed to the time, with kDerived
  Time before = 0;  ///< lived from the last line of the stretch before to the first of this
};

struct Boot {
  int number = 0;
  Place first = 0;  ///< the boot goes on to the first place of the next one
  Moment firstMoment;
  Moment lastMoment;
  BootEnd end = BootEnd::kUnknown;
};

/// The time in a log, in the order of the log.
///
/// It is told of files and of stamped lines, in the order of the log, and finds boots (the kernel's clock falls back;
/// without one, the clock falls back to 1970) and jumps of the clock (it goes back; a lost clock, from before 2000, is
/// set; it advances by a month that the kernel's clock knows nothing of). Anything else by which the wall clock gains
/// on the kernel's is suspend, and what it loses is a line that was read late.
///
/// Not every line has to be told: the first stamped one of each compressed block will do, while Add() takes it, and all
/// of the log's last block. What happens within a block and leaves no trace in the next is not found.
///
/// Memory: 24 bytes a file, and 3 MiB at most for a log of any length. Changes after the first 32768 boots and jumps
/// are not told apart; marks of where a time is get sparser. Not for two threads at a time, not even the questions.
class Timeline {
 public:
  struct File {
    Place place = 0;
    Time started = kNoTime;  ///< in its name; a file without may hold several boots
    Time changed = kNoTime;  ///< last, for the last one perhaps the time of now; kNoTime where the time is not its own
  };
  /// Which lines are wanted. All of it must hold.
  struct Range {
    Time since = kNoTime;
    Time until = kNoTime;
    // Set by Last():
    Place from = 0;     ///< nothing before
    Place partEnd = 0;  ///< before it, only what shows `partShown` or later
    Time partShown = kNoTime;
  };

  /// All files that are there, oldest first, before samples of them; later the new ones. The last place once more
  /// replaces what was said of that file.
  void AddFile(const File& file);

  /// Takes the next stamped line. `isNext`: no stamped line lies between it and the one before.
  ///
  /// False: something happened since the line before. Nothing was taken: add all stamped lines between the two with
  /// `isNext`, then this one once more with `isNext`. With `isNext` it is always taken.
  bool Add(Place place, const LineHead& head, bool isNext);
  /// A line that tells how its boot ends, right after Add() of it. It is forgotten when the boot goes on.
  void NoteEnd(BootEnd end);

  /// The moment of a stamped line that was told or lies between two that were. What is added later may turn kNone into
  /// kDerived. Without a stamp: that of a line before it, or of the stretch's first; who knows the line before takes
  /// its.
  Moment At(Place place, const LineHead& head) const;

  const std::vector<Stretch>& stretches() const { return runs; }
  std::vector<Boot> Boots() const;

  /// The range of the last `duration` milliseconds as they were lived: inside a stretch what its clock showed; across a
  /// boot the same when the clock was set on both sides and went on; across a jump what the kernel's clock showed;
  /// where neither tells, nothing. Lines that are told later are in it.
  Range Last(Time duration) const;
  /// True when a line with that moment is wanted. A moment without a time is wanted when it may be in the range, as
  /// its neighbours in the log say.
  bool Wants(const Range& range, Place place, const Moment& moment) const;
  /// Where wanted lines may begin, at `from` or behind it: `from`, a told line's place, or a file's. kNoPlace: there
  /// are none. What is told later may be wanted all the same.
  Place NextWanted(const Range& range, Place from) const;

 private:
  static constexpr size_t kNoFile = SIZE_MAX;
  struct Mark {
    Place place;
    Time shown;
  };

  Time SetTimeAfter(size_t file) const;
  size_t FileAt(Place place) const;
  Time KernelStep(const LineHead& head) const;
  Time ShownBy(const LineHead& head, size_t file) const;
  Stretch::Begin ChangeTo(const LineHead& head, Time shown) const;
  bool IsPlainStep(Stretch::Begin change, const LineHead& head, Time shown, size_t file) const;
  void Begin(Stretch::Begin change, Place first, const LineHead& head, Time shown);
  void Derive();
  void AddMark(Place place, Time shown);

  size_t RunAt(Place place) const;
  size_t MarkBehind(Place place) const;
  Time ShownBefore(const Stretch& run, size_t mark) const;
  static Moment MomentIn(const Stretch& run, Time shown);
  Place PlaceBefore(const Stretch& run, Place end, Time shown) const;
  std::pair<Time, Time> Neighbours(size_t number) const;
  bool MayHold(const Range& range, size_t number, Time shown, Time shownEnd) const;

  std::vector<File> files;
  std::vector<Stretch> runs;
  std::vector<BootEnd> ends;  ///< of each boot
  std::vector<Mark> marks;    ///< some of the samples
  size_t samples = 0;
  size_t samplesPerMark = 1;

  // The sample before:
  size_t currentFile = kNoFile;
  LineHead lastHead;
  Time lastShown = kNoTime;
  Time lastSet = kNoTime;   ///< the newest that a set clock showed
  Time endShown = kNoTime;  ///< at the last NoteEnd()

  // What was asked last:
  mutable size_t cachedRun = 0;
  mutable LineHead cachedHead;
  mutable Time cachedDay = kNoTime;
  mutable struct {
    size_t run = SIZE_MAX;
    size_t runs = 0;
    Time low = 0;
    Time high = 0;
  } cachedNeighbours;
};

#endif  // QUILCAT_TOOLS_QUILLOG_CLOCK_TIMELINE_H_
