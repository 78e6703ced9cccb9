#include "quillog/merge_view.h"

#include <sys/resource.h>

#include <algorithm>
#include <limits>

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
  if (!printer.PrintsRowsOnly()) {
    how.since = query.Since();
    how.until = query.Until();
  }
  const std::string& device = shown.front().device;
  const bool isOneDevice =
      std::all_of(shown.begin(), shown.end(), [&](const Output& output) { return output.device == device; });
  for (size_t i = 0; i < shown.size(); ++i) {
    Output& output = shown[i];
    const std::string& name = output.name.empty() ? output.path : output.name;
    const std::string prefix = isOneDevice || output.device.empty() ? "" : output.device + '/';
    streams[i].output = &output;
    streams[i].source = {output.device, output.name, prefix + name};
  }
}

void MergeView::Show() {
  AllowDescriptors();
  HoldAll();
  const size_t count = options.hasLines || options.count ? Count() : 0;
  const size_t wanted = options.hasLines ? std::min(count, options.lines) : count;
  options.count ? text.Write(std::to_string(wanted) + "\n") : ShowAll(count - wanted);
  text.Flush();
  for (Stream& stream : streams) {
    OutputFiles::LetGo(*stream.output);
  }
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
    stream.log = std::make_unique<LogReader>(*stream.output, how);
  }
}

/// A title comes right before its first row.
void MergeView::SetMoment(Stream& stream) {
  stream.moment = stream.line.time;
  if (stream.moment != kNoTime) {
    return;
  }
  if (!stream.hasOldest) {
    stream.hasOldest = true;
    stream.oldest = OldestTime(*stream.output, 0, stream.output->files.size());
  }
  stream.moment = stream.oldest;
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
    if ((stream.line.isRow || !printer.PrintsRowsOnly()) && query.Matches(stream.line)) {
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
