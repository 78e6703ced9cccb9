// A phone's life with a log of it: boots, clocks that are lost and set again or never, set back and forth, corrected by
// seconds, suspends, new years and leap days. What the log's stamps say of it must be the truth, whether every line is
// told or, as far as that does, only the first of each block.

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <string>

#include "choices.h"
#include "quillog/clock/timeline.h"

namespace {

using namespace TimeText;

struct Logged {
  std::string text;
  Place place;
  Time real, shown, kernel;  // milliseconds
  int boot;
  bool beginsFile, beginsBlock, isLost;
  Time time = kNoTime, lived = 0;
};

struct Life {
  explicit Life(Choices& choices) : choose(choices) {
    isNamed = choose.Below(2) == 0, hasKernel = choose.Below(3) != 2;
    const size_t season = choose.Below(3);
    const Time start = FromStamp(season == 0 ? "20260610-000000" : season == 1 ? "20261229-000000" : "20280210-000000");
    const bool isCalm = choose.Below(4) == 3;
    mayLose = season != 1;  // on New Year's Day a clock that was set looks like a lost one
    zone = Chosen(105) * 15 * kMinute - 12 * kHour;
    real = start;
    StartBoot();
    for (bool hasNews = false; !choose.AtEnd() && lines.size() < 400 && real < start + 250 * kDay;) {
      const size_t what = choose.Below(24);
      if (what < 8 && !hasNews) Happen(isCalm ? 1 : what, Chosen(250) + 1);
      Pass((what == 23 ? 100 * kSecond : choose.Below(3) == 0 ? 10 * kSecond : 200) * (Chosen(250) + 1));
      Log(kernel, hasNews || what > 20, "");
      hasNews = what < 8 && !hasNews;  // what comes and goes within a block is not to be known
    }
    files.back().changed = isNamed && !lines.front().isLost ? kNoTime : std::max(real, Shown());
    Derive();
  }

  std::vector<Logged> lines;
  std::vector<Timeline::File> files;
  std::vector<BootEnd> ends;
  bool hasKernel;

 private:
  Time Chosen(size_t count) { return static_cast<Time>(choose.Below(count)); }
  Time Shown() const { return real + offset; }
  bool IsLost() const { return Shown() < FromDate(2000, 1, 1); }
  void Pass(Time step) { real += step, kernel += step; }

  void StartFile() {
    if (isNamed || files.empty())
      files.push_back({lines.size() * 10 + 5, isNamed ? Shown() / 1000 * 1000 : kNoTime, kNoTime});
  }
  void StartBoot() {
    ends.push_back(BootEnd::kUnknown);
    const bool loses = mayLose && (!hasKernel || choose.Below(2) == 1);  // without the kernel's clock no other shows
    kernel = 5000 + Chosen(15000);
    offset = loses ? zone + kernel - real : choose.Below(4) == 3 && !IsLost() ? offset : 0;
    StartFile();
    for (Time late = Chosen(4); late > 0; --late) Log(400 - late * 100, false, "");
    Log(kernel, false, "");
  }
  void Reboot(Time amount) {
    Pass(20 * kSecond);
    const bool isOrderly = hasKernel && choose.Below(2) == 1;
    Log(kernel, false, isOrderly ? "reboot: Restarting system" : "");
    if (isOrderly && amount % 2 == 0) Pass(20 * kSecond), Log(kernel, false, "last words");
    ends.back() = isOrderly ? BootEnd::kRestart : hasKernel ? BootEnd::kCut : BootEnd::kUnknown;
    real += 30 * kSecond + amount * (choose.Below(2) == 1 && !IsLost() ? kHour : kSecond);
    StartBoot();
  }
  void Happen(size_t what, Time amount) {
    const bool isLost = IsLost();
    if (what == 0 && (hasKernel || mayLose)) Reboot(amount);
    if (what == 1) Log(kernel, false, "reboot: Restarting system"), real += ((amount + 2) * (isLost ? kMinute : kHour));
    if (what == 2) offset = 0;
    if (what == 3 && (hasKernel || !isLost) && offset > -10 * kDay) offset -= amount * (isLost ? kMinute : kHour);
    if (what == 4 && !isLost && offset < kHour * 20) offset += mayLose && amount > 200 ? 40 * kDay : kHour;
    if (what == 5 && !isLost) offset += amount % 2 == 0 ? 3 * kSecond : -3 * kSecond;
    if (what == 6 && isNamed && hasKernel && mayLose && !isLost) offset = zone + kernel - real, what = 7;
    if (what == 7) StartFile();
  }
  void Log(Time atKernel, bool beginsBlock, const char* text) {
    const Place place = lines.size() * 10 + 10;
    std::string stamp = Iso(Shown(), hasKernel);
    stamp[10] = ' ';
    char clock[40];
    snprintf(clock, sizeof clock, " <6>[%5d.%06d][    T1] ", static_cast<int>(atKernel / 1000),
             static_cast<int>(atKernel % 1000 * 1000));
    // Pending text is flushed every five seconds; only the kernel's clock makes up for longer blocks.
    const bool isFlushed = isNamed && !hasKernel && !lines.empty() && real > lines.back().real + 5 * kSecond;
    const bool beginsFile = files.back().place == place - 5;
    lines.push_back({hasKernel ? stamp.substr(5) + clock + text : stamp + " >  1", place, real,
                     hasKernel ? Shown() : Shown() - (Shown() % 1000 + 1000) % 1000, atKernel,
                     static_cast<int>(ends.size()) - 1, beginsFile, beginsBlock || beginsFile || isFlushed, IsLost()});
  }
  /// The times of lost clocks, and what was lived.
  void Derive() {
    for (size_t i = 0; i < lines.size(); ++i) {
      Logged& line = lines[i];
      size_t from = i;
      const auto isHere = [&](size_t at) { return at < lines.size() && lines[at].boot == line.boot; };
      while (isHere(from) && lines[from].isLost) --from;
      for (from = isHere(from) ? from : i; isHere(from) && lines[from].isLost;) ++from;
      if (isHere(from)) line.time = line.real + lines[from].shown - lines[from].real;
      if (i == 0) continue;
      const Logged& before = lines[i - 1];
      const Time step = line.shown - before.shown, kernelStep = hasKernel ? line.kernel - before.kernel : 0;
      const bool jumps = step < -kSecond || line.isLost != before.isLost || (hasKernel && step - kernelStep > kMonth);
      const bool boots = line.boot != before.boot, isUnknown = boots && (line.isLost || before.isLost);
      line.lived = before.lived + std::max<Time>(isUnknown ? 0 : jumps && !boots ? kernelStep : step, 0);
    }
  }

