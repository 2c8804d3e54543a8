#include "document/Document.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "base/ByteCount.h"
#include "base/Check.h"
#include "base/Errno.h"
#include "base/Log.h"
#include "base/PageAligned.h"
#include "dispatch/SerialQueue.h"
#include "dispatch/WeakTask.h"
#include "dispatch/WorkerPool.h"
#include "text/Encoder.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

namespace quorin::document {
namespace {

using persistence::SharedBytes;
using persistence::TextSelection;
using persistence::UndoEntry;
using storage::ByteRange;
using storage::EditResult;

// Files from this size on might need a disk-backed line index (now or by
// promotion), so they get a scratch directory.
constexpr int64_t kScratchFromBytes = int64_t{16} << 20;
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
    if (i > 0 && edits[i].docOffsetAtEdit < edits[i - 1].docOffsetAtEdit + edits[i - 1].insertedLength())
      return false;
  }
  return true;
}

}  // namespace

Document::Document(std::string path, OpenOptions options)
    : path_(std::move(path)), options_(std::move(options)) {
  QUORIN_CHECK(options_.mainQueue != nullptr, "a document needs a main queue");
}

Document::~Document() {
  if (index_) index_->cancel();
  // Unlinking a gigabyte-sized index or working copy takes the file system a
  // noticeable moment: let a worker do it, not the thread closing the tab.
  // What a worker never gets to (the process ending) is cleaned at the next launch.
  index_.reset();
  table_.reset();
  std::shared_ptr<storage::ScratchDirectory> scratch(std::move(scratch_));
  std::shared_ptr<storage::ScratchDirectory> working(std::move(workingScratch_));
  if (scratch || working) {
    dispatch::WorkerPool::shared().async([scratch = std::move(scratch), working = std::move(working)] {});
  }
}

namespace {

// The file's text as the document edits it: mapped as it is for UTF-8, or
// transcoded into a UTF-8 working copy for any other encoding.
struct LoadedText {
  std::shared_ptr<const storage::OriginalBuffer> original;
  std::optional<storage::FileIdentity> identity;
  std::optional<text::DetectedEncoding> sourceEncoding;
  bool sourceHadByteOrderMark = false;
  int64_t substitutions = 0;
  std::unique_ptr<storage::ScratchDirectory> workingScratch;
  std::optional<std::filesystem::path> workingCopy;
};

std::expected<LoadedText, OpenError> loadText(const std::string& path,
                                              std::optional<text::DetectedEncoding> chosen,
                                              const OpenOptions& options) {
  auto mapped = storage::MMapWrapper::open(path);
  if (!mapped) return std::unexpected(OpenError{mapped.error().describe()});
  LoadedText loaded;
  struct stat st;
  if (::fstat((*mapped)->fd(), &st) == 0) loaded.identity = storage::FileIdentity::fromStat(st);
  const text::DetectedEncoding encoding = chosen ? *chosen : storage::detectFileEncoding(**mapped);
  if (!text::needsWorkingCopy(encoding)) {
    loaded.original = storage::OriginalBuffer::make(*mapped, encoding);
    return loaded;
  }
  // Every other encoding is edited as a UTF-8 working copy in the scratch directory.
  auto scratch = storage::ScratchDirectory::createForDocument();
  if (!scratch) return std::unexpected(OpenError{"cannot create a scratch directory: " + scratch.error()});
  const auto working = (*scratch)->path() / text::newWorkingCopyFileName();
  text::TranscodeOptions transcode;
  transcode.progress = options.transcodeProgress;
  transcode.isCancelled = options.transcodeCancelled;
  auto summary = text::transcodeToUtf8((*mapped)->fd(), path, encoding, working, transcode);
  if (!summary) return std::unexpected(OpenError{summary.error().describe()});
  auto copy = storage::MMapWrapper::open(working.string());
  if (!copy) return std::unexpected(OpenError{copy.error().describe()});
  loaded.original = storage::OriginalBuffer::make(*copy, text::DetectedEncoding::utf8);
  loaded.sourceEncoding = encoding;
  loaded.sourceHadByteOrderMark = summary->markBytes > 0;
  loaded.substitutions = summary->substitutions;
  loaded.workingScratch = std::move(*scratch);
  loaded.workingCopy = working;
  return loaded;
}

}  // namespace

