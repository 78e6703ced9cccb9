#include "quillog/merge_view.h"

#include <sys/resource.h>

#include <algorithm>
#include <limits>

#include "quillog/choice.h"

namespace {

constexpr Time kNever = std::numeric_limits<Time>::max();

/// Lets the process have as many descriptors as it may: each output takes one, and a dozen where it is held.
void AllowDescriptors() {
  struct rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
  }
}

}  // namespace

MergeView::MergeView(const Options& asked, const Query& wanted, std::vector<Output>& shown, Printer& form,
                     TextOutput& to, Report& reported)
    : options(asked), query(wanted), printer(form), text(to), report(reported), streams(shown.size()) {
  how.lines.verifiedOnly = options.verifiedOnly;
  how.lines.tellsTitles = printer.PrintsRowsOnly();
  how.timed = true;
  const std::string& device = shown.front().device;
  const bool isOneDevice =
      std::all_of(shown.begin(), shown.end(), [&](const Output& output) { return output.device == device; });
  for (size_t i = 0; i < shown.size(); ++i) {
    Output& output = shown[i];
    const std::string& name = output.name.empty() ? output.path : output.name;
    const std::string prefix = isOneDevice || output.device.empty() ? "" : output.device + '/';
    streams[i].output = &output;
    streams[i].clock = std::make_unique<LogClock>(output);
    streams[i].source = {output.device, output.name, prefix + name};
  }
}

bool MergeView::Show() {
  AllowDescriptors();
  HoldAll();
  if (Choice::IsOfTime(options) && !SetRanges()) {
    return false;
  }
  const size_t count = options.hasLines || options.count ? Count() : 0;
  const size_t wanted = options.hasLines ? std::min(count, options.lines) : count;
  options.count ? text.Write(std::to_string(wanted) + "\n") : ShowAll(count - wanted);
  text.Flush();
  for (Stream& stream : streams) {
    OutputFiles::LetGo(*stream.output);
  }
  return true;
}

bool MergeView::SetRanges() {
  Time newest = kNoTime;
  for (const Stream& stream : streams) {
    newest = std::max(newest, stream.clock->Newest());
  }
  return std::all_of(streams.begin(), streams.end(),
                     [&](Stream& stream) { return Choice::SetRange(options, newest, *stream.clock, &stream.wanted); });
}

/// All lines but the first.
void MergeView::ShowAll(size_t toPass) {
  Open();
  for (Stream& stream : streams) {
    Advance(stream, false);
  }
  Time next = kNever;
  for (Stream* stream; (stream = Earliest(&next)) != nullptr && text.Works();) {
    do {
      if (toPass > 0) {
        --toPass;
      } else {
        printer.SetSource(stream->source);
        printer.Print(stream->line);
      }
      Advance(*stream, false);
    } while (stream->log != nullptr && stream->moment <= next && text.Works());
  }
}

/// Holds the files of all outputs, or of none where that takes too many descriptors: what a rotation renames is found
/// all the same.
void MergeView::HoldAll() {
  const auto isHeld = [](Stream& stream) { return OutputFiles::Hold(*stream.output); };
  if (!std::all_of(streams.begin(), streams.end(), isHeld)) {
    for (Stream& stream : streams) {
      OutputFiles::LetGo(*stream.output);
    }
  }
}

void MergeView::Open() {
  for (Stream& stream : streams) {
    how.wanted = stream.wanted;
    stream.log = std::make_unique<LogReader>(*stream.output, *stream.clock, how);
    stream.hasMoment = false;
  }
}

/// What has no time comes right after the line before.
void MergeView::SetMoment(Stream& stream) {
  if (stream.line.moment.time != kNoTime) {
    stream.moment = stream.line.moment.time;
  } else if (!stream.hasMoment) {
    stream.moment = stream.clock->Oldest();
  }
  stream.hasMoment = true;
}

/// Reads on to the next wanted line.
void MergeView::Advance(Stream& stream, bool isQuiet) {
  LogReader& log = *stream.log;
  bool leftOut = false;
  for (Item item; (item = log.Next(&stream.line)) != Item::kEnd;) {
    if (item != Item::kLine) {
      if (!isQuiet) {
        report.Say(stream.source.label + ": " + log.subject(), log.message(), item == Item::kDamage);
      }
      continue;
    }
    if ((stream.line.isRow || !printer.PrintsRowsOnly()) && log.Wants(stream.line) && query.Matches(stream.line)) {
      stream.line.joins &= !leftOut;
      SetMoment(stream);
      return;
    }
    leftOut = true;
  }
  stream.log = nullptr;
}

/// The wanted lines that there are.
size_t MergeView::Count() {
  size_t count = 0;
  Open();
  for (Stream& stream : streams) {
    while (Advance(stream, !options.count), stream.log != nullptr) {
      ++count;
    }
  }
  return count;
}

/// The stream with the line to show next; `next` is set to when that of another is. Null: all have ended.
MergeView::Stream* MergeView::Earliest(Time* next) {
  Stream* earliest = nullptr;
  *next = kNever;
  for (Stream& stream : streams) {
    if (stream.log == nullptr) {
      continue;
    }
    if (earliest == nullptr || stream.moment < earliest->moment) {
      *next = earliest != nullptr ? std::min(*next, earliest->moment) : *next;
      earliest = &stream;
    } else {
      *next = std::min(*next, stream.moment);
    }
  }
  return earliest;
}
