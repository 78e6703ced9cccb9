#include "quillog/clock/timeline.h"

#include <algorithm>
#include <iterator>
#include <tuple>

namespace {

using namespace TimeText;

constexpr Time kYear2000 = 946684800000;
constexpr Time kBackStep = kSecond;           ///< stamps fall back by more where the clock was set back
constexpr Time kDrift = 5 * kSecond;          ///< between the two clocks, by lines that are read late
constexpr Time kLongestSuspend = kMonth;      ///< no battery lasts longer
constexpr Time kLongestStretch = 3 * kMonth;  ///< half a year from a line a day without a year is ambiguous
constexpr Time kLastWords = 2 * kMinute;      ///< from the line that tells the end of a boot to its end
constexpr Time kSkipSlack = kMinute;          ///< stamps between two samples may be older or newer by this
constexpr size_t kFarthestFile = 100;
constexpr size_t kMostStretches = 32768;
constexpr size_t kMostMarks = 16384;

/// A phone that lost its clock begins in 1970, or on the evening before where the zone is west.
bool IsLost(Time shown) {
  return shown < kYear2000;
}

bool IsSet(Time time) {
  return time != kNoTime && !IsLost(time);
}

Time IfSet(Time time) {
  return IsSet(time) ? time : kNoTime;
}

Time Distance(Time a, Time b) {
  return a > b ? a - b : b - a;
}

/// The time offered that is nearest to a time known from lines and names.
struct Nearest {
  Time best = kNoTime;
  Time distance = INT64_MAX;

  /// The month and day in the years around `from`.
  void Offer(const LineHead& head, Time from, Time latest, Time farthest) {
    if (from == kNoTime) {
      return;
    }
    for (int year = YearOf(from) - 1; year <= YearOf(from) + 1; ++year) {
      const Time day = FromDate(year, head.month, head.day);
      const Time time = day + head.timeOfDay;
      if (day != kNoTime && time <= latest && Distance(time, from) < std::min(distance, farthest)) {
        best = time;
        distance = Distance(time, from);
      }
    }
  }
};

/// True for a stamp of the first minutes after a clock was lost, in whatever zone. It was lost at the boot, or in the
/// `step` since the line before.
bool BeganAtEpoch(const LineHead& head, bool atBoot, Time step) {
  constexpr Time kZoneStep = 15 * kMinute;
  const bool isFirstDay = (head.month == 1 && head.day == 1) || (head.month == 12 && head.day == 31);
  const Time lost = head.timeOfDay - (atBoot ? std::max<int64_t>(head.kernelClock, 0) / 1000 : 0);
  return isFirstDay && (lost % kZoneStep + kZoneStep) % kZoneStep < 2 * kMinute + (atBoot ? 0 : step);
}

bool IsSameDay(const LineHead& a, const LineHead& b) {
  return a.day == b.day && a.month == b.month && a.year == b.year;
}

}  // namespace

// ---- What is told ----

void Timeline::AddFile(const File& file) {
  if (!files.empty() && files.back().place == file.place) {
    files.back() = file;
  } else {
    files.push_back(file);
  }
}

/// When the clock was surely set, at the end of a file or behind it; kNoTime: nothing tells.
Time Timeline::SetTimeAfter(size_t file) const {
  if (file == kNoFile) {
    return kNoTime;
  }
  const Time changed = IfSet(files[file].changed);
  const bool isKnown = files[file].started == kNoTime && changed != kNoTime;
  for (size_t i = file + 1; !isKnown && i < files.size() && i - file < kFarthestFile; ++i) {
    const Time started = IfSet(files[i].started);
    if (const Time time = started != kNoTime ? started : IfSet(files[i].changed); time != kNoTime) {
      return time;
    }
  }
  return changed;
}

size_t Timeline::FileAt(Place place) const {
  const auto behind =
      std::upper_bound(files.begin(), files.end(), place, [](Place at, const File& file) { return at < file.place; });
  return behind == files.begin() ? kNoFile : static_cast<size_t>(behind - files.begin()) - 1;
}

