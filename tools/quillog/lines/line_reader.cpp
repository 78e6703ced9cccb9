#include "quillog/lines/line_reader.h"

#include <string.h>

#include "quillog/bytes/text_check.h"

namespace {

/// The writer's lines are 8191 bytes at most, but some have no line feed: more than this is given in pieces.
constexpr size_t kMostUnfinished = 1048576;

const char* FindFeed(const char* text, size_t size) {
  return static_cast<const char*>(memchr(text, '\n', size));
}

}  // namespace

void LineReader::Open(FileKind kind, const ByteRange& bytes, const std::string& name, bool newest, Place rank) {
  reader = FileReader::Make(kind, bytes);
  fileKind = kind;
  firstRank = endRank = rank;
  fileName = name;
  isNewest = newest;
  finished = false;
  piece = Piece();
  unfinished.clear();
  lines = Run();
  joins = afterGap = false;
  if (options.apart) {
    hasTitle = rowsTellTime = afterEmptyLine = afterTimeLine = false;
  }
  lineNumber = 0;
}

void LineReader::Limit(uint64_t from, uint64_t to) {
  reader->Limit(from, to);
  afterGap = from > 0;
}

Item LineReader::Peek() {
  for (;;) {
    if (lines.at < lines.end) {
      if (lines.verified || !options.verifiedOnly) {
        return Item::kLine;
      }
      lines.at = lines.end;
    } else if (piece.size > 0) {
      CutRun();
    } else if (piece.gapAfter) {
      unfinished.clear();
      piece.gapAfter = false;
      afterGap = true;
    } else if (finished) {
      return Item::kEnd;
    } else if (NextPiece()) {
      if (!piece.damage.empty()) {
        note = "byte " + std::to_string(piece.damagedAt) + ": " + piece.damage;
        return Item::kDamage;
      }
    } else if (options.growing && isNewest) {
      return Item::kEnd;
    } else if (Finish() == Item::kRemark) {
      return Item::kRemark;
    }
  }
}

/// False: nothing more, for now.
bool LineReader::NextPiece() {
  const Tail tail = !isNewest ? Tail::kIsFinal : options.growing ? Tail::kGrows : Tail::kSettles;
  const bool isThere = reader->Next(tail, &piece);
  if (isThere && piece.starts) {
    GiveUnfinished(false);  // a line that was cut: the next file begins one of its own
    afterGap = joins = false;
    firstRank = endRank;
  }
  if (isThere && piece.size > 0) {
    endRank = firstRank + RankOf(fileKind, piece.member, piece.offset + piece.size);
  }
  return isThere;
}

/// The file ends here: an unfinished line is given, or left out when its writer died.
Item LineReader::Finish() {
  finished = true;
  const bool writerDied = !isNewest && reader->Summary().state == FileState::kZeroTail && !reader->HasWriter();
  if (!writerDied || unfinished.empty()) {
    GiveUnfinished(isNewest);
    return Item::kLine;
  }
  note = "ends within a line, as its writer died: " + std::to_string(unfinished.size()) + " bytes left out";
  unfinished.clear();
  return Item::kRemark;
}

/// Takes whole lines out of the piece, or puts what is none yet aside.
void LineReader::CutRun() {
  if (afterGap && TextCheck::TimeLength(piece.text, piece.size) == 0) {
    const char* feed = FindFeed(piece.text, piece.size);
    Consume(feed != nullptr ? static_cast<size_t>(feed + 1 - piece.text) : piece.size);
    afterGap = feed == nullptr;
    return;
  }
  afterGap = false;
  if (!unfinished.empty()) {
    const char* feed = FindFeed(piece.text, piece.size);
    const size_t length = feed != nullptr ? static_cast<size_t>(feed + 1 - piece.text) : piece.size;
    unfinished.append(piece.text, length);
    unfinishedRun.verified &= piece.verified;
    Consume(length);
    if (feed != nullptr || unfinished.size() > kMostUnfinished) {
      GiveUnfinished(true);
    }
    return;
  }
  const auto* last = static_cast<const char*>(memrchr(piece.text, '\n', piece.size));
  const size_t length = last != nullptr ? static_cast<size_t>(last + 1 - piece.text) : piece.size;
  const Run run{piece.text,
                piece.text + length,
                joins,
                piece.verified,
                piece.member,
                piece.offset,
                firstRank + RankOf(fileKind, piece.member, piece.offset)};
  if (last != nullptr) {
    lines = run;
    joins = false;
  } else {
    unfinished.assign(piece.text, length);
    unfinishedRun = run;
  }
  Consume(length);
}

