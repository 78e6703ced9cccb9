#include "quillog/text_view.h"

#include <unistd.h>

#include <algorithm>

namespace {

/// How often the directory is looked at, which makes the daemon write what it holds, and how long that may take.
constexpr useconds_t kListInterval = 800000;
constexpr useconds_t kFlushTime = 100000;

constexpr size_t kMostMemory = 256 << 20;  ///< of lines that are kept
constexpr size_t kReversedBlocks = 4;      ///< are read at once

size_t LinesIn(const Run& run) {
  return static_cast<size_t>(std::count(run.at, run.end, '\n')) + (run.end[-1] == '\n' ? 0 : 1);
}

}  // namespace

KeptLine::KeptLine(const Line& of, bool wanted)
    : line(of),
      text(of.text, of.size),
      file(*of.file),
      identity(of.identity != nullptr ? *of.identity : std::string()),
      title(of.title != nullptr ? *of.title : std::string()),
      isWanted(wanted) {}

Line KeptLine::Get() const {
  Line copy = line;
  copy.text = text.data();
  copy.file = &file;
  copy.identity = line.identity != nullptr ? &identity : nullptr;
  copy.title = line.title != nullptr ? &title : nullptr;
  return copy;
}

TextView::TextView(const Parts& parts)
    : options(parts.options),
      query(parts.query),
      output(parts.output),
      clock(parts.clock),
      printer(parts.printer),
      text(parts.text),
      report(parts.report),
      hasContext(options.before + options.after > 0),
      wholeRuns(query.MatchesAll() && parts.wanted.IsAll() && (printer.IsPlain() || options.count) &&
                !printer.PrintsRowsOnly()),
      searches(options.form == Form::kText && !hasContext && !parts.wanted.HasRange()),
      before(options.reverse ? options.after : options.before),
      after(options.reverse ? options.before : options.after) {
  how.lines = {options.verifiedOnly, printer.PrintsRowsOnly(), options.hasLines || options.reverse, options.follow};
  how.timed = options.form != Form::kText || parts.wanted.HasRange();
  how.wanted = parts.wanted;
}

void TextView::Show() {
  options.reverse && !options.count ? ShowReversed() : ShowForward();
}

void TextView::ShowForward() {
  const size_t first = options.hasLines ? FindLast() : 0;
  LogReader log(output, clock, how, first);
  ShowAll(log);
  toPass = 0;
  while (options.follow && text.Works()) {
    usleep(kFlushTime);
    ShowAll(log);
    text.LookForReader();
    usleep(kListInterval);
    log.Renew();
  }
}

/// From the newest file back until there are enough lines: the file with the first of them, or the one before, where
/// lines before it may be shown. Sets how many come before it there.
size_t TextView::FindLast() {
  size_t place = output.files.size();
  size_t found = 0;
  while (place > 0 && found < options.lines) {
    found += Count(--place);
    ShowProgress(place);
  }
  if (options.lines == 0 && place > 0) {
    toPass = SIZE_MAX;
    return place - 1;
  }
  if (before > 0 && place > 0) {
    found += Count(--place);
  }
  toPass = found - std::min(found, options.lines);
  toShow = options.follow ? SIZE_MAX : options.lines;
  return place;
}

/// The wanted lines in one file.
size_t TextView::Count(size_t place) {
  LogReader log(output, clock, how, place, place + 1);
  size_t count = 0;
  bool isWanted = false;
  leftOut = false;
  Line line;
  for (Item item; (item = wholeRuns ? log.Peek() : NextLine(log, &line, &isWanted)) != Item::kEnd;) {
    if (item == Item::kLine && wholeRuns) {
      count += LinesIn(log.run());
      log.SkipTo(log.run().end);
    } else if (item == Item::kLine) {
      count += isWanted ? 1 : 0;
    }
  }
  return count;
}

/// What there is now.
void TextView::ShowAll(LogReader& log) {
  const bool inRuns = wholeRuns && !options.hasLines;
  size_t place = 0;
  bool isWanted = false;
  Line line;
  for (Item item; text.Works() && (item = inRuns ? log.Peek() : NextLine(log, &line, &isWanted)) != Item::kEnd;) {
    if (item != Item::kLine) {
      report.Say(log.subject(), log.message(), item == Item::kDamage);
    } else if (inRuns) {
      if (options.count) {
        shown += LinesIn(log.run());
      } else {
        printer.Print(log.run());
      }
      log.SkipTo(log.run().end);
    } else {
      Take(line, isWanted);
    }
    if (log.place() != place) {
      place = log.place();
      ShowProgress(place);
    }
  }
  text.Flush();
}

