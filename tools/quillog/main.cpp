// quillog: reads, follows, checks and rescues the logs of quilcat.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "quillog/forms/terminal.h"
#include "quillog/options.h"
#include "quillog/select/selection.h"
#include "quillog/survey.h"
#include "quillog/text_view.h"

namespace {

enum : int { kAllRead = 0, kDamaged = 1, kNothing = 2 };

/// Turns what is asked for into a query. False: wrong usage, which is named.
bool SetQuery(const Options& options, Query* query) {
  std::string error;
  if (options.hasPattern && !query->SetPattern(options.pattern, options.how, &error)) {
    fprintf(stderr, "quillog: no pattern: %s\n", error.c_str());
    return false;
  }
  if (options.hasLevels) {
    query->SetLevels(options.levels);
  }
  return true;
}

/// Turns --last, --since and --until into a range.
bool SetRange(const Options& options, LogClock& clock, Timeline::Range* range) {
  if (options.last != 0) {
    *range = clock.Times().Last(options.last);
  }
  Time* const times[] = {&range->since, &range->until};
  const std::string* texts[] = {&options.since, &options.until};
  for (size_t i = 0; i < 2; ++i) {
    std::string error;
    if (!texts[i]->empty() && !TimeText::Parse(*texts[i], clock.Newest(), times[i], &error)) {
      fprintf(stderr, "quillog: %s: %s\n", error.c_str(), texts[i]->c_str());
      return false;
    }
  }
  return true;
}

/// The places between which a boot's lines are.
bool SetBoot(int number, LogClock& clock, LogReader::Wanted* wanted) {
  const std::vector<Boot> boots = clock.Times().Boots();
  const auto count = static_cast<int>(boots.size());
  const int index = number > 0 ? number - 1 : count - 1 + number;
  if (index < 0 || index >= count) {
    fprintf(stderr, "quillog: no boot %d, there %s %d\n", number, count == 1 ? "is" : "are", count);
    return false;
  }
  wanted->from = boots[static_cast<size_t>(index)].first;
  wanted->end = index + 1 < count ? boots[static_cast<size_t>(index) + 1].first : kNoPlace;
  return true;
}

int Show(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  Query query;
  if (!SetQuery(options, &query)) {
    return kNothing;
  }
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  for (Output& output : outputs) {
    OutputFiles::Open(output);
    LogClock clock(output);
    LogReader::Wanted wanted;
    if (!SetRange(options, clock, &wanted.range) || (options.hasBoot && !SetBoot(options.boot, clock, &wanted))) {
      return kNothing;
    }
    TextView view({options, query, wanted, output, clock, *printer, text, report});
    view.Show();
    if (options.count) {
      text.Write((outputs.size() > 1 ? output.path + ": " : "") + std::to_string(view.found()) + "\n");
    }
    OutputFiles::LetGo(output);
    if (!text.Works()) {
      break;
    }
  }
  if (const std::string complaint = printer->Complaint(); !complaint.empty()) {
    report.Say(outputs.front().path, complaint, false);
  }
  return kAllRead;
}

/// Names the outputs, where the text of one only is asked for.
int NameOutputs(const std::vector<Output>& outputs) {
  fprintf(stderr, "quillog: several outputs, name one:\n");
  for (const Output& output : outputs) {
    fprintf(stderr, "  %s\n", output.path.c_str());
  }
  return kNothing;
}

int Answer(const Options& options) {
  Selection selection;
  if (!selection.Add(options.paths)) {
    return kNothing;
  }
  const bool isShown = Terminal::IsShown();
  Terminal::Pager pager;
  if (options.paged) {
    pager.Start();
  }
  TextOutput text(1, isShown);
  Report report(text);
  int status = kAllRead;
  if (options.action == Options::Action::kList) {
    Survey::List(selection.outputs(), text, report);
  } else if (options.action == Options::Action::kListBoots) {
    Survey::ListBoots(selection.outputs(), text, report);
  } else if (options.action == Options::Action::kVerify) {
    Survey::Verify(selection.outputs(), text, report);
  } else if (selection.IsAmbiguous() || (options.follow && selection.outputs().size() > 1)) {
    return NameOutputs(selection.outputs());
  } else {
    status = Show(options, selection.outputs(), text, report);
  }
  text.Flush();
  text.HideProgress();
  report.Finish();
  pager.Stop();
  if (!text.Works() && text.Error() != EPIPE) {
    fprintf(stderr, "quillog: cannot write: %s\n", strerror(text.Error()));
  }
  if (!text.Works()) {
    return text.Error() == EPIPE ? kAllRead : kNothing;
  }
  return status != kAllRead ? status : report.damages() > 0 || selection.HasUnreadable() ? kDamaged : kAllRead;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that has gone away is noticed by the write that fails.
  signal(SIGPIPE, SIG_IGN);
  Options options;
  if (!ParseOptions(argc, argv, &options)) {
    fprintf(stderr, "Try 'quillog --help'.\n");
    return kNothing;
  }
  if (options.action == Options::Action::kHelp) {
    return fputs(HelpText().c_str(), stdout) < 0 || fflush(stdout) != 0 ? kNothing : kAllRead;
  }
  if (options.action == Options::Action::kVersion) {
    return puts("quillog " QUILLOG_VERSION) < 0 || fflush(stdout) != 0 ? kNothing : kAllRead;
  }
  if (options.utc) {
    TimeText::UseUtc();
  }
  return Answer(options);
}
