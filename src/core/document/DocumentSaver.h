#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "persistence/SaveCoordinator.h"

namespace quorin::document {

class Document;

using SaveCompletion =
    std::function<void(const std::expected<persistence::SaveOutcome, persistence::SaveError>&)>;

// Writes its document to disk: decides whether a save may run, hands a
// snapshot and the edit list to the save coordinator on the save queue, and
// on the main thread afterwards moves the save point and goes on over the
// file just written.
//
// Lifetime: a member of its Document, which outlives it; the queued work
// holds the document weakly, so a document closed mid-save only loses the
// completion. Thread-safety: main thread only.
class DocumentSaver {
 public:
  explicit DocumentSaver(Document& document) : doc_(document) {}
  DocumentSaver(const DocumentSaver&) = delete;
  DocumentSaver& operator=(const DocumentSaver&) = delete;

  void save(SaveCompletion done);
  void saveAs(const std::string& path, SaveCompletion done);
  bool isSaving() const { return inFlightVersion_.has_value(); }
  void setInPlaceEnabled(bool enabled) { inPlaceEnabled_ = enabled; }

 private:
  // Why a save may not run now; absent when it may.
  std::optional<persistence::SaveError> refusal() const;
  // What the save queue hands back: the coordinator's result and, for a transcoded document, the
  // fresh working copy written from the saved text.
  struct SaveOutput {
    std::expected<persistence::SaveResult, persistence::SaveError> result;
    std::optional<std::filesystem::path> freshWorkingCopy;
  };
  using Finish = std::function<void(DocumentSaver&, int64_t startedAt, SaveOutput, SaveCompletion)>;
  // Runs `job` on the save queue (writing a fresh working copy into `workingDir` when one is given and
  // the document is transcoded), then `finish` on the main thread if the document is still open.
  void start(persistence::SaveJob job, std::optional<std::filesystem::path> workingDir, SaveCompletion done,
             Finish finish);
  void finishSave(int64_t startedAt, std::expected<persistence::SaveResult, persistence::SaveError> result,
                  std::optional<std::filesystem::path> freshWorkingCopy, SaveCompletion done);
  void finishSaveAs(const std::string& path, int64_t startedAt,
                    std::expected<persistence::SaveResult, persistence::SaveError> result,
                    SaveCompletion done);

  Document& doc_;
  std::optional<int64_t> inFlightVersion_;
  std::vector<SaveCompletion> coalesced_;
  bool inPlaceEnabled_ = true;
};

}  // namespace quorin::document
