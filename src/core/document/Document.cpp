#include "document/Document.h"

#include <algorithm>

#include "base/Check.h"
#include "dispatch/WorkerPool.h"
#include "persistence/SaveDirectory.h"
#include "storage/MMapWrapper.h"

namespace quorin::document {
namespace {

using storage::ByteRange;
using storage::EditResult;

// Files from this size on might need a disk-backed line index (now or by
// promotion), so they get a scratch directory.
constexpr int64_t kScratchFromBytes = int64_t{16} << 20;

}  // namespace

Document::Document(std::string path, OpenOptions options)
    : path_(std::move(path)),
      options_(std::move(options)),
      saver_(std::make_unique<DocumentSaver>(*this)),
      live_(std::make_unique<LiveFileTracker>(*this)) {
  QUORIN_CHECK(options_.mainQueue != nullptr, "a document needs a main queue");
  if (!options_.lineIndexQueue) {
    indexQueue_ = std::make_shared<dispatch::SerialQueue>("quorin.lineindex",
                                                          dispatch::QualityOfService::userInitiated);
  }
}

Document::~Document() {
  if (index_) index_->cancel();
  // The follower's poll timer and the compaction scheduler's idle timer belong to the main thread: a
  // document let go elsewhere (the last reference held by a finishing job) hands them over to it.
  live_.reset();
  if (compaction_ && !options_.mainQueue->isMainThread()) {
    options_.mainQueue->post([compaction = std::move(compaction_)] {});
  }
  // Unlinking a gigabyte-sized index or working copy takes the file system a
  // noticeable moment: let a worker do it, not the thread closing the tab.
  // What a worker never gets to (the process ending) is cleaned at the next launch.
  index_.reset();
  // A pass still running holds the index; once it has returned, the queue (and with it the index's
  // last reference) can be let go from this thread rather than from the queue's own.
  if (indexQueue_) indexQueue_->sync([] {});
  table_.reset();
  std::shared_ptr<storage::ScratchDirectory> scratch(std::move(scratch_));
  std::shared_ptr<storage::ScratchDirectory> working(std::move(source_.workingScratch));
  if (scratch || working) {
    dispatch::WorkerPool::shared().async([scratch = std::move(scratch), working = std::move(working)] {});
  }
}

std::expected<std::shared_ptr<Document>, OpenError> Document::open(const std::string& path,
                                                                   OpenOptions options) {
  auto loaded = loadText(path, options.encoding, options);
  if (!loaded) return std::unexpected(loaded.error());
  // A rewrite killed part-way (a crash, kill -9) left a private directory with a partial copy beside the
  // file; its process is gone, so nobody else will ever remove it.
  persistence::removeAbandonedSaveDirectories(std::filesystem::absolute(path).parent_path());
  std::shared_ptr<Document> doc(new Document(path, std::move(options)));
  doc->openMode_ = doc->options_.mode.mode;
  doc->readOnly_ = !storage::acceptsEdits(doc->openMode_);
  doc->source_ = std::move(loaded->source);
  doc->setUp(loaded->original);
  doc->live_->startWatching();
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
}

void Document::attachText(std::shared_ptr<const storage::OriginalBuffer> original) {
  if (index_) index_->cancel();
  table_ = std::make_shared<storage::PieceTable>(std::move(original));
  const uint8_t terminator = text::lineTerminator(table_->originalBuffer().lineEnding());
  const auto window = storage::openModeWindow(options_.mode, table_->snapshot(), terminator);
  // What the index covers decides its size: a 1 MiB tail of a huge file needs no scratch file.
  const int64_t indexedBytes = window.end.value_or(table_->totalLength()) - window.start;
  // A fresh scratch directory per attach: an index being replaced may still be finishing a pass over the
  // file in the old one (removing the directory unlinks that file, which its mapping survives).
  scratch_.reset();
  if (indexedBytes >= kScratchFromBytes) {
    auto scratch = storage::ScratchDirectory::createForDocument();
    if (scratch) scratch_ = std::move(*scratch);
  }
  std::optional<std::filesystem::path> scratchPath;
  if (scratch_) scratchPath = scratch_->path();

  storage::LineIndexBuildOptions build;
  build.queue = options_.lineIndexQueue ? options_.lineIndexQueue : indexQueue_;
  build.mainQueue = options_.mainQueue;
  build.limits = options_.lineIndexLimits;
  if (scratchPath) build.promotion = storage::LiveTierPromotion{20'000'000, *scratchPath / "lineindex.bin"};
  build.onProgress = [weak = weak_from_this()](const storage::LineIndexProgress& progress) {
    const auto doc = weak.lock();
    if (!doc) return;
    if (progress.status) doc->status(*progress.status);
    // A copy: the handler may replace itself (or be cleared) while it runs.
    if (const auto handler = doc->progressHandler_) handler(progress);
  };
  const auto tier = storage::chooseLineIndexTier(indexedBytes, scratchPath);
  index_ = storage::InMemoryLineIndex::create(table_, tier, window, build);
  index_->startBuild();
  compaction_ = persistence::CompactionScheduler::make(table_, *options_.mainQueue, options_.compactionQueue,
                                                       options_.compactionPieceThreshold,
                                                       options_.compactionIdleSeconds);
}

void Document::replaceText(std::shared_ptr<const storage::OriginalBuffer> original) {
  attachText(std::move(original));
  if (recorder_) recorder_->textReplaced();
  const int64_t length = table_->totalLength();
  notify({.kind = DocumentChange::Kind::reload,
          .edit = {.docByteStart = 0,
                   .bytesRemoved = length,
                   .bytesInserted = length,
                   .netByteDelta = 0,
                   .cursorByteOffset = 0,
                   .newVersion = table_->version(),
                   .insertedNewlineOffsets = {}},
          .lineIndexRestarted = true});
}

bool Document::readFileAgain() {
  if (isUntitled()) return false;
  auto loaded =
      loadText(path_, source_.transcodedFrom ? source_.transcodedFrom : std::optional(encoding()), options_);
  if (!loaded) {
    status(loaded.error().describe());
    return false;
  }
  // The old working copy's directory goes with the old source; the new one (if any) replaces it.
  source_ = std::move(loaded->source);
  undo_->clear();  // the history describes the text that is being replaced
  undo_->markSaved();
  replaceText(loaded->original);
  return true;
}

ByteRange Document::editableRange() const {
  if (!index_->window().isBounded()) return {0, table_->totalLength()};
  return index_->indexedRange();
}

DocumentSnapshot Document::snapshot() const {
  // The index is told of every edit right after the table takes it, on this
  // thread, so the two are taken at the same version.
  return {table_->snapshot(), index_->snapshot()};
}

DescribedSnapshot Document::describedSnapshot() const {
  return {
      .snapshot = snapshot(),
      .range = editableRange(),
      .lineEnding = lineEnding(),
      .encoding = encoding(),
      .transcoded = isTranscoded(),
      .modified = isModified(),
      .partial = openMode_ == storage::LargeFileOpenMode::windowedSlice ||
                 openMode_ == storage::LargeFileOpenMode::tail,
  };
}

void Document::markSaved(std::optional<storage::FileIdentity> newIdentity) {
  requireMainThread();
  undo_->markSaved();
  if (newIdentity) source_.identity = newIdentity;
}

void Document::save(SaveCompletion done) {
  requireMainThread();
  if (recorder_) recorder_->saveStarted();
  saver_->save(std::move(done));
}

void Document::saveAs(const std::string& path, SaveCompletion done) {
  requireMainThread();
  if (recorder_) recorder_->saveStarted();
  saver_->saveAs(path, std::move(done));
}

void Document::setLiveFileHandler(std::function<void(const LiveFileNotice&)> handler) {
  live_->setHandler(std::move(handler));
}

void Document::resolveExternalChange(bool reloadIt) {
  requireMainThread();
  live_->resolveExternalChange(reloadIt);
}

bool Document::reload() {
  requireMainThread();
  return live_->reload();
}

std::expected<void, std::string> Document::startFollowing() {
  requireMainThread();
  return live_->startFollowing();
}

void Document::stopFollowing() {
  requireMainThread();
  live_->stopFollowing();
}

void Document::catchUpToLive() {
  requireMainThread();
  live_->catchUpToLive();
}

bool Document::switchToRotatedFile() {
  requireMainThread();
  return live_->switchToRotatedFile();
}

bool Document::acceptFollowedBytes(std::string_view bytes) {
  const int64_t end = table_->totalLength();
  const EditResult edit = table_->insert(bytes, end);
  index_->apply(edit);
  if (recorder_) {
    const RecordedSite site{end, 0, bytes};
    recorder_->recorded({&site, 1});
  }
  notify({.kind = DocumentChange::Kind::append, .edit = edit, .lineIndexRestarted = false});
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
  if (const auto handler = statusHandler_) handler(text);
}

void Document::requireMainThread() const {
  QUORIN_CHECK(options_.mainQueue->isMainThread(), "a document is changed on the main thread only");
}

}  // namespace quorin::document