void TextView::ShowReversed() {
  toShow = options.hasLines ? options.lines : SIZE_MAX;
  for (size_t place = output.files.size(); place-- > 0 && text.Works() && toShow + afterLeft > 0;) {
    const LogFile& file = output.files[place];
    std::vector<FilePart> parts = {{0, UINT64_MAX, LogClock::FirstIn(place), LogClock::FirstIn(place + 1)}};
    // A row's title may be anywhere before it in the file.
    if (const ByteRange bytes = printer.PrintsRowsOnly() ? ByteRange() : file.Open()) {
      parts = LogClock::PartsOf(*FileReader::Make(file.kind, bytes), file.kind, place, kReversedBlocks);
    }
    for (size_t part = parts.size(); part-- > 0 && text.Works() && toShow + afterLeft > 0;) {
      ShowReversed(place, parts[part]);
    }
    LogReader gap(output, clock, how);
    if (const Item item = place > 0 ? gap.FindGapBefore(place) : Item::kLine; item != Item::kLine) {
      report.Say(gap.subject(), gap.message(), item == Item::kDamage);
    }
    ShowProgress(place);
  }
  text.Flush();
}

void TextView::ShowReversed(size_t place, const FilePart& part) {
  LogReader::Options here = how;
  here.part = part;
  here.wanted.from = std::max(how.wanted.from, part.first);
  here.wanted.end = std::min(how.wanted.end, part.end);
  LogReader log(output, clock, here, place, place + 1);
  std::deque<KeptLine> lines;
  size_t used = 0;
  bool isTooLong = false;
  bool isWanted = false;
  Line line;
  for (Item item; (item = NextLine(log, &line, &isWanted)) != Item::kEnd;) {
    if (item != Item::kLine) {
      if (said.insert(log.subject() + log.message()).second) {
        report.Say(log.subject(), log.message(), item == Item::kDamage);
      }
      continue;
    }
    lines.emplace_back(line, isWanted);
    used += lines.back().Memory();
    for (; used > kMostMemory || (!hasContext && lines.size() > toShow); lines.pop_front()) {
      isTooLong |= used > kMostMemory;
      used -= lines.front().Memory();
    }
  }
  for (auto turned = lines.rbegin(); turned != lines.rend(); ++turned) {
    Line copy = turned->Get();
    copy.joins = false;
    Take(copy, turned->IsWanted());
  }
  if (isTooLong) {
    report.Say(output.files[place].Name(), "too long to be turned round: only the newest 256 MiB of it are", true);
  }
}

/// What is wanted or, with lines around it, may be shown too.
Item TextView::NextLine(LogReader& log, Line* line, bool* isWanted) {
  for (;;) {
    const Item item = log.Peek();
    if (item != Item::kLine) {
      return item;
    }
    if (searches) {
      const char* found = query.Find(log.run().at, log.run().end);
      leftOut |= found != log.run().at;
      log.SkipTo(found != nullptr ? found : log.run().end);
      if (found == nullptr) {
        continue;
      }
    }
    log.Next(line);
    line->joins &= !leftOut;
    leftOut = (printer.PrintsRowsOnly() && !line->isRow) || !log.Wants(*line);
    *isWanted = !leftOut && query.Matches(*line);
    leftOut |= !*isWanted && !hasContext;
    if (!leftOut) {
      return item;
    }
  }
}

/// The next line, in the order of showing.
void TextView::Take(const Line& line, bool isWanted) {
  if (isWanted && toPass > 0) {
    --toPass;
    isWanted = false;
  }
  if (isWanted && toShow > 0) {
    --toShow;
    ++shown;
    for (const KeptLine& earlier : kept) {
      Print(earlier.Get());
    }
    kept.clear();
    memory = 0;
    Print(line);
    afterLeft = after;
  } else if (afterLeft > 0) {
    --afterLeft;
    Print(line);
  } else {
    Leave(line);
  }
}

/// A line that is shown only if a wanted one follows soon.
void TextView::Leave(const Line& line) {
  leftOut |= !hasContext;
  if (toShow > 0 && before > 0) {
    kept.emplace_back(line, false);
    memory += kept.back().Memory();
  }
  isGap |= before == 0;
  for (; kept.size() > before || memory > kMostMemory; kept.pop_front()) {
    memory -= kept.front().Memory();
    isGap = true;
  }
}

void TextView::Print(const Line& line) {
  if (options.count) {
    return;
  }
  Line copy = line;
  copy.joins &= !isGap;
  if (hasContext && hasPrinted && isGap && !printer.PrintsRowsOnly() && options.form != Form::kJson) {
    printer.PrintGap();
  }
  isGap = false;
  hasPrinted = true;
  printer.Print(copy);
}

void TextView::ShowProgress(size_t place) {
  text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
}