std::expected<std::shared_ptr<Document>, OpenError> Document::open(const std::string& path,
                                                                   OpenOptions options) {
  auto loaded = loadText(path, options.encoding, options);
  if (!loaded) return std::unexpected(loaded.error());
  std::shared_ptr<Document> doc(new Document(path, std::move(options)));
  doc->identity_ = loaded->identity;
  doc->openMode_ = doc->options_.mode.mode;
  doc->readOnly_ = !storage::acceptsEdits(doc->openMode_);
  doc->sourceEncoding_ = loaded->sourceEncoding;
  doc->sourceHadByteOrderMark_ = loaded->sourceHadByteOrderMark;
  doc->transcodeSubstitutions_ = loaded->substitutions;
  doc->workingScratch_ = std::move(loaded->workingScratch);
  doc->workingCopyPath_ = loaded->workingCopy;
  doc->setUp(loaded->original);
  doc->startWatching();
  return doc;
}

std::shared_ptr<Document> Document::untitled(OpenOptions options) {
  options.mode = {};
  std::shared_ptr<Document> doc(new Document({}, std::move(options)));
  doc->setUp(storage::OriginalBuffer::untitled());
  return doc;
}

void Document::setUp(std::shared_ptr<const storage::OriginalBuffer> original) {
  attachText(std::move(original));
  auto memory =
      options_.memory ? options_.memory : std::make_shared<persistence::HostStatisticsMemoryProvider>();
  undo_ = std::make_unique<persistence::UndoStore>(
      options_.undoPolicy, std::move(memory), options_.watchMemoryPressure ? options_.mainQueue : nullptr);
  // The file watcher attaches here: after the line index, with the identity recorded at open.
}

void Document::attachText(std::shared_ptr<const storage::OriginalBuffer> original) {
  if (index_) index_->cancel();
  table_ = std::make_shared<storage::PieceTable>(std::move(original));
  // A fresh scratch directory per attach: an index being replaced may still be finishing a pass over the
  // file in the old one (removing the directory unlinks that file, which its mapping survives).
  scratch_.reset();
  if (table_->totalLength() >= kScratchFromBytes) {
    auto scratch = storage::ScratchDirectory::createForDocument();
    if (scratch) scratch_ = std::move(*scratch);
  }
  std::optional<std::filesystem::path> scratchPath;
  if (scratch_) scratchPath = scratch_->path();

  storage::LineIndexBuildOptions build;
  build.queue = options_.lineIndexQueue;
  build.mainQueue = options_.mainQueue;
  build.limits = options_.lineIndexLimits;
  if (scratchPath) build.promotion = storage::LiveTierPromotion{20'000'000, *scratchPath / "lineindex.bin"};
  build.onProgress = [weak = weak_from_this()](const storage::LineIndexProgress& progress) {
    const auto doc = weak.lock();
    if (!doc) return;
    if (progress.status) doc->status(*progress.status);
    if (doc->progressHandler_) doc->progressHandler_(progress);
  };
  const uint8_t terminator = text::lineTerminator(table_->originalBuffer().lineEnding());
  const auto window = storage::openModeWindow(options_.mode, table_->snapshot(), terminator);
  const auto tier = storage::chooseLineIndexTier(table_->totalLength(), scratchPath);
  index_ = storage::InMemoryLineIndex::create(table_, tier, window, build);
  index_->startBuild();
  compaction_ = persistence::CompactionScheduler::make(table_, *options_.mainQueue, options_.compactionQueue,
                                                       options_.compactionPieceThreshold,
                                                       options_.compactionIdleSeconds);
}

ByteRange Document::editableRange() const {
  if (!index_->window().isBounded()) return {0, table_->totalLength()};
  return index_->indexedRange();
}

std::optional<EditRefusal> Document::refusalFor(ByteRange range) const {
  if (readOnly_) return EditRefusal{EditRefusal::Kind::readOnly};
  const ByteRange allowed = editableRange();
  if (range.start < allowed.start || range.end > allowed.end)
    return EditRefusal{EditRefusal::Kind::outsideWindow};
  return std::nullopt;
}

bool Document::willFitUndo(int64_t bytes) {
  const int64_t weight = bytes + 256;
  // The cap never goes below the floor, so small edits need no fresh reading of the host's memory.
  return weight <= options_.undoPolicy.floorBytes || weight <= undo_->refreshOperationCap();
}

