// The document's edits and their history: every change of the text the user
// makes enters here and goes, in this order, to the piece table, the line
// index and the undo store, the listeners, and the compaction scheduler.

#include <algorithm>

#include "base/Check.h"
#include "document/Document.h"

namespace quorin::document {
namespace {

using persistence::SharedBytes;
using persistence::TextSelection;
using persistence::UndoEntry;
using storage::ByteRange;
using storage::EditResult;

// A bulk edit spanning at most this much is handed to the line index as one
// edit (its span rescanned for line breaks); a larger one restarts the index.
constexpr int64_t kBulkRescanLimit = int64_t{64} << 20;

std::string bytesOf(const SharedBytes& bytes) { return bytes ? *bytes : std::string(); }

// A batch whose edits each start at or after the end of the previous one's
// text can be undone and redone as one bulk edit instead of edit by edit
// (a replace-all of a million sites would otherwise rebuild the piece list
// a million times).
bool isAscendingRun(const std::vector<UndoEntry>& edits) {
  if (edits.size() < 2) return false;
  for (size_t i = 0; i < edits.size(); ++i) {
    if (edits[i].isBatch) return false;
    if (i > 0 && edits[i].docOffsetAtEdit < edits[i - 1].docOffsetAtEdit + edits[i - 1].insertedLength()) {
      return false;
    }
  }
  return true;
}

}  // namespace

std::optional<EditRefusal> Document::refusalFor(ByteRange range) const {
  if (readOnly_) return EditRefusal{EditRefusal::Kind::readOnly};
  const ByteRange allowed = editableRange();
  if (range.start < allowed.start || range.end > allowed.end)
    return EditRefusal{EditRefusal::Kind::outsideWindow};
  return std::nullopt;
}

bool Document::willFitUndo(int64_t bytes) {
  const int64_t weight = bytes + persistence::kUndoEntryOverheadBytes;
  // The cap never goes below the floor, so small edits need no fresh reading of the host's memory.
  return weight <= options_.undoPolicy.floorBytes || weight <= undo_->refreshOperationCap();
}

std::expected<EditOutcome, EditRefusal> Document::insert(int64_t offset, std::string_view bytes,
                                                         TextSelection before, TextSelection after) {
  if (auto refusal = refusalFor({offset, offset})) return std::unexpected(*refusal);
  return replace({offset, offset}, bytes, before, after);
}

std::expected<EditOutcome, EditRefusal> Document::remove(ByteRange range, TextSelection before,
                                                         TextSelection after) {
  return replace(range, {}, before, after);
}

std::expected<EditOutcome, EditRefusal> Document::replace(ByteRange range, std::string_view bytes,
                                                          TextSelection before, TextSelection after) {
  requireMainThread();
  QUORIN_CHECK(range.start >= 0 && range.end >= range.start, "reversed or negative edit range");
  range.end = std::min(range.end, table_->totalLength());
  range.start = std::min(range.start, range.end);
  if (auto refusal = refusalFor(range)) return std::unexpected(*refusal);
  std::optional<UndoEntry> entry;
  if (willFitUndo(range.length() + static_cast<int64_t>(bytes.size()))) {
    entry = UndoEntry{
        .docOffsetAtEdit = range.start,
        .originalBytes =
            range.length() > 0 ? persistence::sharedBytes(table_->readBytes(range).value_or("")) : nullptr,
        .insertedBytes = bytes.empty() ? nullptr : persistence::sharedBytes(std::string(bytes)),
        .cursorBefore = before,
        .cursorAfter = after,
    };
  }
  std::vector<LineSplice> splices;
  if (tracksLines(nullptr)) {
    const int64_t removed = entry && entry->originalBytes ? breaksIn(*entry->originalBytes)
                                                          : breaksInRange(table_->snapshot(), range);
    SiteLines site{range.start, removed, breaksIn(bytes)};
    locate({&site, 1});
    splices = splicesOf({&site, 1}, false);
  }
  const EditResult edit = table_->replace(range, bytes);
  if (edit.bytesRemoved == 0 && edit.bytesInserted == 0) return EditOutcome{edit, true};
  index_->apply(edit);
  if (recorder_) {
    const RecordedSite site{edit.docByteStart, edit.bytesRemoved, bytes};
    recorder_->recorded({&site, 1});
  }
  if (!splices.empty()) {
    auto change = anchors_->edited(splices);
    if (entry) entry->bookmarks = std::move(change);
  }
  return recordEdit(edit, std::move(entry), false);
}

EditOutcome Document::recordEdit(const EditResult& edit, std::optional<UndoEntry> entry,
                                 bool indexRestarted) {
  bool undoable = false;
  if (entry) {
    undoable = undo_->record(std::move(*entry));
  } else {
    undo_->clear();
  }
  if (!undoable) status(kTooLargeToUndoMessage);
  notify({.kind = DocumentChange::Kind::edit, .edit = edit, .lineIndexRestarted = indexRestarted});
  compaction_->noteActivity();
  return {edit, undoable};
}

std::expected<EditOutcome, EditRefusal> Document::replaceAll(
    std::span<const storage::PieceTable::BulkEditSite> allSites, std::string description,
    TextSelection before, TextSelection after) {
  requireMainThread();
  // Sites that would change nothing are not edits: they would only clutter the undo entry.
  std::vector<storage::PieceTable::BulkEditSite> kept;
  for (const auto& site : allSites) {
    if (site.range.length() > 0 || !site.bytes.empty()) kept.push_back(site);
  }
  const std::span<const storage::PieceTable::BulkEditSite> sites = kept;
  if (sites.empty()) return EditOutcome{{}, true};
  if (auto refusal = refusalFor({sites.front().range.start, sites.back().range.end})) {
    return std::unexpected(*refusal);
  }
  int64_t weight = 0;
  for (const auto& site : sites) {
    weight +=
        site.range.length() + static_cast<int64_t>(site.bytes.size()) + persistence::kUndoEntryOverheadBytes;
  }
  const bool keep = willFitUndo(weight);

  // The removed bytes of every site, read before the edit; repeated texts
  // (the usual case: the same match replaced by the same text) share one buffer.
  std::vector<SharedBytes> originals;
  if (keep) {
    const auto before = table_->snapshot();
    originals.reserve(sites.size());
    for (const auto& site : sites) {
      std::string bytes = before.readBytes(site.range).value_or("");
      originals.push_back(!originals.empty() && originals.back() && *originals.back() == bytes
                              ? originals.back()
                              : persistence::sharedBytes(std::move(bytes)));
    }
  }
  const bool tracking = tracksLines(nullptr);
  std::vector<SiteLines> siteLines;
  if (tracking) {
    const auto text = table_->snapshot();
    siteLines.reserve(sites.size());
    for (size_t i = 0; i < sites.size(); ++i) {
      const int64_t removed = keep ? breaksIn(*originals[i]) : breaksInRange(text, sites[i].range);
      siteLines.push_back({sites[i].range.start, removed, breaksIn(sites[i].bytes)});
    }
    locate(siteLines);
  }
  const auto bulk = table_->applyBulkEdits(sites);
  if (bulk.sitesApplied == 0) {
    // The table counts even an empty batch as a new version: the line index
    // must hear of it, or its background build stops at the old one.
    index_->apply({.newVersion = bulk.newVersion});
    return EditOutcome{{}, true};
  }

  UndoEntry batch{
      .cursorBefore = before, .cursorAfter = after, .isBatch = true, .description = std::move(description)};
  int64_t shift = 0;
  int64_t spanStart = -1;
  int64_t spanEnd = 0;
  SharedBytes lastInserted;
  std::vector<RecordedSite> recorded;
  const int64_t lengthBefore = table_->totalLength() - bulk.netByteDelta;
  for (size_t i = 0; i < sites.size(); ++i) {
    if (!bulk.siteApplied[i]) continue;
    const auto& site = sites[i];
    const int64_t start = std::min(site.range.start, lengthBefore);
    const int64_t end = std::max(start, std::min(site.range.end, lengthBefore));
    if (spanStart < 0) spanStart = start;
    spanEnd = end;
    if (keep) {
      if (!lastInserted || *lastInserted != site.bytes) lastInserted = persistence::sharedBytes(site.bytes);
      batch.batchSubEdits.push_back(
          {.docOffsetAtEdit = start + shift, .originalBytes = originals[i], .insertedBytes = lastInserted});
    }
    if (recorder_) recorded.push_back({start + shift, end - start, site.bytes});
    shift += static_cast<int64_t>(site.bytes.size()) - (end - start);
  }
  batch.docOffsetAtEdit = spanStart;
  if (recorder_) recorder_->recorded(recorded);

  bool restarted = false;
  const EditResult edit = afterBulkEdit(bulk, spanStart, spanEnd, restarted);
  std::shared_ptr<const persistence::BookmarkChange> change;
  if (tracking) {
    std::vector<SiteLines> applied;
    for (size_t i = 0; i < siteLines.size(); ++i) {
      if (bulk.siteApplied[i]) applied.push_back(siteLines[i]);
    }
    const auto splices = splicesOf(applied, false);
    if (!splices.empty()) change = anchors_->edited(splices);
  }
  if (!keep) return recordEdit(edit, std::nullopt, restarted);
  // A batch of one edit is undone as that edit, so the change goes with it.
  (batch.batchSubEdits.size() == 1 ? batch.batchSubEdits.front() : batch).bookmarks = std::move(change);
  return recordEdit(edit, std::move(batch), restarted);
}

EditResult Document::afterBulkEdit(const storage::PieceTable::BulkEditResult& bulk, int64_t spanStart,
                                   int64_t spanEnd, bool& indexRestarted) {
  const int64_t newSpanEnd = spanEnd + bulk.netByteDelta;
  EditResult edit{.docByteStart = spanStart,
                  .bytesRemoved = spanEnd - spanStart,
                  .bytesInserted = newSpanEnd - spanStart,
                  .netByteDelta = bulk.netByteDelta,
                  .cursorByteOffset = newSpanEnd,
                  .newVersion = bulk.newVersion,
                  .insertedNewlineOffsets = {}};
  indexRestarted = newSpanEnd - spanStart > kBulkRescanLimit;
  if (indexRestarted) {
    index_->restart();
    return edit;
  }
  const char terminator = static_cast<char>(text::lineTerminator(table_->originalBuffer().lineEnding()));
  const std::string span = table_->readBytes({spanStart, newSpanEnd}).value_or("");
  for (size_t at = span.find(terminator); at != std::string::npos; at = span.find(terminator, at + 1)) {
    edit.insertedNewlineOffsets.push_back(spanStart + static_cast<int64_t>(at) + 1);
  }
  index_->apply(edit);
  return edit;
}

void Document::beginUndoGroup(std::string description, TextSelection before) {
  requireMainThread();
  undo_->beginBatch(std::move(description), before);
}

void Document::endUndoGroup(TextSelection after) {
  requireMainThread();
  if (!undo_->endBatch(after)) status(kTooLargeToUndoMessage);
}

std::string Document::undoDescription() const {
  const UndoEntry* entry = undo_->nextUndo();
  return entry ? entry->description : std::string();
}

std::string Document::redoDescription() const {
  const UndoEntry* entry = undo_->nextRedo();
  return entry ? entry->description : std::string();
}

void Document::discardHistory() {
  requireMainThread();
  undo_->clear();
  undo_->markSaved();
}

std::optional<TextSelection> Document::undo() {
  requireMainThread();
  if (readOnly_) return std::nullopt;
  const auto entry = undo_->undo();
  if (!entry) return std::nullopt;
  applyInverse(*entry);
  compaction_->noteActivity();
  return entry->cursorBefore;
}

std::optional<TextSelection> Document::redo() {
  requireMainThread();
  if (readOnly_) return std::nullopt;
  const auto entry = undo_->redo();
  if (!entry) return std::nullopt;
  applyForward(*entry);
  compaction_->noteActivity();
  return entry->cursorAfter;
}

void Document::applyInverse(const UndoEntry& entry) {
  if (!entry.isBatch) {
    const auto splices = tracksLines(&entry) ? splicesOfHistory(entry, true) : std::vector<LineSplice>();
    const int64_t at = entry.docOffsetAtEdit;
    const EditResult edit = table_->replace({at, at + entry.insertedLength()}, bytesOf(entry.originalBytes));
    index_->apply(edit);
    recordHistory(entry, true);
    if (anchors_ && (!splices.empty() || entry.bookmarks)) anchors_->undone(splices, entry.bookmarks.get());
    notify({.kind = DocumentChange::Kind::undo, .edit = edit, .lineIndexRestarted = false});
    return;
  }
  const auto& edits = entry.batchSubEdits;
  if (!isAscendingRun(edits)) {
    for (auto it = edits.rbegin(); it != edits.rend(); ++it) applyInverse(*it);
    return;
  }
  const auto splices = tracksLines(&entry) ? splicesOfHistory(entry, true) : std::vector<LineSplice>();
  // Every edit's text sits where it was made: the later ones all lie after it.
  std::vector<storage::PieceTable::BulkEditSite> sites;
  sites.reserve(edits.size());
  for (const UndoEntry& e : edits) {
    sites.push_back({{e.docOffsetAtEdit, e.docOffsetAtEdit + e.insertedLength()}, bytesOf(e.originalBytes)});
  }
  const auto bulk = table_->applyBulkEdits(sites);
  bool restarted = false;
  const EditResult edit = afterBulkEdit(bulk, sites.front().range.start, sites.back().range.end, restarted);
  recordHistory(entry, true);
  if (anchors_ && (!splices.empty() || entry.bookmarks)) anchors_->undone(splices, entry.bookmarks.get());
  notify({.kind = DocumentChange::Kind::undo, .edit = edit, .lineIndexRestarted = restarted});
}

void Document::applyForward(const UndoEntry& entry) {
  if (!entry.isBatch) {
    const auto splices = tracksLines(&entry) ? splicesOfHistory(entry, false) : std::vector<LineSplice>();
    const int64_t at = entry.docOffsetAtEdit;
    const EditResult edit = table_->replace({at, at + entry.removedLength()}, bytesOf(entry.insertedBytes));
    index_->apply(edit);
    recordHistory(entry, false);
    if (anchors_ && (!splices.empty() || entry.bookmarks)) anchors_->redone(splices, entry.bookmarks.get());
    notify({.kind = DocumentChange::Kind::redo, .edit = edit, .lineIndexRestarted = false});
    return;
  }
  const auto& edits = entry.batchSubEdits;
  if (!isAscendingRun(edits)) {
    for (const UndoEntry& e : edits) applyForward(e);
    return;
  }
  const auto splices = tracksLines(&entry) ? splicesOfHistory(entry, false) : std::vector<LineSplice>();
  // In the text before the batch, an edit sits where it was made less what the earlier ones changed.
  std::vector<storage::PieceTable::BulkEditSite> sites;
  sites.reserve(edits.size());
  int64_t shift = 0;
  for (const UndoEntry& e : edits) {
    const int64_t start = e.docOffsetAtEdit - shift;
    sites.push_back({{start, start + e.removedLength()}, bytesOf(e.insertedBytes)});
    shift += e.insertedLength() - e.removedLength();
  }
  const auto bulk = table_->applyBulkEdits(sites);
  bool restarted = false;
  const EditResult edit = afterBulkEdit(bulk, sites.front().range.start, sites.back().range.end, restarted);
  recordHistory(entry, false);
  if (anchors_ && (!splices.empty() || entry.bookmarks)) anchors_->redone(splices, entry.bookmarks.get());
  notify({.kind = DocumentChange::Kind::redo, .edit = edit, .lineIndexRestarted = restarted});
}

}  // namespace quorin::document
