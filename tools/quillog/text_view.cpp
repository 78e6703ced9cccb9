#include "quillog/text_view.h"

#include <unistd.h>

#include <algorithm>

namespace {

/// How often the directory is looked at, which makes the daemon write what it holds, and how long that may take.
constexpr useconds_t kListInterval = 800000;
constexpr useconds_t kFlushTime = 100000;

}  // namespace

TextView::TextView(const Options& asked, Query& wanted, Output& shown, Printer& form, TextOutput& to, Report& reported)
    : options(asked),
      query(wanted),
      output(shown),
      printer(form),
      text(to),
      report(reported),
      wholeRuns(query.MatchesAll() && printer.IsPlain()),
      searches(!query.HasTimes() && options.form == Form::kText) {
  how.lines = {options.verifiedOnly, printer.PrintsRowsOnly(), options.hasLines, options.follow};
  if (!printer.PrintsRowsOnly()) {
    how.since = query.Since();
    how.until = query.Until();
  }
}

void TextView::Show() {
  const size_t first = options.hasLines ? FindLast() : 0;
  LogReader log(output, how, first);
  ShowAll(log);
  toPass = 0;
  while (options.follow && text.Works()) {
    if (options.last != 0) {
      query.SetTimes(kNoTime, kNoTime);  // a day later, or when the clock is set, new lines are wanted all the same
    }
    usleep(kFlushTime);
    ShowAll(log);
    text.LookForReader();
    usleep(kListInterval);
    log.Renew();
  }
}

/// From the newest file back until there are enough lines: the file with the first of them. Sets how many come before
/// it there.
size_t TextView::FindLast() {
  size_t place = output.files.size();
  size_t found = 0;
  while (place > 0 && found < options.lines) {
    found += Count(--place);
    text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
  }
  if (options.lines == 0 && place > 0) {
    toPass = SIZE_MAX;
    return place - 1;
  }
  toPass = found - std::min(found, options.lines);
  toShow = options.follow ? SIZE_MAX : options.lines;
  return place;
}

/// The wanted lines in one file.
size_t TextView::Count(size_t place) {
  LogReader log(output, how, place, place + 1);
  size_t count = 0;
  leftOut = false;
  Line line;
  for (Item item; (item = wholeRuns ? log.Peek() : NextWanted(log, &line)) != Item::kEnd;) {
    if (item == Item::kLine && wholeRuns) {
      const Run& run = log.run();
      count += static_cast<size_t>(std::count(run.at, run.end, '\n')) + (run.end[-1] == '\n' ? 0 : 1);
      log.SkipTo(run.end);
    } else if (item == Item::kLine) {
      ++count;
    }
  }
  return count;
}

/// What there is now.
void TextView::ShowAll(LogReader& log) {
  const bool inRuns = wholeRuns && !options.hasLines;
  size_t place = 0;
  Line line;
  for (Item item; text.Works() && (item = inRuns ? log.Peek() : NextWanted(log, &line)) != Item::kEnd;) {
    if (item != Item::kLine) {
      report.Say(log.subject(), log.message(), item == Item::kDamage);
    } else if (inRuns) {
      printer.Print(log.run());
      log.SkipTo(log.run().end);
    } else if (toPass > 0) {
      --toPass;
      leftOut = true;
    } else if (toShow > 0) {
      --toShow;
      printer.Print(line);
    }
    if (log.place() != place) {
      place = log.place();
      text.Progress("file " + std::to_string(place + 1) + " of " + std::to_string(output.files.size()));
    }
  }
  text.Flush();
}

Item TextView::NextWanted(LogReader& log, Line* line) {
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
    leftOut = (printer.PrintsRowsOnly() && !line->isRow) || !query.Matches(*line);
    if (!leftOut) {
      return item;
    }
  }
}