std::expected<EditOutcome, EditRefusal> Document::insert(int64_t offset, std::string_view bytes,
                                                         TextSelection before, TextSelection after) {
  if (auto refusal = refusalFor({offset, offset})) return std::unexpected(*refusal);
  std::optional<UndoEntry> entry;
  if (willFitUndo(static_cast<int64_t>(bytes.size()))) {
    entry = UndoEntry{offset, nullptr, persistence::sharedBytes(std::string(bytes)), before, after, false, {},
                      {},     {}};
  }
  return finishEdit(table_->insert(bytes, offset), std::move(entry));
}

std::expected<EditOutcome, EditRefusal> Document::remove(ByteRange range, TextSelection before,
                                                         TextSelection after) {
  return replace(range, {}, before, after);
}

std::expected<EditOutcome, EditRefusal> Document::replace(ByteRange range, std::string_view bytes,
                                                          TextSelection before, TextSelection after) {
  QUORIN_CHECK(range.start >= 0 && range.end >= range.start, "reversed or negative edit range");
  range.end = std::min(range.end, table_->totalLength());
  range.start = std::min(range.start, range.end);
  if (auto refusal = refusalFor(range)) return std::unexpected(*refusal);
  std::optional<UndoEntry> entry;
  if (willFitUndo(range.length() + static_cast<int64_t>(bytes.size()))) {
    entry = UndoEntry{range.start,
                      persistence::sharedBytes(table_->readBytes(range).value_or("")),
                      bytes.empty() ? nullptr : persistence::sharedBytes(std::string(bytes)),
                      before,
                      after,
                      false,
                      {},
                      {},
                      {}};
  }
  return finishEdit(table_->replace(range, bytes), std::move(entry));
}

EditOutcome Document::finishEdit(const EditResult& edit, std::optional<UndoEntry> entry) {
  if (edit.bytesRemoved == 0 && edit.bytesInserted == 0) return {edit, true};
  index_->apply(edit);
  bool undoable = false;
  if (entry) {
    undoable = undo_->record(std::move(*entry));
  } else {
    undo_->clear();
  }
  if (!undoable) status(kTooLargeToUndoMessage);
  notify({DocumentChange::Kind::edit, edit, false});
  compaction_->noteActivity();
  return {edit, undoable};
}

std::expected<EditOutcome, EditRefusal> Document::replaceAll(
    std::span<const storage::PieceTable::BulkEditSite> allSites, std::string description,
    TextSelection before, TextSelection after) {
  // Sites that would change nothing are not edits: they would only clutter the undo entry.
  std::vector<storage::PieceTable::BulkEditSite> kept;
  for (const auto& site : allSites) {
    if (site.range.length() > 0 || !site.bytes.empty()) kept.push_back(site);
  }
  const std::span<const storage::PieceTable::BulkEditSite> sites = kept;
  if (sites.empty()) return EditOutcome{{}, true};
  if (auto refusal = refusalFor({sites.front().range.start, sites.back().range.end}))
    return std::unexpected(*refusal);
  int64_t weight = 0;
  for (const auto& site : sites)
    weight += site.range.length() + static_cast<int64_t>(site.bytes.size()) + 256;
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
  const auto bulk = table_->applyBulkEdits(sites);
  if (bulk.sitesApplied == 0) return EditOutcome{{}, true};

  UndoEntry batch;
  batch.isBatch = true;
  batch.description = std::move(description);
  batch.cursorBefore = before;
  batch.cursorAfter = after;
  int64_t shift = 0;
  int64_t spanStart = -1;
  int64_t spanEnd = 0;
  SharedBytes lastInserted;
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
      UndoEntry sub;
      sub.docOffsetAtEdit = start + shift;
      sub.originalBytes = originals[i];
      sub.insertedBytes = lastInserted;
      batch.batchSubEdits.push_back(std::move(sub));
    }
    shift += static_cast<int64_t>(site.bytes.size()) - (end - start);
  }
  batch.docOffsetAtEdit = spanStart;

  bool restarted = false;
  const EditResult edit = afterBulkEdit(bulk, spanStart, spanEnd, restarted);
  bool undoable = false;
  if (keep) {
    undoable = undo_->record(std::move(batch));
  } else {
    undo_->clear();
  }
  if (!undoable) status(kTooLargeToUndoMessage);
  notify({DocumentChange::Kind::edit, edit, restarted});
  compaction_->noteActivity();
  return EditOutcome{edit, undoable};
}

EditResult Document::afterBulkEdit(const storage::PieceTable::BulkEditResult& bulk, int64_t spanStart,
                                   int64_t spanEnd, bool& indexRestarted) {
  const int64_t newSpanEnd = spanEnd + bulk.netByteDelta;
  EditResult edit{
      spanStart, spanEnd - spanStart, newSpanEnd - spanStart, bulk.netByteDelta, newSpanEnd, bulk.newVersion,
      {}};
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
  undo_->beginBatch(std::move(description), before);
}