  Choices& choose;
  bool isNamed, mayLose;
  Time real, kernel = 0, offset = 0, zone;
};

void Check(bool holds, const Life& life, size_t i, const char* what) {
  if (holds) return;
  for (const Logged& line : life.lines) {
    fprintf(stderr, "%s%s boot %d %s at %s\n", &line == &life.lines[i] ? "* " : "  ", line.beginsBlock ? "- " : "  ",
            line.boot, line.text.c_str(), Iso(line.real, true).c_str());
  }
  fprintf(stderr, "%s\n", what);
  abort();
}

LineHead HeadOf(const Logged& line) {
  return LineHead::Parse(line.text.data(), line.text.size());
}

void Tell(Timeline& timeline, const Life& life, bool sparsely) {
  const auto add = [&](size_t i, bool isNext) {
    const LineHead head = HeadOf(life.lines[i]);
    if (!timeline.Add(life.lines[i].place, head, isNext)) return false;
    timeline.NoteEnd(BootEndIn(&life.lines[i].text[head.textAt], life.lines[i].text.size() - head.textAt));
    return true;
  };
  for (size_t i = 0, told = 0; i < life.lines.size(); ++i) {
    const bool isTold = life.lines[i].beginsBlock && add(i, told == i);
    if (isTold) told = i + 1;
    // All lines are told up to one that does not fit, and up to the last.
    const bool tellsAll = !sparsely || life.lines[i].beginsBlock || i + 1 == life.lines.size();
    for (; tellsAll && told <= i; ++told) Check(add(told, true), life, told, "refused");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  LineHead::Parse(reinterpret_cast<const char*>(data), size);  // any bytes
  Choices choose(data, size);
  const bool sparsely = choose.Below(2) == 1;
  const Time around = static_cast<Time>(choose.Below(65536)), last = static_cast<Time>(choose.Below(65536)) * 100;
  const Life life(choose);
  Timeline timeline;
  for (const Timeline::File& file : life.files) timeline.AddFile(file);
  Tell(timeline, life, sparsely);
  const std::vector<Boot> boots = timeline.Boots();
  Check(boots.size() == life.ends.size(), life, 0, "other boots");
  const Logged& middle = life.lines[static_cast<size_t>(around) % life.lines.size()];
  Timeline::Range range, lived = timeline.Last(last);
  range.since = (middle.isLost ? middle.real : middle.shown) - 2 * kMinute;
  range.until = range.since + around / 64 * kSecond;
  Place next = timeline.NextWanted(range, 0), nextLived = timeline.NextWanted(lived, 0);
  Time before = INT64_MIN;
  for (size_t i = 0; i < life.lines.size(); ++i) {
    const Logged& line = life.lines[i];
    const Moment moment = timeline.At(line.place, HeadOf(line));
    Check(!line.beginsFile || timeline.At(line.place - 5, LineHead()).boot == line.boot, life, i, "a title's boot");
    Check(moment.boot == line.boot && moment.shown == line.shown, life, i, Iso(moment.shown, true).c_str());
    Check(boots[static_cast<size_t>(line.boot)].end == life.ends[static_cast<size_t>(line.boot)], life, i, "other end");
    using Source = TimeSource;
    const Source source = line.time == kNoTime ? Source::kNone : line.isLost ? Source::kDerived : Source::kStamped;
    Check(moment.source == source, life, i, "other source");
    const Time right = !line.isLost ? 0 : life.hasKernel ? 30 * kSecond : kHour;
    Check(line.time == kNoTime || std::abs(moment.time - line.time) <= right, life, i, "other time");
    // What has no time is between those that have.
    size_t after = i;
    while (after < life.lines.size() && life.lines[after].time == kNoTime) ++after;
    const bool isLast = after == life.lines.size();
    const Time behind = isLast ? INT64_MAX : timeline.At(life.lines[after].place, HeadOf(life.lines[after])).time;
    before = after == i ? moment.time : before;
    const Time low = std::min(before, behind), high = std::max(before, behind);
    const bool isWanted = high >= range.since && low <= range.until;
    Check(timeline.Wants(range, line.place, moment) == isWanted, life, i, "other range");
    if (isWanted) Check(next <= line.place, life, i, "passed over"), next = timeline.NextWanted(range, line.place + 1);
    const Time left = life.lines.back().lived - line.lived - last;
    const bool isLived = timeline.Wants(lived, line.place, moment);
    Check(std::abs(left) < 10 * kMinute || isLived == (left < 0), life, i, "other last minutes");
    if (isLived)
      Check(nextLived <= line.place, life, i, "left out"), nextLived = timeline.NextWanted(lived, line.place + 1);
  }
  return 0;
}
