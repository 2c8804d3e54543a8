#include "document/DocumentSaver.h"

#include <utility>

#include "base/ByteCount.h"
#include "dispatch/SerialQueue.h"
#include "document/Document.h"
#include "storage/MMapWrapper.h"

namespace quorin::document {
namespace {

using persistence::SaveError;
using persistence::SaveOutcome;
using persistence::SaveResult;

std::shared_ptr<dispatch::Executor> sharedSaveQueue() {
  static const auto queue =
      std::make_shared<dispatch::SerialQueue>("quorin.save", dispatch::QualityOfService::userInitiated);
  return queue;
}

SaveError saveError(SaveError::Kind kind, std::string text = {}) {
  return {.kind = kind, .text = std::move(text)};
}

}  // namespace

std::optional<SaveError> DocumentSaver::refusal() const {
  const Document& d = doc_;
  if (d.readOnly_ || d.isUntitled()) return saveError(SaveError::Kind::readOnly);
  if (d.live_->isExternallyModified()) return saveError(SaveError::Kind::externallyModified);
  // Bytes skipped by Catch Up to Live are in the file but not in the text: writing the text over the file
  // would delete them, which is never what catching up meant.
  if (const int64_t skipped = d.live_->skippedBytes(); skipped > 0) {
    return saveError(SaveError::Kind::skippedLiveBytes, base::formatByteCount(skipped));
  }
  const auto followed = d.live_->followedLength();
  if ((d.openMode_ == storage::LargeFileOpenMode::tail || followed) && d.source_.identity &&
      !d.live_->isFileMissing()) {
    // Saving now would drop what the file gained since we last read it.
    const int64_t known = followed.value_or(d.source_.identity->size);
    const auto now = storage::FileIdentity::ofPath(d.path_);
    if (now && now->size > known) return saveError(SaveError::Kind::liveFileGrew);
  }
  return std::nullopt;
}

void DocumentSaver::save(SaveCompletion done) {
  Document& d = doc_;
  if (auto refused = refusal()) return done(std::unexpected(*refused));
  if (inFlightVersion_) {
    if (*inFlightVersion_ == d.version()) {
      coalesced_.push_back(std::move(done));
      return;
    }
    return done(std::unexpected(saveError(SaveError::Kind::saveInProgress)));
  }
  if (!d.isModified()) {
    done(SaveOutcome{.kind = SaveOutcome::Kind::noChanges});
    return;
  }

  // A file deleted from under the document is written anew: there is nothing of it left to patch.
  const bool missing = d.live_->isFileMissing();
  persistence::SaveJob job{
      .targetPath = d.path_,
      .snapshot = d.table_->snapshot(),
      .edits = {},
      .openedIdentity =
          missing ? storage::FileIdentity{} : d.source_.identity.value_or(storage::FileIdentity{}),
      .transcoded = d.isTranscoded(),
      .inPlaceEnabled = inPlaceEnabled_ && !missing,
      .encoder = d.source_.encoder(),
  };
  // The history tells what changed since the save only while the save point
  // is reachable and below the present.
  const auto& undo = *d.undo_;
  if (!undo.savePointInvalidated() && static_cast<int64_t>(undo.undoCount()) >= undo.savePointDepth()) {
    job.edits = persistence::SaveCoordinator::buildEditList(undo.entriesAboveSavePoint());
  }
  // A transcoded document goes on over a fresh working copy of exactly the text it saves.
  auto workingDir = d.source_.workingScratch ? std::optional(d.source_.workingScratch->path()) : std::nullopt;
  start(std::move(job), std::move(workingDir), std::move(done),
        [](DocumentSaver& saver, int64_t startedAt, SaveOutput result, SaveCompletion done) {
          saver.finishSave(startedAt, std::move(result.result), std::move(result.freshWorkingCopy),
                           std::move(done));
        });
}

void DocumentSaver::start(persistence::SaveJob job, std::optional<std::filesystem::path> workingDir,
                          SaveCompletion done, Finish finish) {
  Document& d = doc_;
  const int64_t startedAt = d.version();
  inFlightVersion_ = startedAt;
  const auto& options = d.options_;
  auto queue = options.saveQueue ? options.saveQueue : sharedSaveQueue();
  queue->async([weak = d.weak_from_this(), job = std::move(job), io = options.fileIo,
                volumes = options.volumes, journals = options.journalDirectory, main = options.mainQueue,
                startedAt, workingDir = std::move(workingDir), done = std::move(done),
                finish = std::move(finish)]() mutable {
    persistence::SaveCoordinator coordinator(io ? *io : persistence::FileIo::system(),
                                             volumes ? *volumes : persistence::VolumeInfo::system(),
                                             journals);
    SaveOutput output{.result = coordinator.save(job)};
    if (output.result && job.transcoded && workingDir) {
      output.freshWorkingCopy = writeWorkingCopy(job.snapshot, *workingDir);
    }
    main->post([weak, startedAt, output = std::move(output), done = std::move(done),
                finish = std::move(finish)]() mutable {
      if (const auto doc = weak.lock()) finish(*doc->saver_, startedAt, std::move(output), std::move(done));
    });
  });
}

void DocumentSaver::finishSave(int64_t startedAt, std::expected<SaveResult, SaveError> result,
                               std::optional<std::filesystem::path> freshWorkingCopy, SaveCompletion done) {
  Document& d = doc_;
  inFlightVersion_.reset();
  auto waiting = std::exchange(coalesced_, {});
  if (!result) {
    done(std::unexpected(result.error()));
    for (auto& w : waiting) w(std::unexpected(result.error()));
    return;
  }
  d.source_.identity = result->newIdentity;
  if (d.recorder_) d.recorder_->saved(result->newIdentity, d.path_, d.version() == startedAt);
  const bool rewrote = result->outcome.strategy == persistence::SaveStrategy::atomicRewrite;
  d.live_->fileWritten(rewrote, false);
  if (d.version() != startedAt) {
    // Edited while saving: the file holds text the history has moved past.
    d.undo_->invalidateSavePoint();
    if (freshWorkingCopy) std::filesystem::remove(*freshWorkingCopy);
  } else {
    d.undo_->markSaved();
    // Same text either way, so the history and every position stay valid.
    std::shared_ptr<const storage::OriginalBuffer> fresh;
    if (d.isTranscoded() && freshWorkingCopy) {
      if (auto mapped = storage::MMapWrapper::open(freshWorkingCopy->string())) {
        fresh = storage::OriginalBuffer::make(*mapped, text::DetectedEncoding::utf8, d.lineEnding());
        if (d.source_.workingCopy) std::filesystem::remove(*d.source_.workingCopy);  // mapped until let go
        d.source_.workingCopy = *freshWorkingCopy;
      }
    } else if (!d.isTranscoded() && rewrote) {
      // The new file; the old one's disk space is freed once nothing maps it.
      if (auto mapped = storage::MMapWrapper::open(d.path_)) {
        fresh = storage::OriginalBuffer::make(*mapped, d.table_->encoding(), d.lineEnding());
      }
    }
    if (fresh) d.replaceText(fresh);
  }
  done(result->outcome);
  for (auto& w : waiting) {
    w(SaveOutcome{.kind = SaveOutcome::Kind::coalescedIntoInFlightSave,
                  .strategy = result->outcome.strategy});
  }
}

void DocumentSaver::saveAs(const std::string& path, SaveCompletion done) {
  Document& d = doc_;
  if (inFlightVersion_) return done(std::unexpected(saveError(SaveError::Kind::saveInProgress)));
  // A new file is always written whole: nothing of it exists to patch.
  persistence::SaveJob job{
      .targetPath = path,
      .snapshot = d.table_->snapshot(),
      .edits = {},
      .openedIdentity = storage::FileIdentity{},
      .transcoded = d.isTranscoded(),
      .inPlaceEnabled = false,
      .encoder = d.source_.encoder(),
  };
  // The new file is not what the working copy came from: nothing to copy afresh.
  start(std::move(job), std::nullopt, std::move(done),
        [path](DocumentSaver& saver, int64_t startedAt, SaveOutput output, SaveCompletion done) {
          saver.finishSaveAs(path, startedAt, std::move(output.result), std::move(done));
        });
}

void DocumentSaver::finishSaveAs(const std::string& path, int64_t startedAt,
                                 std::expected<SaveResult, SaveError> result, SaveCompletion done) {
  Document& d = doc_;
  inFlightVersion_.reset();
  if (!result) return done(std::unexpected(result.error()));
  const int64_t skipped = d.live_->skippedBytes();
  d.path_ = path;
  d.source_.identity = result->newIdentity;
  if (d.recorder_) d.recorder_->saved(result->newIdentity, d.path_, d.version() == startedAt);
  d.live_->fileWritten(true, true);
  if (skipped > 0) {
    d.status("Saved without the " + base::formatByteCount(skipped) + " that Catch Up to Live skipped");
  }
  if (d.version() != startedAt) {
    d.undo_->invalidateSavePoint();
  } else {
    d.undo_->markSaved();
    if (!d.isTranscoded()) {
      // Go on over the new file, so that the old one may be deleted or changed freely.
      if (auto mapped = storage::MMapWrapper::open(d.path_)) {
        d.replaceText(storage::OriginalBuffer::make(*mapped, d.table_->encoding(), d.lineEnding()));
      }
    }
  }
  done(result->outcome);
}

}  // namespace quorin::document