void Document::endUndoGroup(TextSelection after) {
  if (!undo_->endBatch(after)) status(kTooLargeToUndoMessage);
}

std::optional<TextSelection> Document::undo() {
  if (readOnly_) return std::nullopt;
  const auto entry = undo_->undo();
  if (!entry) return std::nullopt;
  applyInverse(*entry);
  compaction_->noteActivity();
  return entry->cursorBefore;
}

std::optional<TextSelection> Document::redo() {
  if (readOnly_) return std::nullopt;
  const auto entry = undo_->redo();
  if (!entry) return std::nullopt;
  applyForward(*entry);
  compaction_->noteActivity();
  return entry->cursorAfter;
}

void Document::applyInverse(const UndoEntry& entry) {
  if (!entry.isBatch) {
    const int64_t at = entry.docOffsetAtEdit;
    const EditResult edit = table_->replace({at, at + entry.insertedLength()}, bytesOf(entry.originalBytes));
    index_->apply(edit);
    notify({DocumentChange::Kind::undo, edit, false});
    return;
  }
  const auto& edits = entry.batchSubEdits;
  if (!isAscendingRun(edits)) {
    for (auto it = edits.rbegin(); it != edits.rend(); ++it) applyInverse(*it);
    return;
  }
  // Every edit's text sits where it was made: the later ones all lie after it.
  std::vector<storage::PieceTable::BulkEditSite> sites;
  sites.reserve(edits.size());
  for (const UndoEntry& e : edits) {
    sites.push_back({{e.docOffsetAtEdit, e.docOffsetAtEdit + e.insertedLength()}, bytesOf(e.originalBytes)});
  }
  const auto bulk = table_->applyBulkEdits(sites);
  bool restarted = false;
  const EditResult edit = afterBulkEdit(bulk, sites.front().range.start, sites.back().range.end, restarted);
  notify({DocumentChange::Kind::undo, edit, restarted});
}

void Document::applyForward(const UndoEntry& entry) {
  if (!entry.isBatch) {
    const int64_t at = entry.docOffsetAtEdit;
    const EditResult edit = table_->replace({at, at + entry.removedLength()}, bytesOf(entry.insertedBytes));
    index_->apply(edit);
    notify({DocumentChange::Kind::redo, edit, false});
    return;
  }
  const auto& edits = entry.batchSubEdits;
  if (!isAscendingRun(edits)) {
    for (const UndoEntry& e : edits) applyForward(e);
    return;
  }
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
  notify({DocumentChange::Kind::redo, edit, restarted});
}

DocumentSnapshot Document::snapshot() const {
  // The index is told of every edit right after the table takes it, on this
  // thread, so the two are taken at the same version.
  return {table_->snapshot(), index_->snapshot()};
}

void Document::markSaved(std::optional<storage::FileIdentity> newIdentity) {
  undo_->markSaved();
  if (newIdentity) identity_ = newIdentity;
}

namespace {

// The snapshot's (UTF-8) text as a new working copy in `directory`; absent when it could not be written.
std::optional<std::filesystem::path> writeWorkingCopy(const storage::PieceTableSnapshot& text,
                                                      const std::filesystem::path& directory) {
  const auto path = directory / text::newWorkingCopyFileName();
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (fd < 0) return std::nullopt;
  base::ReadBuffer buffer(size_t{4} << 20);
  bool ok = true;
  for (int64_t at = 0; ok && at < text.totalLength(); at += static_cast<int64_t>(buffer.size())) {
    const int64_t got = text.copyBytes({at, at + static_cast<int64_t>(buffer.size())}, buffer.data());
    for (int64_t done = 0; ok && done < got;) {
      const ssize_t n = ::write(fd, buffer.data() + done, static_cast<size_t>(got - done));
      if (n < 0 && errno == EINTR) continue;
      ok = n > 0;
      if (ok) done += n;
    }
  }
  ::close(fd);
  if (!ok) {
    std::filesystem::remove(path);
    return std::nullopt;
  }
  return path;
}

std::shared_ptr<dispatch::Executor> sharedSaveQueue() {
  static const auto queue =
      std::make_shared<dispatch::SerialQueue>("quorin.save", dispatch::QualityOfService::userInitiated);
  return queue;
}

}  // namespace

