// Edits seen by what follows the document from outside its text: as lines,
// for the per-line state that moves with it (the bookmarks: which line each
// edit starts on, how many line breaks it removed and inserted; counted only
// while that state is not empty, so a document without bookmarks pays
// nothing per keystroke), and as sites for the crash-recovery recorder.

#include <algorithm>
#include <array>

#include "document/Document.h"

namespace quorin::document {
namespace {

using persistence::UndoEntry;

std::string_view viewOf(const persistence::SharedBytes& bytes) {
  return bytes ? std::string_view(*bytes) : std::string_view();
}

// The line of `offset` when the index knows it: while the first pass runs,
// an offset at or past the last known line start may lie on a later line.
std::optional<int64_t> knownLineOf(const storage::LineIndexSnapshot& lines, int64_t offset) {
  const int64_t known = lines.knownLineCount();
  if (known == 0) return std::nullopt;
  if (!lines.isComplete) {
    const auto lastStart = lines.lineStart(known - 1);
    if (!lastStart || offset >= *lastStart) return std::nullopt;
  }
  return lines.lineContaining(offset);
}

}  // namespace

char Document::lineTerminatorByte() const {
  return static_cast<char>(text::lineTerminator(table_->originalBuffer().lineEnding()));
}

int64_t Document::breaksIn(std::string_view bytes) const {
  return std::count(bytes.begin(), bytes.end(), lineTerminatorByte());
}

bool Document::tracksLines(const UndoEntry* entry) const {
  return anchors_ && (!anchors_->empty() || (entry && entry->bookmarks));
}

int64_t Document::breaksInRange(const storage::PieceTableSnapshot& text, storage::ByteRange range) const {
  const char terminator = lineTerminatorByte();
  std::array<uint8_t, 1 << 16> chunk;
  int64_t breaks = 0;
  for (int64_t at = range.start; at < range.end;) {
    const int64_t want = std::min<int64_t>(chunk.size(), range.end - at);
    const int64_t got = text.copyBytes({at, at + want}, chunk.data());
    if (got <= 0) break;
    breaks += std::count(chunk.begin(), chunk.begin() + got, static_cast<uint8_t>(terminator));
    at += got;
  }
  return breaks;
}

void Document::locate(std::span<SiteLines> sites) const {
  const auto lines = index_->snapshot();
  for (SiteLines& site : sites) {
    if (site.removedBreaks != 0 || site.insertedBreaks != 0) site.line = knownLineOf(lines, site.offset);
  }
}

std::vector<LineSplice> Document::splicesOf(std::span<const SiteLines> sites, bool offsetsInResult) {
  std::vector<LineSplice> splices;
  int64_t shift = 0;
  for (const SiteLines& site : sites) {
    if (site.removedBreaks == 0 && site.insertedBreaks == 0) continue;
    if (!site.line) break;  // the rest lies past what the index knows
    splices.push_back({*site.line + (offsetsInResult ? 0 : shift), site.removedBreaks, site.insertedBreaks});
    shift += site.insertedBreaks - site.removedBreaks;
  }
  return splices;
}

std::vector<LineSplice> Document::splicesOfHistory(const UndoEntry& entry, bool undoing) const {
  std::vector<SiteLines> sites;
  if (!entry.isBatch) {
    sites.push_back({entry.docOffsetAtEdit, breaksIn(viewOf(entry.originalBytes)),
                     breaksIn(viewOf(entry.insertedBytes))});
    locate(sites);
    return splicesOf(sites, false);
  }
  // An ascending run: each edit's offset counts the edits before it. Undoing
  // starts from the result, where that holds as it is; redoing starts from
  // the text before the run, where the earlier edits have not moved it yet.
  int64_t byteShift = 0;
  for (const UndoEntry& e : entry.batchSubEdits) {
    sites.push_back({undoing ? e.docOffsetAtEdit : e.docOffsetAtEdit - byteShift,
                     breaksIn(viewOf(e.originalBytes)), breaksIn(viewOf(e.insertedBytes))});
    byteShift += e.insertedLength() - e.removedLength();
  }
  locate(sites);
  return splicesOf(sites, undoing);
}

void Document::recordHistory(const UndoEntry& entry, bool undoing) {
  if (!recorder_) return;
  // Undoing puts each edit's original bytes back where its text is now. In
  // an ascending run, the edits before one, already undone, have moved it
  // by what they removed less what they had inserted: recorded in document
  // order, the sites stay an ascending run that replays in one pass.
  std::vector<RecordedSite> sites;
  int64_t shift = 0;
  const std::span<const UndoEntry> edits =
      entry.isBatch ? std::span<const UndoEntry>(entry.batchSubEdits) : std::span<const UndoEntry>();
  for (const UndoEntry& e : edits) {
    sites.push_back(undoing
                        ? RecordedSite{e.docOffsetAtEdit + shift, e.insertedLength(), viewOf(e.originalBytes)}
                        : RecordedSite{e.docOffsetAtEdit, e.removedLength(), viewOf(e.insertedBytes)});
    if (undoing) shift += e.removedLength() - e.insertedLength();
  }
  if (!entry.isBatch) {
    sites.push_back(
        undoing ? RecordedSite{entry.docOffsetAtEdit, entry.insertedLength(), viewOf(entry.originalBytes)}
                : RecordedSite{entry.docOffsetAtEdit, entry.removedLength(), viewOf(entry.insertedBytes)});
  }
  recorder_->recorded(sites);
}

}  // namespace quorin::document