/// Milliseconds on the kernel's clock since the line before; kNoTime without one.
Time Timeline::KernelStep(const LineHead& head) const {
  const bool hasClock = !runs.empty() && runs.back().lastKernelClock != kNoKernelClock;
  return hasClock && head.kernelClock != kNoKernelClock ? (head.kernelClock - runs.back().lastKernelClock) / 1000
                                                        : kNoTime;
}

/// What the clock showed. A day without a year is in the one that puts it nearest to the line before, or to the time in
/// the name of the file; where the clock was lost, the lines before and the files after tell
/// the year. kNoTime: there is no such
/// day.
Time Timeline::ShownBy(const LineHead& head, size_t file) const {
  const Time kernelStep = KernelStep(head);
  const bool isFresh = runs.empty() || (kernelStep != kNoTime && kernelStep < -kBackStep);
  if (IsSameDay(head, lastHead) && (head.year != 0 || (file == currentFile && !isFresh && IsSet(lastShown)))) {
    return lastShown - lastHead.timeOfDay + head.timeOfDay;
  }
  if (head.year != 0) {
    const Time day = FromDate(head.year, head.month, head.day);
    return day == kNoTime ? kNoTime : day + head.timeOfDay;
  }
  const Time started = file == kNoFile ? kNoTime : files[file].started;
  const Time reference = file != currentFile && started != kNoTime ? started : lastShown;
  const Time after = SetTimeAfter(file);
  const Time limit = after != kNoTime ? after + kMonth : INT64_MAX;
  Nearest nearest;
  if (!IsSet(reference)) {
    nearest.Offer(head, after, limit, INT64_MAX);
    nearest.Offer(head, lastSet, limit, INT64_MAX);
  }
  // A lost clock runs on with the kernel's: when it is further ahead than that, it was set.
  const bool mayBeSet = nearest.best != kNoTime;
  nearest.Offer(head, reference, INT64_MAX, !mayBeSet ? INT64_MAX : kernelStep < 0 ? kMonth : kernelStep + kDay);
  const Time mostAhead = isFresh && (reference == kNoTime || nearest.best < reference) ? kDay : kMonth;
  // Within a boot only the kernel's clock tells that so much time has not passed.
  const Time most = isFresh ? mostAhead : kernelStep != kNoTime ? mostAhead + kernelStep : INT64_MAX;
  if (nearest.distance > most && BeganAtEpoch(head, isFresh, kernelStep)) {
    return FromDate(head.month == 12 ? 1969 : 1970, head.month, head.day) + head.timeOfDay;
  }
  if (nearest.best == kNoTime) {
    constexpr int kSomeLostYear = 1972;  // one that has every day
    return reference == kNoTime ? FromDate(kSomeLostYear, head.month, head.day) + head.timeOfDay : kNoTime;
  }
  if (kernelStep == kNoTime && IsSet(reference) && started != kNoTime && nearest.best + kMonth < started) {
    // This is months before the file was begun. If the file was still written to a year later, the line is from then.
    const Time later = FromDate(YearOf(nearest.best) + 1, head.month, head.day) + head.timeOfDay;
    return later > nearest.best && later <= limit ? later : nearest.best;
  }
  return nearest.best;
}

/// What happened between the line before and this one.
Stretch::Begin Timeline::ChangeTo(const LineHead& head, Time shown) const {
  const Stretch& run = runs.back();
  const Time step = shown - lastShown;
  const Time kernelStep = KernelStep(head);
  const bool wasLost = IsLost(lastShown);
  const bool isLost = IsLost(shown);
  const bool hasClock = kernelStep != kNoTime;
  const bool isPolled = run.lastKernelClock == kNoKernelClock;
  if (hasClock ? kernelStep < -kBackStep : isPolled && isLost && (!wasLost || step < -kBackStep)) {
    return Stretch::Begin::kBoot;
  }
  if (step < -kBackStep || wasLost != isLost || (hasClock && step - kernelStep > kLongestSuspend)) {
    return Stretch::Begin::kJump;
  }
  return shown - run.firstShown > kLongestStretch ? Stretch::Begin::kGoesOn : Stretch::Begin::kNone;
}