persistence::SaveEncoder Document::sourceEncoder() const {
  if (!sourceEncoding_) return nullptr;
  // Written back in the file's own encoding; a character it has no bytes for stops the save.
  auto encoder = std::make_shared<text::Encoder>(*sourceEncoding_, sourceHadByteOrderMark_);
  return [encoder, name = std::string(text::displayName(*sourceEncoding_))](
             std::string_view chunk, bool last) -> std::expected<std::string, std::string> {
    std::string out;
    const auto ok =
        encoder->encode({reinterpret_cast<const uint8_t*>(chunk.data()), chunk.size()}, last, out);
    if (!ok) return std::unexpected(name);
    return out;
  };
}

void Document::saveAs(const std::string& path, SaveCompletion done) {
  using persistence::SaveError;
  if (saveInFlightVersion_) {
    done(std::unexpected(SaveError{SaveError::Kind::saveInProgress, 0, 0, {}, 0}));
    return;
  }
  // A new file is always written whole: nothing of it exists to patch.
  persistence::SaveJob job{path,  table_->snapshot(), {}, storage::FileIdentity{}, isTranscoded(),
                           false, sourceEncoder()};
  const int64_t startedAt = version();
  saveInFlightVersion_ = startedAt;
  auto queue = options_.saveQueue ? options_.saveQueue : sharedSaveQueue();
  queue->async([weak = weak_from_this(), job = std::move(job), io = options_.fileIo,
                volumes = options_.volumes, main = options_.mainQueue, startedAt,
                done = std::move(done)]() mutable {
    persistence::SaveCoordinator coordinator(io ? *io : persistence::FileIo::system(),
                                             volumes ? *volumes : persistence::VolumeInfo::system());
    auto result = coordinator.save(job);
    main->post([weak, startedAt, path = job.targetPath, result = std::move(result),
                done = std::move(done)]() mutable {
      if (const auto doc = weak.lock())
        doc->finishSaveAs(path, startedAt, std::move(result), std::move(done));
    });
  });
}

void Document::finishSaveAs(const std::string& path, int64_t startedAt,
                            std::expected<persistence::SaveResult, persistence::SaveError> result,
                            SaveCompletion done) {
  saveInFlightVersion_.reset();
  if (!result) {
    done(std::unexpected(result.error()));
    return;
  }
  path_ = path;
  identity_ = result->newIdentity;
  fileMissing_ = false;
  externallyModified_ = false;
  if (follower_) follower_.reset();  // it followed the old file
  if (version() != startedAt) {
    undo_->invalidateSavePoint();
  } else {
    undo_->markSaved();
    if (!isTranscoded()) {
      // Go on over the new file, so that the old one may be deleted or changed freely.
      if (auto mapped = storage::MMapWrapper::open(path_)) {
        attachText(storage::OriginalBuffer::make(*mapped, table_->encoding(), lineEnding()));
        const int64_t length = table_->totalLength();
        notify({DocumentChange::Kind::reload, {0, length, length, 0, 0, table_->version(), {}}, true});
      }
    }
  }
  startWatching();
  done(result->outcome);
}

