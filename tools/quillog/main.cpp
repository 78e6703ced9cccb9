// quillog: reads, follows, checks and rescues the logs of quilcat.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "quillog/choice.h"
#include "quillog/forms/terminal.h"
#include "quillog/merge_view.h"
#include "quillog/options.h"
#include "quillog/pile/selection.h"
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

/// True when new lines may come.
bool CanFollow(const Output& output) {
  return output.IsLive() && output.files.back().inode != 0;
}

/// What could not be printed.
void SayComplaint(const Printer& printer, const std::string& of, Report& report) {
  if (const std::string complaint = printer.Complaint(); !complaint.empty()) {
    report.Say(of, complaint, false);
  }
}

int ShowMerged(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  Query query;
  if (!SetQuery(options, &query) || !MergeView(options, query, outputs, *printer, text, report).Show()) {
    return kNothing;
  }
  SayComplaint(*printer, "merged outputs", report);
  return kAllRead;
}

int Show(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  Query query;
  if (!SetQuery(options, &query)) {
    return kNothing;
  }
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  for (Output& output : outputs) {
    Survey::Hold(output, report);
    const Source source{output.device, output.name, ""};
    printer->SetSource(source);
    LogClock clock(output);
    LogReader::Wanted wanted;
    if ((Choice::IsOfTime(options) && !Choice::SetRange(options, clock.Newest(), clock, &wanted)) ||
        (options.hasBoot && !Choice::SetBoot(options.boot, clock, &wanted))) {
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
  SayComplaint(*printer, outputs.front().path, report);
  return kAllRead;
}

/// Where the text of one output only can be shown: tells which ones there are and what to type next. That is the answer
/// to who asked for nothing else, and an error to others.
int NameOutputs(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  const bool isAnswer = !options.ChoosesText();
  if (isAnswer) {
    Survey::List(outputs, text, report);
    text.Flush();
    text.HideProgress();
  }
  fprintf(stderr, "quillog: several outputs, name one, as in \"quillog %s\"%s\n", outputs.front().path.c_str(),
          options.follow ? "" : ", or merge them by --merge");
  for (size_t i = 0; i < outputs.size() && !isAnswer; ++i) {
    fprintf(stderr, "  %s\n", outputs[i].path.c_str());
  }
  return isAnswer ? kAllRead : kNothing;
}

int Answer(const Options& options) {
  Selection selection;
  const bool isThere = selection.Add(options.paths);
  const bool isShown = Terminal::IsShown();
  Terminal::Pager pager;
  if (options.paged && isThere) {
    pager.Start();
  }
  TextOutput text(1, isShown);
  Report report(text);
  for (const PileDamage& damage : selection.damages()) {
    report.Say(damage.path, damage.what, true);
  }
  if (!isThere) {
    return kNothing;
  }
  int status = kAllRead;
  if (options.action == Options::Action::kList) {
    Survey::List(selection.outputs(), text, report);
  } else if (options.action == Options::Action::kListBoots) {
    Survey::ListBoots(selection.outputs(), text, report);
  } else if (options.action == Options::Action::kVerify) {
    Survey::Verify(selection.outputs(), text, report);
  } else if (options.merge) {
    status = ShowMerged(options, selection.outputs(), text, report);
  } else if (selection.IsAmbiguous() || (options.follow && selection.outputs().size() > 1)) {
    status = NameOutputs(options, selection.outputs(), text, report);
  } else if (options.follow && !CanFollow(selection.outputs().front())) {
    fprintf(stderr, "quillog: nothing to follow: it is a copy that does not grow\n");
    return kNothing;
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
  return status != kAllRead ? status : report.damages() > 0 ? kDamaged : kAllRead;
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