/// True when nothing that matters can have happened among lines between the line before and this one. A boot begins a
/// file, but one without a time in its name may go on from boot to boot; a lost clock may show the same in each.
bool Timeline::IsPlainStep(Stretch::Begin change, const LineHead& head, Time shown, size_t file) const {
  const Time step = shown - lastShown;
  const Time kernelStep = KernelStep(head);
  if (file != currentFile || (change != Stretch::Begin::kNone && change != Stretch::Begin::kGoesOn)) {
    return false;
  }
  const bool mayHoldBoot = file == kNoFile || files[file].started == kNoTime;
  if (kernelStep == kNoTime || (mayHoldBoot && IsLost(shown))) {
    return !mayHoldBoot && step <= kSkipSlack;
  }
  const Time drift = step - kernelStep;
  return drift >= -kDrift && (drift <= kDrift || !mayHoldBoot);
}

bool Timeline::Add(Place place, const LineHead& head, bool isNext) {
  const size_t file = FileAt(place);
  const Time shown = head.HasStamp() ? ShownBy(head, file) : kNoTime;
  if (shown == kNoTime) {
    return true;
  }
  const bool isNewFile = file != currentFile;
  const Stretch::Begin change = runs.empty() ? Stretch::Begin::kBoot : ChangeTo(head, shown);
  if (!isNext && !runs.empty() && !IsPlainStep(change, head, shown, file)) {
    return false;
  }
  if (runs.empty() || (change != Stretch::Begin::kNone && runs.size() < kMostStretches)) {
    Begin(change, isNewFile && file != kNoFile ? files[file].place : place, head, shown);
  }
  Stretch& run = runs.back();
  run.last = place;
  run.lastShown = shown;
  run.lastKernelClock = head.kernelClock != kNoKernelClock ? head.kernelClock : run.lastKernelClock;
  currentFile = file;
  lastHead = head;
  lastShown = shown;
  lastSet = IsLost(shown) ? lastSet : shown;
  if (ends.back() != BootEnd::kUnknown && Distance(shown, endShown) > kLastWords) {
    ends.back() = BootEnd::kUnknown;
  }
  AddMark(place, shown);
  return true;
}

void Timeline::Begin(Stretch::Begin change, Place first, const LineHead& head, Time shown) {
  Stretch run;
  run.begin = change;
  run.first = first;
  run.firstShown = shown;
  run.source = IsLost(shown) ? TimeSource::kNone : TimeSource::kStamped;
  if (change == Stretch::Begin::kBoot) {
    if (!ends.empty() && ends.back() == BootEnd::kUnknown && head.kernelClock != kNoKernelClock) {
      ends.back() = BootEnd::kCut;
    }
    ends.push_back(BootEnd::kUnknown);
    run.before = !runs.empty() && IsSet(lastShown) && IsSet(shown) ? std::max<Time>(shown - lastShown, 0) : 0;
  } else {
    // Without the kernel's clock nothing is known to have passed.
    run.before = std::max<Time>(change == Stretch::Begin::kGoesOn ? shown - lastShown : KernelStep(head), 0);
    run.lastKernelClock = runs.back().lastKernelClock;
  }
  run.boot = static_cast<int>(ends.size()) - 1;
  runs.push_back(run);
  Derive();
}

/// Joins stretches with a lost clock to the newest one, or that to those before.
void Timeline::Derive() {
  Stretch& newest = runs.back();
  if (newest.source != TimeSource::kNone) {
    for (size_t i = runs.size() - 1; i > 0; --i) {
      const Stretch& after = runs[i];
      Stretch& lost = runs[i - 1];
      if (after.begin == Stretch::Begin::kBoot || lost.source != TimeSource::kNone) {
        return;
      }
      lost.source = TimeSource::kDerived;
      lost.shift = after.firstShown + after.shift - after.before - lost.lastShown;
    }
  } else if (newest.begin != Stretch::Begin::kBoot && runs[runs.size() - 2].source != TimeSource::kNone) {
    const Stretch& before = runs[runs.size() - 2];
    newest.source = TimeSource::kDerived;
    newest.shift = before.lastShown + before.shift + newest.before - newest.firstShown;
  }
}