void Document::save(SaveCompletion done) {
  using persistence::SaveError;
  using persistence::SaveOutcome;
  auto fail = [&](SaveError::Kind kind) { done(std::unexpected(SaveError{kind, 0, 0, {}, 0})); };
  if (readOnly_ || isUntitled()) return fail(SaveError::Kind::readOnly);
  if (externallyModified_) return fail(SaveError::Kind::externallyModified);
  if ((openMode_ == storage::LargeFileOpenMode::tail || follower_) && identity_) {
    // Saving now would drop what the file gained since we last read it.
    const int64_t known = follower_ ? follower_->lastKnownLength() : identity_->size;
    const auto now = storage::FileIdentity::ofPath(path_);
    if (now && now->size > known) return fail(SaveError::Kind::liveFileGrew);
  }
  if (saveInFlightVersion_) {
    if (*saveInFlightVersion_ == version()) {
      coalescedSaves_.push_back(std::move(done));
      return;
    }
    return fail(SaveError::Kind::saveInProgress);
  }
  if (!isModified()) {
    done(SaveOutcome{SaveOutcome::Kind::noChanges, persistence::SaveStrategy::atomicRewrite, std::nullopt});
    return;
  }

  persistence::SaveJob job{
      path_,          table_->snapshot(),  {},     identity_.value_or(storage::FileIdentity{}),
      isTranscoded(), inPlaceSaveEnabled_, nullptr};
  job.encoder = sourceEncoder();
  // The history tells what changed since the save only while the save point
  // is reachable and below the present.
  if (!undo_->savePointInvalidated() && static_cast<int64_t>(undo_->undoCount()) >= undo_->savePointDepth()) {
    const auto above = undo_->entriesAboveSavePoint();
    job.edits = persistence::SaveCoordinator::buildEditList(above);
  }
  const int64_t startedAt = version();
  saveInFlightVersion_ = startedAt;
  auto queue = options_.saveQueue ? options_.saveQueue : sharedSaveQueue();
  queue->async([weak = weak_from_this(), job = std::move(job), io = options_.fileIo,
                volumes = options_.volumes, journals = options_.journalDirectory, main = options_.mainQueue,
                startedAt,
                workingDir = workingScratch_ ? std::optional(workingScratch_->path()) : std::nullopt,
                done = std::move(done)]() mutable {
    persistence::SaveCoordinator coordinator(io ? *io : persistence::FileIo::system(),
                                             volumes ? *volumes : persistence::VolumeInfo::system(),
                                             journals);
    auto result = coordinator.save(job);
    // A transcoded document goes on over a fresh working copy of exactly the text just saved.
    std::optional<std::filesystem::path> freshCopy;
    if (result && job.transcoded && workingDir) freshCopy = writeWorkingCopy(job.snapshot, *workingDir);
    main->post([weak, startedAt, result = std::move(result), freshCopy, done = std::move(done)]() mutable {
      if (const auto doc = weak.lock())
        doc->finishSave(startedAt, std::move(result), freshCopy, std::move(done));
    });
  });
}

void Document::finishSave(int64_t startedAt,
                          std::expected<persistence::SaveResult, persistence::SaveError> result,
                          std::optional<std::filesystem::path> freshWorkingCopy, SaveCompletion done) {
  saveInFlightVersion_.reset();
  auto waiting = std::exchange(coalescedSaves_, {});
  if (!result) {
    done(std::unexpected(result.error()));
    for (auto& w : waiting) w(std::unexpected(result.error()));
    return;
  }
  identity_ = result->newIdentity;
  const bool unchanged = version() == startedAt;
  if (result->outcome.strategy == persistence::SaveStrategy::atomicRewrite) startWatching();  // a new file
  if (!unchanged) {
    // Edited while saving: the file holds text the history has moved past.
    undo_->invalidateSavePoint();
    if (freshWorkingCopy) std::filesystem::remove(*freshWorkingCopy);
  } else {
    undo_->markSaved();
    // Same text either way, so the history and every position stay valid.
    std::shared_ptr<const storage::OriginalBuffer> fresh;
    if (isTranscoded() && freshWorkingCopy) {
      if (auto mapped = storage::MMapWrapper::open(freshWorkingCopy->string())) {
        fresh = storage::OriginalBuffer::make(*mapped, text::DetectedEncoding::utf8, lineEnding());
        if (workingCopyPath_) std::filesystem::remove(*workingCopyPath_);  // still mapped until let go
        workingCopyPath_ = *freshWorkingCopy;
      }
    } else if (!isTranscoded() && result->outcome.strategy == persistence::SaveStrategy::atomicRewrite) {
      // The new file; the old one's disk space is freed once nothing maps it.
      if (auto mapped = storage::MMapWrapper::open(path_)) {
        fresh = storage::OriginalBuffer::make(*mapped, table_->encoding(), lineEnding());
      }
    }
    if (fresh) {
      attachText(fresh);
      const int64_t length = table_->totalLength();
      notify({DocumentChange::Kind::reload, {0, length, length, 0, 0, table_->version(), {}}, true});
    }
  }
  done(result->outcome);
  for (auto& w : waiting) {
    w(persistence::SaveOutcome{persistence::SaveOutcome::Kind::coalescedIntoInFlightSave,
                               result->outcome.strategy, std::nullopt});
  }
}

std::string Document::fileName() const { return std::filesystem::path(path_).filename().string(); }

void Document::setLiveFileHandler(std::function<void(const LiveFileNotice&)> handler) {
  liveHandler_ = std::move(handler);
}

void Document::liveNotice(LiveFileNotice notice) {
  if (liveHandler_) liveHandler_(notice);
  status(notice.message);
}

