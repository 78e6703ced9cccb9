// quillog: reads, follows, checks and rescues the logs of quilcat.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "quillog/options.h"
#include "quillog/pile/selection.h"
#include "quillog/survey.h"
#include "quillog/text_view.h"

namespace {

enum : int { kAllRead = 0, kDamaged = 1, kNothing = 2 };

/// Turns what is asked for into a query on one output. False: wrong usage, which is named.
bool SetQuery(const Options& options, const Output& output, Report& report, Query* query) {
  std::string error;
  if (options.hasPattern && !query->SetPattern(options.pattern, options.ignoreCase, options.invert, &error)) {
    fprintf(stderr, "quillog: %s: %s\n", options.pattern.c_str(), error.c_str());
    return false;
  }
  if (options.last == 0 && options.since.empty() && options.until.empty()) {
    return true;
  }
  const Time newest = NewestTime(output.files, report);
  if (options.last != 0) {
    // What is days later than the newest line was logged before the clock was set back.
    query->SetTimes(newest == kNoTime ? kNoTime : newest - options.last,
                    newest == kNoTime ? kNoTime : newest + TimeText::kDay);
    return true;
  }
  Time times[2] = {kNoTime, kNoTime};
  const std::string* texts[] = {&options.since, &options.until};
  for (size_t i = 0; i < 2; ++i) {
    if (!texts[i]->empty() && !TimeText::Parse(*texts[i], newest, &times[i])) {
      fprintf(stderr, "quillog: no time, as \"2026-11-22 21:04:05\", \"11-22 21:04\", \"21:04\" or \"2h ago\": %s\n",
              texts[i]->c_str());
      return false;
    }
  }
  query->SetTimes(times[0], times[1]);
  return true;
}

int Show(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  const std::unique_ptr<Printer> printer = Printer::Make(options.format, options.colored, text);
  for (Output& output : outputs) {
    if (!OutputFiles::Hold(output)) {
      report.Say(output.path, strerror(errno), true);
    }
    Query query;
    if (!SetQuery(options, output, report, &query)) {
      return kNothing;
    }
    TextView view(options, query, output, *printer, text, report);
    view.Show();
    if (options.follow) {
      if (options.last != 0) {
        query.SetTimes(kNoTime, kNoTime);  // a day later, or when the clock is set, new lines are wanted all the same
      }
      view.Follow();
    }
    OutputFiles::LetGo(output);
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

int Run(const Options& options) {
  Selection selection;
  TextOutput text(1);
  Report report(text);
  const bool isThere = selection.Add(options.paths);
  for (const PileDamage& damage : selection.damages()) {
    report.Say(damage.path, damage.what, true);
  }
  if (!isThere) {
    return kNothing;
  }
  int status = kAllRead;
  if (options.action == Options::Action::kList) {
    Survey::List(selection.outputs(), text, report);
  } else if (options.action == Options::Action::kVerify) {
    Survey::Verify(selection.outputs(), text, report);
  } else if (selection.IsAmbiguous() || (options.follow && selection.outputs().size() > 1)) {
    return NameOutputs(selection.outputs());
  } else {
    status = Show(options, selection.outputs(), text, report);
  }
  text.HideProgress();
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
    return fputs(kUsage, stdout) < 0 || fflush(stdout) != 0 ? kNothing : kAllRead;
  }
  if (options.action == Options::Action::kVersion) {
    return puts("quillog " QUILLOG_VERSION) < 0 || fflush(stdout) != 0 ? kNothing : kAllRead;
  }
  return Run(options);
}
