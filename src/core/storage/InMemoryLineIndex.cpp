#include "storage/InMemoryLineIndex.h"

#include <algorithm>

#include "base/Log.h"
#include "dispatch/Clock.h"
#include "dispatch/SerialQueue.h"
#include "dispatch/WeakTask.h"
#include "storage/DiskBackedLineOffsets.h"
#include "storage/InMemoryLineOffsets.h"
#include "storage/IndexDeltas.h"
#include "storage/LineScanner.h"

namespace quorin::storage {
namespace {

constexpr const char* kTierInMemory = "1 (in-memory)";
constexpr const char* kTierDiskBacked = "2 (mmap'd)";
constexpr const char* kTierPromoted = "2 (mmap'd, promoted live)";
constexpr const char* kPromotedStatus = "Index promoted to disk-backed storage";

std::string fallbackTierName(const std::string& reason) {
  return "1 (in-memory; tier-2 fallback: " + reason + ")";
}

double secondsSince(uint64_t startNs) {
  return static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
}

int64_t linesAdded(const std::vector<IndexDelta>& deltas) {
  int64_t lines = 0;
  for (const IndexDelta& d : deltas) lines += d.lineCountChange;
  return lines;
}

}  // namespace

std::shared_ptr<dispatch::Executor> InMemoryLineIndex::sharedQueue() {
  static const auto queue =
      std::make_shared<dispatch::SerialQueue>("quorin.lineindex", dispatch::QualityOfService::userInitiated);
  return queue;
}

InMemoryLineIndex::InMemoryLineIndex(std::shared_ptr<PieceTable> table, LineIndexWindow window,
                                     Options options)
    : table_(std::move(table)),
      window_(window),
      options_(std::move(options)),
      terminator_(table_->originalBuffer().lineEnding() == text::LineEnding::cr ? '\r' : '\n') {}

std::shared_ptr<InMemoryLineIndex> InMemoryLineIndex::create(std::shared_ptr<PieceTable> table,
                                                             const LineIndexTier& tier,
                                                             LineIndexWindow window, Options options) {
  if (!options.queue) options.queue = sharedQueue();
  std::shared_ptr<InMemoryLineIndex> index(
      new InMemoryLineIndex(std::move(table), window, std::move(options)));
  LineOffsetStore store = makeLineOffsetStorage(tier);
  base::MutexLock guard(index->lock_);
  index->storage_ = std::move(store.storage);
  if (store.fallbackReason) {
    index->tierName_ = fallbackTierName(*store.fallbackReason);
  } else {
    index->tierName_ = tier.kind == LineIndexTier::Kind::diskBacked ? kTierDiskBacked : kTierInMemory;
  }
  index->promotionDone_ = tier.kind == LineIndexTier::Kind::diskBacked;
  index->resetBaseLocked(window.start, window.end);
  return index;
}

void InMemoryLineIndex::resetBaseLocked(int64_t start, std::optional<int64_t> end) {
  const int64_t total = table_->totalLength();
  const int64_t s = std::clamp<int64_t>(start, 0, total);
  const int64_t e = end ? std::clamp<int64_t>(*end, 0, total) : total;
  windowStart_ = s;
  baseBufferLength_ = std::max(s, e);
  baseBytesScanned_ = s;
  storage_->removeAll();
  if (e > s || !window_.isBounded()) appendLocked(std::vector<int64_t>{s});
  isComplete_ = baseBytesScanned_ >= baseBufferLength_;
  pendingDeltas_.reset();
  pendingDeltaMemoryWeight_ = 0;
  estimatedLineCount_ = 1;
  appliedVersion_ = table_->version();
}

void InMemoryLineIndex::startBuild() {
  {
    base::MutexLock guard(lock_);
    cancelled_ = false;
  }
  runPass({options_.limits.firstPassLines, options_.limits.firstPassBytes});
  postProgress(progress());
  base::MutexLock guard(lock_);
  scheduleLocked();
  buildChanged_.notifyAll();
}

void InMemoryLineIndex::scheduleLocked() {
  if (passScheduled_ || isComplete_ || cancelled_) return;
  passScheduled_ = true;
  options_.queue->async(
      dispatch::weakTask(weak_from_this(), [](InMemoryLineIndex& self) { self.runBackgroundPass(); }));
}

void InMemoryLineIndex::runBackgroundPass() {
  {
    base::MutexLock guard(lock_);
    passScheduled_ = false;
  }
  const PassOutcome outcome = runPass({options_.limits.passLines, options_.limits.passBytes});
  if (outcome == PassOutcome::committed) {
    maybePromote();
    postProgress(progress());
  }
  base::MutexLock guard(lock_);
  // A discarded pass is retried: the edit or restart that spoiled it has
  // either scheduled a pass already (no-op here) or is about to.
  if (outcome != PassOutcome::nothingToDo) scheduleLocked();
  buildChanged_.notifyAll();
}

InMemoryLineIndex::PassOutcome InMemoryLineIndex::runPass(PassBudget budget) {
  LineScanRequest request;
  std::optional<PieceTableSnapshot> text;
  int64_t epoch = 0;
  {
    base::MutexLock guard(lock_);
    if (cancelled_ || isComplete_) return PassOutcome::nothingToDo;
    text.emplace(table_->snapshot());
    // The table is ahead of us until the document hands over its latest edit;
    // that apply() schedules the next pass.
    if (text->version() != appliedVersion_) return PassOutcome::nothingToDo;
    epoch = epochBox_->value();
    request.from = baseBytesScanned_;
    request.to = std::min(baseBytesScanned_ + budget.bytes, baseBufferLength_);
    request.baseEnd = baseBufferLength_;
    request.startAtEndCounts = !window_.isBounded();
    request.readShift = documentShiftLocked();
    request.terminator = terminator_;
    request.maxLines = budget.lines;
    request.chunkBytes = options_.limits.chunkBytes;
    request.chunksPerCheck = options_.limits.chunksPerCheck;
  }

  const uint64_t startNs = dispatch::monotonicNanos();
  const int64_t version = text->version();
  LineScanResult found = scanLineStarts(*text, request, [&] {
    base::MutexLock guard(lock_);
    return cancelled_ || epochBox_->value() != epoch || table_->version() != version;
  });
  const double elapsed = secondsSince(startNs);

  base::MutexLock guard(lock_);
  if (found.stopped || epochBox_->value() != epoch || table_->version() != version ||
      appliedVersion_ != version || baseBytesScanned_ != request.from) {
    return PassOutcome::discarded;
  }
  if (!appendLocked(found.starts)) return PassOutcome::discarded;
  baseBytesScanned_ = found.scannedTo;
  chunksProcessed_ += found.chunks;
  buildDurationSeconds_ += elapsed;
  isComplete_ = baseBytesScanned_ >= baseBufferLength_;
  const int64_t known = storage_->count() + (pendingDeltas_ ? linesAdded(*pendingDeltas_) : 0);
  const int64_t scanned = baseBytesScanned_ - windowStart_;
  const int64_t span = baseBufferLength_ - windowStart_;
  estimatedLineCount_ = isComplete_ || scanned <= 0
                            ? std::max<int64_t>(known, 1)
                            : std::max<int64_t>(known, static_cast<int64_t>(static_cast<double>(known) *
                                                                            static_cast<double>(span) /
                                                                            static_cast<double>(scanned)));
  return PassOutcome::committed;
}

bool InMemoryLineIndex::appendLocked(std::span<const int64_t> starts) {
  if (storage_->append(starts)) return true;
  // Only a scratch file that cannot grow refuses (and has logged why): carry
  // on in memory rather than leave the index unfinished.
  auto memory = std::make_shared<InMemoryLineOffsets>();
  if (!storage_->handOver(*memory)) return false;
  storage_ = memory;
  tierName_ = fallbackTierName("the scratch file could not grow");
  return storage_->append(starts);
}

LineIndexSnapshot InMemoryLineIndex::apply(const EditResult& edit) {
  bool needsRestart = false;
  {
    base::MutexLock guard(lock_);
    appliedVersion_ = std::max(appliedVersion_, edit.newVersion);
    if (edit.bytesRemoved == 0 && edit.bytesInserted == 0) return snapshotLocked();
    const bool hasDeltas = pendingDeltas_ && !pendingDeltas_->empty();
    const int64_t shift = documentShiftLocked();
    const int64_t start = edit.docByteStart;
    const int64_t end = start + edit.bytesRemoved;
    const int64_t scannedEnd = baseBytesScanned_ + shift;  // in document coordinates
    const int64_t rangeEnd = baseBufferLength_ + shift;

    // Text inserted at the end of a window extends it: the document lets the user type there (the end of
    // a slice, a followed tail), so it must stay in view and editable.
    if (window_.isBounded() && start > rangeEnd) {
      // After the window: not ours.
    } else if (!isComplete_ && start >= scannedEnd) {
      // Text the build has not reached yet: it will read the edited text.
      baseBufferLength_ =
          end <= rangeEnd ? baseBufferLength_ + edit.netByteDelta : start - shift + edit.bytesInserted;
    } else if (!isComplete_ && end > scannedEnd) {
      // Across the scan's frontier: splice, and the scan resumes after the new text.
      if (hasDeltas) {
        needsRestart = true;
      } else {
        spliceLocked(edit, start + edit.bytesInserted);
      }
    } else if (!hasDeltas &&
               storage_->count() - firstEntryAbove(*storage_, start) <= options_.limits.spliceShiftLimit) {
      spliceLocked(edit, std::nullopt);
    } else {
      needsRestart = !applyAsDeltaLocked(edit);
    }
    if (!needsRestart) {
      scheduleLocked();
      return snapshotLocked();
    }
  }
  restart();
  return snapshot();
}

void InMemoryLineIndex::spliceLocked(const EditResult& edit, std::optional<int64_t> scannedAfter) {
  const int64_t start = edit.docByteStart;
  const int64_t low = firstEntryAbove(*storage_, start);
  const int64_t high = firstEntryAbove(*storage_, start + edit.bytesRemoved);
  if (!storage_->splice(low, high, edit.insertedNewlineOffsets, edit.netByteDelta)) {
    auto memory = std::make_shared<InMemoryLineOffsets>();
    if (storage_->handOver(*memory)) {
      storage_ = memory;
      tierName_ = fallbackTierName("the scratch file could not grow");
      storage_->splice(low, high, edit.insertedNewlineOffsets, edit.netByteDelta);
    }
  }
  epochBox_->raise();
  if (window_.isBounded() && start + edit.bytesRemoved <= windowStart_ && start < windowStart_) {
    windowStart_ = std::max<int64_t>(0, windowStart_ + edit.netByteDelta);
  }
  baseBufferLength_ = std::max<int64_t>(0, baseBufferLength_ + edit.netByteDelta);
  baseBytesScanned_ = scannedAfter
                          ? *scannedAfter
                          : std::clamp<int64_t>(baseBytesScanned_ + edit.netByteDelta, 0, baseBufferLength_);
  if (isComplete_) baseBytesScanned_ = baseBufferLength_;
  const int64_t lineChange = static_cast<int64_t>(edit.insertedNewlineOffsets.size()) - (high - low);
  estimatedLineCount_ = std::max<int64_t>(1, estimatedLineCount_ + lineChange);
}

bool InMemoryLineIndex::applyAsDeltaLocked(const EditResult& edit) {
  const std::vector<IndexDelta> before = pendingDeltas_ ? *pendingDeltas_ : std::vector<IndexDelta>{};
  std::vector<IndexDelta> after = withEdit(before, edit, *storage_);
  int64_t weight = 0;
  for (const IndexDelta& d : after) weight += deltaMemoryWeight(d);
  estimatedLineCount_ = std::max<int64_t>(1, estimatedLineCount_ + linesAdded(after) - linesAdded(before));
  pendingDeltas_ = std::make_shared<const std::vector<IndexDelta>>(std::move(after));
  pendingDeltaMemoryWeight_ = weight;
  return weight <= options_.limits.deltaRestartWeight;
}

void InMemoryLineIndex::restart() {
  {
    base::MutexLock guard(lock_);
    cancelled_ = true;
    epochBox_->raise();
    chunksProcessed_ = 0;
    buildDurationSeconds_ = 0;
    // A bounded window keeps the text it covers now, edits included.
    const int64_t shift = documentShiftLocked();
    const std::optional<int64_t> end =
        window_.isBounded() ? std::optional<int64_t>(baseBufferLength_ + shift) : std::nullopt;
    resetBaseLocked(windowStart_, end);
  }
  startBuild();
}

void InMemoryLineIndex::cancel() {
  base::MutexLock guard(lock_);
  cancelled_ = true;
  buildChanged_.notifyAll();
}

bool InMemoryLineIndex::waitUntilComplete(std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  base::MutexLock guard(lock_);
  while (!isComplete_ && !cancelled_) {
    if (!buildChanged_.waitUntil(lock_, deadline)) break;
  }
  return isComplete_;
}

void InMemoryLineIndex::maybePromote() {
  if (!options_.promotion) return;
  int64_t capacity = 0;
  {
    base::MutexLock guard(lock_);
    if (promotionDone_ || storage_->count() < options_.promotion->lineThreshold) return;
    promotionDone_ = true;
    capacity = std::max(storage_->count(), estimatedLineCount_) * 12 / 10;
  }
  // Creating and preallocating the file can take a while: not under the lock.
  auto disk = DiskBackedLineOffsets::create(options_.promotion->scratchFile, capacity);
  if (!disk) {
    base::logLine("line-index promotion failed: " + disk.error().describe());
    return;
  }
  base::MutexLock guard(lock_);
  // Every write to the store happens under our lock, so nothing can land
  // between the copy and the swap.
  if (!storage_->handOver(**disk)) return;
  storage_ = std::move(*disk);
  tierName_ = kTierPromoted;
  pendingStatus_ = kPromotedStatus;
}

int64_t InMemoryLineIndex::documentShiftLocked() const {
  return pendingDeltas_ ? totalByteShift(*pendingDeltas_) : 0;
}

LineIndexSnapshot InMemoryLineIndex::snapshot() const {
  base::MutexLock guard(lock_);
  return snapshotLocked();
}

LineIndexSnapshot InMemoryLineIndex::snapshotLocked() const {
  LineIndexSnapshot s;
  s.storage = storage_;
  s.baseCount = storage_->count();
  s.deltas = pendingDeltas_;
  s.baseBytesScanned = baseBytesScanned_;
  s.baseBufferLength = baseBufferLength_;
  s.isComplete = isComplete_;
  s.estimatedLineCount = estimatedLineCount_;
  s.windowStart = windowStart_;
  s.epoch = epochBox_->value();
  s.epochBox = epochBox_;
  return s;
}

LineIndexProgress InMemoryLineIndex::progress() const {
  base::MutexLock guard(lock_);
  return progressLocked();
}

LineIndexProgress InMemoryLineIndex::progressLocked() const {
  LineIndexProgress p;
  p.epoch = epochBox_->value();
  p.bytesScanned = baseBytesScanned_ - windowStart_;
  p.bytesTotal = baseBufferLength_ - windowStart_;
  p.isComplete = isComplete_;
  p.lineCount = snapshotLocked().lineCount();
  p.chunksProcessed = chunksProcessed_;
  p.buildDurationSeconds = buildDurationSeconds_;
  p.tierName = tierName_;
  return p;
}

void InMemoryLineIndex::postProgress(LineIndexProgress progress) {
  {
    base::MutexLock guard(lock_);
    progress.status = std::exchange(pendingStatus_, std::nullopt);
  }
  if (options_.mainQueue == nullptr || !options_.onProgress) return;
  options_.mainQueue->post(dispatch::weakTask(
      weak_from_this(),
      [progress = std::move(progress)](InMemoryLineIndex& self) { self.options_.onProgress(progress); }));
}

std::string InMemoryLineIndex::tierName() const {
  base::MutexLock guard(lock_);
  return tierName_;
}

ByteRange InMemoryLineIndex::indexedRange() const {
  base::MutexLock guard(lock_);
  return {windowStart_, baseBufferLength_ + documentShiftLocked()};
}

int64_t InMemoryLineIndex::pendingDeltaMemoryWeight() const {
  base::MutexLock guard(lock_);
  return pendingDeltaMemoryWeight_;
}

}  // namespace quorin::storage