void Document::startWatching() {
  watcher_.reset();
  const uint64_t generation = ++watcherGeneration_;
  if (!options_.watchFile || isUntitled()) return;
  auto watcher = live::FileWatcher::create(path_, [weak = weak_from_this(), main = options_.mainQueue,
                                                   generation](live::FileWatcher::Event event) {
    main->post([weak, generation, event] {
      if (const auto doc = weak.lock()) doc->handleWatcherEvent(generation, event, std::nullopt);
    });
  });
  if (!watcher) {
    base::logLine("cannot watch " + path_ + ": " + watcher.error().describe());
    return;
  }
  watcher_ = std::move(*watcher);
}

void Document::handleWatcherEvent(uint64_t generation, live::FileWatcher::Event event,
                                  std::optional<std::filesystem::path>) {
  if (generation != watcherGeneration_ || !watcher_) return;
  using Event = live::FileWatcher::Event;
  const std::string name = fileName();
  switch (event) {
    case Event::write:
      // Our own saves write too, and a followed file is read by its follower.
      if (isSaving() || follower_) return;
      if (identity_ && watcher_->lastIdentity() == *identity_) return;
      outsideChange(LiveFileNotice::Kind::reloaded);
      return;
    case Event::rename: {
      const auto newPath = watcher_->pathAtLastEvent();
      if (!newPath) return;
      path_ = newPath->string();
      liveNotice({LiveFileNotice::Kind::renamed,
                  "\u201c" + name + "\u201d was renamed to \u201c" + newPath->filename().string() + "\u201d",
                  path_, 0, false});
      startWatching();
      return;
    }
    case Event::delete_:
      if (isSaving()) return;  // our rewrite replaced it; the save watches the new file
      if (std::filesystem::exists(path_)) {
        // Replaced by another file under the same name.
        startWatching();
        outsideChange(LiveFileNotice::Kind::reloaded);
        return;
      }
      fileMissing_ = true;
      watcher_.reset();
      liveNotice({LiveFileNotice::Kind::deleted,
                  "\u201c" + name +
                      "\u201d was deleted from disk \u2014 its text is kept here; save to write it again",
                  std::nullopt, 0, false});
      return;
    case Event::revoke:
      watcher_.reset();
      liveNotice({LiveFileNotice::Kind::volumeGone,
                  "The volume holding \u201c" + name + "\u201d went away \u2014 its text is kept here",
                  std::nullopt, 0, false});
      return;
  }
}

void Document::outsideChange(LiveFileNotice::Kind quietKind) {
  const std::string name = fileName();
  if (isModified()) {
    externallyModified_ = true;
    liveNotice({LiveFileNotice::Kind::externalChange,
                "\u201c" + name + "\u201d changed on disk. Reload it, or keep your version?", std::nullopt, 0,
                false});
    return;
  }
  if (reload()) {
    const bool truncated = quietKind == LiveFileNotice::Kind::truncated;
    liveNotice({quietKind,
                "\u201c" + name + "\u201d " + (truncated ? "was truncated" : "changed on disk") +
                    " and was reloaded",
                std::nullopt, 0, false});
  }
}

void Document::resolveExternalChange(bool reloadIt) {
  if (reloadIt) {
    reload();
  } else {
    // The file's identity stays the old one, so the next save rewrites it; and
    // the text differs from the file now, so there is something to save.
    externallyModified_ = false;
    undo_->invalidateSavePoint();
  }
}

bool Document::reload() {
  if (isUntitled()) return false;
  auto loaded = loadText(path_, sourceEncoding_ ? sourceEncoding_ : std::optional(encoding()), options_);
  if (!loaded) {
    status(loaded.error().describe());
    return false;
  }
  const bool wasFollowing = follower_ != nullptr;
  follower_.reset();
  identity_ = loaded->identity;
  sourceEncoding_ = loaded->sourceEncoding;
  sourceHadByteOrderMark_ = loaded->sourceHadByteOrderMark;
  transcodeSubstitutions_ = loaded->substitutions;
  if (loaded->workingScratch) workingScratch_ = std::move(loaded->workingScratch);
  workingCopyPath_ = loaded->workingCopy;
  externallyModified_ = false;
  fileMissing_ = false;
  attachText(loaded->original);
  undo_->clear();  // the history describes the text that was replaced
  undo_->markSaved();
  const int64_t length = table_->totalLength();
  notify({DocumentChange::Kind::reload, {0, length, length, 0, 0, table_->version(), {}}, true});
  if (wasFollowing) (void)startFollowing();
  return true;
}