void LineReader::Consume(size_t size) {
  piece.text += size;
  piece.offset += size;
  piece.size -= size;
}

/// What is unfinished, if anything, is the next run.
void LineReader::GiveUnfinished(bool verified) {
  if (unfinished.empty()) {
    return;
  }
  whole.swap(unfinished);
  unfinished.clear();
  lines = unfinishedRun;
  lines.at = whole.data();
  lines.end = lines.at + whole.size();
  lines.verified &= verified;
  joins = whole.back() != '\n';
}

void LineReader::SkipTo(const char* place) {
  const auto size = static_cast<size_t>(place - lines.at);
  const char* start = place;
  if (place < lines.end) {
    const auto* feed = static_cast<const char*>(memrchr(lines.at, '\n', size));
    start = feed != nullptr ? feed + 1 : lines.at;
  }
  lines.offset += static_cast<size_t>(start - lines.at);
  lines.rank += static_cast<size_t>(start - lines.at);
  lines.joins &= start == lines.at;
  lines.at = start;
}

Item LineReader::Next(Line* line) {
  const Item item = Peek();
  if (item != Item::kLine) {
    return item;
  }
  const char* feed = FindFeed(lines.at, static_cast<size_t>(lines.end - lines.at));
  *line = Line();
  line->text = lines.at;
  line->ended = feed != nullptr;
  line->size = static_cast<size_t>((feed != nullptr ? feed : lines.end) - lines.at);
  line->joins = lines.joins;
  line->verified = lines.verified;
  line->file = &fileName;
  line->identity = reader->Identity(lines.member);
  line->member = lines.member;
  line->offset = lines.offset;
  line->rank = lines.rank;
  const size_t taken = line->size + (line->ended ? 1 : 0);
  lines.at += taken;
  lines.offset += taken;
  lines.rank += taken;
  lines.joins = false;
  line->head = LineHead::Parse(line->text, line->size);
  if (options.tellsTitles) {
    NoteTitle(line);
  }
  return item;
}

/// A title is the line after an empty one, without a time of its own. Where rows have no time either, it is found only
/// at the beginning of a file, since elsewhere an empty line may be a row whose nodes all failed. A title seen before
/// is one anywhere: the line feed of the empty line above it may have ended a row that its writer left unfinished.
void LineReader::NoteTitle(Line* line) {
  ++lineNumber;
  const bool isEmpty = line->size == 0 || (line->size == 1 && line->text[0] == '\r');
  const bool isTime = line->head.HasStamp() && line->text[0] == 'c';
  const bool sameTitle = hasTitle && title.compare(0, std::string::npos, line->text, line->size) == 0;
  const bool isTitle =
      !isEmpty && !line->head.HasStamp() && (sameTitle || (afterEmptyLine && (lineNumber == 2 || rowsTellTime)));
  if (isTitle && !sameTitle) {
    title.assign(line->text, line->size);
    hasTitle = true;
  }
  line->isRow = !isEmpty && !isTime && !isTitle;
  line->title = hasTitle ? &title : nullptr;
  line->followsTimeLine = afterTimeLine;
  rowsTellTime |= line->isRow && line->head.HasStamp();
  afterEmptyLine = isEmpty;
  afterTimeLine = isTime;
}