/// When there are too many, every second one goes.
void Timeline::AddMark(Place place, Time shown) {
  if (samples++ % samplesPerMark != 0) {
    return;
  }
  if (marks.size() == kMostMarks) {
    for (size_t i = 0; i < kMostMarks / 2; ++i) {
      marks[i] = marks[2 * i];
    }
    marks.resize(kMostMarks / 2);
    samplesPerMark *= 2;
  }
  marks.push_back({place, shown});
}

void Timeline::NoteEnd(BootEnd end) {
  if (!ends.empty() && end != BootEnd::kUnknown) {
    ends.back() = end;
    endShown = lastShown;
  }
}

// ---- What is asked ----

/// The stretch of a place; that of the first for lines before it.
size_t Timeline::RunAt(Place place) const {
  const auto isBefore = [this, place](size_t i) { return i == runs.size() || place < runs[i].first; };
  if (cachedRun < runs.size() && (cachedRun == 0 || runs[cachedRun].first <= place) && isBefore(cachedRun + 1)) {
    return cachedRun;
  }
  const auto behind =
      std::upper_bound(runs.begin(), runs.end(), place, [](Place at, const Stretch& run) { return at < run.first; });
  return behind == runs.begin() ? 0 : static_cast<size_t>(behind - runs.begin()) - 1;
}

/// The first mark after a place.
size_t Timeline::MarkBehind(Place place) const {
  const auto behind =
      std::upper_bound(marks.begin(), marks.end(), place, [](Place at, const Mark& mark) { return at < mark.place; });
  return static_cast<size_t>(behind - marks.begin());
}

/// What the last sample before a mark showed, as far as it is known.
Time Timeline::ShownBefore(const Stretch& run, size_t mark) const {
  return mark > 0 && marks[mark - 1].place >= run.first ? marks[mark - 1].shown : run.firstShown;
}

Moment Timeline::MomentIn(const Stretch& run, Time shown) {
  Moment moment;
  moment.shown = shown;
  moment.boot = run.boot;
  moment.source = run.source;
  moment.time = run.source == TimeSource::kNone ? kNoTime : shown + run.shift;
  return moment;
}

Moment Timeline::At(Place place, const LineHead& head) const {
  if (runs.empty()) {
    return {};
  }
  const size_t number = RunAt(place);
  const Stretch& run = runs[number];
  if (!head.HasStamp()) {
    return MomentIn(run, ShownBefore(run, MarkBehind(place)));
  }
  if (number != cachedRun || !IsSameDay(head, cachedHead)) {
    Nearest nearest;
    LineHead midnight = head;
    midnight.timeOfDay = 0;
    nearest.Offer(midnight, run.firstShown, INT64_MAX, INT64_MAX);
    cachedRun = number;
    cachedHead = head;
    cachedDay = head.year != 0 ? FromDate(head.year, head.month, head.day) : nearest.best;
  }
  return MomentIn(run, cachedDay == kNoTime ? run.firstShown : cachedDay + head.timeOfDay);
}

std::vector<Boot> Timeline::Boots() const {
  std::vector<Boot> boots;
  for (const Stretch& run : runs) {
    if (boots.empty() || boots.back().number != run.boot) {
      boots.emplace_back();
      boots.back().number = run.boot;
      boots.back().first = run.first;
      boots.back().firstMoment = MomentIn(run, run.firstShown);
      boots.back().end = ends[static_cast<size_t>(run.boot)];
    }
    boots.back().lastMoment = MomentIn(run, run.lastShown);
  }
  return boots;
}

Timeline::Range Timeline::Last(Time duration) const {
  Range range;
  Time left = duration;
  for (size_t i = runs.size(); i > 0; --i) {
    const Stretch& run = runs[i - 1];
    const Time length = std::max<Time>(run.lastShown - run.firstShown, 0);
    if (left <= length) {
      range.partShown = run.lastShown - left;
      range.partEnd = i < runs.size() ? runs[i].first : run.last + 1;
      range.from = PlaceBefore(run, range.partEnd, range.partShown - kBackStep);
      return range;
    }
    left -= length + run.before;
  }
  return range;
}

