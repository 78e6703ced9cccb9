// quillog: reads, follows, checks and rescues the logs of quilcat.

#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "quillog/forms/terminal.h"
#include "quillog/merge_view.h"
#include "quillog/options.h"
#include "quillog/pile/selection.h"
#include "quillog/survey.h"
#include "quillog/text_view.h"

namespace {

enum : int { kAllRead = 0, kDamaged = 1, kNothing = 2 };

/// Turns what is asked for into a query on outputs that are one log. False: wrong usage, which is named.
bool SetQuery(const Options& options, Output* outputs, size_t count, Query* query) {
  std::string error;
  if (options.hasPattern && !query->SetPattern(options.pattern, options.how, &error)) {
    fprintf(stderr, "quillog: no pattern: %s\n", error.c_str());
    return false;
  }
  if (options.hasLevels) {
    query->SetLevels(options.levels);
  }
  if (options.last == 0 && options.since.empty() && options.until.empty()) {
    return true;
  }
  Time newest = kNoTime;
  for (Output* output = outputs; output != outputs + count; ++output) {
    newest = std::max(newest, NewestTime(*output, 0, output->files.size()));
  }
  if (options.last != 0) {
    // What is days later than the newest line was logged before the clock was set back.
    query->SetTimes(newest == kNoTime ? kNoTime : newest - options.last,
                    newest == kNoTime ? kNoTime : newest + TimeText::kDay);
    return true;
  }
  Time times[2] = {kNoTime, kNoTime};
  const std::string* texts[] = {&options.since, &options.until};
  for (size_t i = 0; i < 2; ++i) {
    if (!texts[i]->empty() && !TimeText::Parse(*texts[i], newest, &times[i], &error)) {
      fprintf(stderr, "quillog: %s: %s\n", error.c_str(), texts[i]->c_str());
      return false;
    }
  }
  query->SetTimes(times[0], times[1]);
  return true;
}

/// True when new lines may come.
bool CanFollow(const Output& output) {
  return output.IsLive() && output.files.back().inode != 0;
}

int ShowMerged(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  Query query;
  if (!SetQuery(options, outputs.data(), outputs.size(), &query)) {
    return kNothing;
  }
  MergeView(options, query, outputs, *printer, text, report).Show();
  return kAllRead;
}

int Show(const Options& options, std::vector<Output>& outputs, TextOutput& text, Report& report) {
  const std::unique_ptr<Printer> printer = Printer::Make(options.form, options.colored, text);
  for (Output& output : outputs) {
    Survey::Hold(output, report);
    const Source source{output.device, output.name, ""};
    printer->SetSource(source);
    Query query;
    if (!SetQuery(options, &output, 1, &query)) {
      return kNothing;
    }
    TextView(options, query, output, *printer, text, report).Show();
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