std::expected<void, std::string> Document::startFollowing() {
  if (isUntitled()) return std::unexpected(std::string("Only a file on disk can be followed."));
  if (isTranscoded()) return std::unexpected(std::string("Following works for UTF-8 files only."));
  if (follower_) {
    follower_->start();
    return {};
  }
  live::TailFollower::Callbacks callbacks;
  const std::weak_ptr<Document> weak = weak_from_this();
  auto with = [weak](auto fn) {
    return [weak, fn](auto... args) {
      if (const auto doc = weak.lock()) fn(*doc, args...);
    };
  };
  callbacks.onTruncationDetected =
      with([](Document& d) { d.outsideChange(LiveFileNotice::Kind::truncated); });
  callbacks.onRotationDetected = with([](Document& d) {
    d.liveNotice(
        {LiveFileNotice::Kind::rotated,
         "\u201c" + d.fileName() + "\u201d was rotated \u2014 a new file has its name now. Switch to it?",
         d.path_, 0, false});
  });
  callbacks.onDeleted = with([](Document& d) {
    d.fileMissing_ = true;
    d.liveNotice({LiveFileNotice::Kind::deleted,
                  "\u201c" + d.fileName() + "\u201d was deleted from disk \u2014 its text is kept here",
                  std::nullopt, 0, false});
  });
  callbacks.onReadError = with([](Document& d, int err) {
    d.liveNotice({LiveFileNotice::Kind::readError,
                  "Reading \u201c" + d.fileName() + "\u201d failed: " + base::errnoText(err), std::nullopt, 0,
                  false});
  });
  callbacks.onLagChanged = with([](Document& d, int64_t lag) {
    const bool far = lag > live::TailFollower::kCatchUpLagBytes;
    d.liveNotice({LiveFileNotice::Kind::lagChanged,
                  lag == 0 ? std::string("Following live")
                           : base::formatByteCount(lag) + " behind the live file" +
                                 (far ? " \u2014 Catch Up to Live?" : ""),
                  std::nullopt, lag, far});
  });
  const int64_t start =
      identity_ ? identity_->size : table_->totalLength() + table_->originalBuffer().contentStart();
  auto follower = live::TailFollower::create(
      path_, std::weak_ptr<live::TailSink>(shared_from_this()), start, false, 1.0, *options_.mainQueue,
      std::move(callbacks), options_.fileIo ? *options_.fileIo : persistence::FileIo::system());
  if (!follower) return std::unexpected(follower.error().describe());
  follower_ = std::move(*follower);
  follower_->start();
  return {};
}

void Document::stopFollowing() {
  if (follower_) follower_->stop();
}

bool Document::acceptFollowedBytes(std::string_view bytes) {
  const EditResult edit = table_->insert(bytes, table_->totalLength());
  index_->apply(edit);
  notify({DocumentChange::Kind::append, edit, false});
  return true;
}

void Document::catchUpToLive() {
  if (!follower_) return;
  const int64_t before = follower_->lastKnownLength();
  follower_->skipToLiveEnd();
  const int64_t after = follower_->lastKnownLength();
  if (after <= before) return;
  skippedRanges_.push_back({before, after});
  liveNotice({LiveFileNotice::Kind::caughtUp,
              "Skipped " + base::formatByteCount(after - before) + " of \u201c" + fileName() +
                  "\u201d \u2014 following the live end",
              std::nullopt, 0, false});
}

bool Document::switchToRotatedFile() {
  if (isModified()) return false;  // the user saves (or discards) first
  const bool wasFollowing = follower_ != nullptr;
  follower_.reset();
  if (!reload()) return false;
  startWatching();
  if (wasFollowing) (void)startFollowing();
  return true;
}

int Document::addChangeListener(std::function<void(const DocumentChange&)> listener) {
  listeners_.emplace(nextListenerToken_, std::move(listener));
  return nextListenerToken_++;
}

void Document::removeChangeListener(int token) { listeners_.erase(token); }

void Document::setIndexProgressHandler(std::function<void(const storage::LineIndexProgress&)> handler) {
  progressHandler_ = std::move(handler);
}

void Document::setStatusHandler(std::function<void(const std::string&)> handler) {
  statusHandler_ = std::move(handler);
}

void Document::notify(const DocumentChange& change) {
  // A listener may remove itself (or another) while being told.
  const auto listeners = listeners_;
  for (const auto& [token, listener] : listeners) {
    if (listeners_.contains(token)) listener(change);
  }
}

void Document::status(const std::string& text) {
  if (statusHandler_) statusHandler_(text);
}

}  // namespace quorin::document