/// A place in a stretch before which nothing shows `shown` or later.
Place Timeline::PlaceBefore(const Stretch& run, Place end, Time shown) const {
  const auto first = std::lower_bound(marks.begin(), marks.end(), run.first,
                                      [](const Mark& mark, Place at) { return mark.place < at; });
  const auto last = std::find_if(first, marks.end(),
                                 [end, shown](const Mark& mark) { return mark.place >= end || mark.shown >= shown; });
  return last == first ? run.first : (last - 1)->place;
}

/// The times between which a line in a stretch can be: those of the nearest stretches that have any.
std::pair<Time, Time> Timeline::Neighbours(size_t number) const {
  if (cachedNeighbours.run != number || cachedNeighbours.runs != runs.size()) {
    const auto hasTime = [](const Stretch& run) { return run.source != TimeSource::kNone; };
    const auto at = runs.begin() + static_cast<std::ptrdiff_t>(number);
    const auto before = std::find_if(std::make_reverse_iterator(at), runs.rend(), hasTime);
    const auto after = std::find_if(at, runs.end(), hasTime);
    const Time low = before == runs.rend() ? INT64_MIN : before->lastShown + before->shift;
    const Time high = after == runs.end() ? INT64_MAX : after->firstShown + after->shift;
    cachedNeighbours = {number, runs.size(), std::min(low, high), std::max(low, high)};
  }
  return {cachedNeighbours.low, cachedNeighbours.high};
}

bool Timeline::Wants(const Range& range, Place place, const Moment& moment) const {
  if (place < range.from || (place < range.partEnd && moment.shown < range.partShown)) {
    return false;
  }
  Time low = moment.time;
  Time high = moment.time;
  if (moment.time == kNoTime && (range.since != kNoTime || range.until != kNoTime) && !runs.empty()) {
    std::tie(low, high) = Neighbours(RunAt(place));
  }
  return (range.since == kNoTime || high >= range.since) && (range.until == kNoTime || low <= range.until);
}

/// True when a line of that stretch between two stamps may be wanted.
bool Timeline::MayHold(const Range& range, size_t number, Time shown, Time shownEnd) const {
  const Stretch& run = runs[number];
  if (number + 1 == kMostStretches) {
    return true;  // all that there was no room for
  }
  Time low = std::min(shown, shownEnd) + run.shift - kSkipSlack;
  Time high = shownEnd == INT64_MAX ? INT64_MAX : std::max(shown, shownEnd) + run.shift + kSkipSlack;
  if (run.source == TimeSource::kNone) {
    std::tie(low, high) = Neighbours(number);
  }
  return (range.since == kNoTime || high >= range.since) && (range.until == kNoTime || low <= range.until);
}

Place Timeline::NextWanted(const Range& range, Place from) const {
  Place place = std::max(from, range.from);
  if (runs.empty()) {
    return place;
  }
  size_t number = RunAt(place);
  size_t mark = MarkBehind(place);
  Time shown = ShownBefore(runs[number], mark);
  for (;;) {
    const Place nextRun = number + 1 < runs.size() ? runs[number + 1].first : kNoPlace;
    const Place nextMark = mark < marks.size() ? marks[mark].place : kNoPlace;
    const Place next = std::min(nextRun, nextMark);
    const bool goesOn = next == nextRun && next != kNoPlace && runs[number + 1].begin == Stretch::Begin::kGoesOn;
    const Time shownEnd = next == kNoPlace  ? INT64_MAX
                          : goesOn          ? runs[number + 1].firstShown
                          : next == nextRun ? runs[number].lastShown
                                            : marks[mark].shown;
    if (MayHold(range, number, shown, shownEnd)) {
      return place;
    }
    if (next == kNoPlace) {
      return kNoPlace;
    }
    place = next;
    number += next == nextRun ? 1 : 0;
    mark += next == nextMark ? 1 : 0;
    shown = ShownBefore(runs[number], mark);
  }
}
