#pragma once

#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "dispatch/Executor.h"
#include "filter/CompiledFilter.h"
#include "filter/FilterEvaluator.h"
#include "filter/FilterProjection.h"
#include "storage/EditResult.h"

namespace quorin::filter {

// How far a filtered view's rows are from final.
struct FilterStatus {
  bool computing = false;      // an evaluation is running or queued
  int64_t linesEvaluated = 0;  // of the latest projection
  int64_t linesDone = 0;       // of the running evaluation, for its progress
  int64_t totalLines = 0;      // the document's, as far as the line index knows
  std::string notice;          // the time-out notice, if the last evaluation ran out of time
};

// One filtered view's filter, kept current as the document changes: the
// lines of the first screen are evaluated first and published, then the
// whole document; an edit splices the current projection at once (the
// inserted lines shown when a neighbour is) and evaluates again; appended
// lines are evaluated from a little before the old end. An edit splices the
// rows at once and evaluates only the lines around it again. Evaluations run on
// `worker` (a serial queue), their chunks on the process-wide pool; results
// are published on `notify` (the main queue) and never over newer ones;
// while the whole document is evaluated, the handler also hears of its
// progress (the same projection, a new status) at most every 50 ms.
//
// Thread-safety: start(), noteEdit(), noteAppend() and cancel() on one
// thread (the main one); projection() and status() from any. Lifetime:
// background work holds the filter weakly.
class LiveFilter : public std::enable_shared_from_this<LiveFilter> {
 public:
  using PublishHandler = std::function<void(std::shared_ptr<const FilterProjection>, const FilterStatus&)>;

  static std::shared_ptr<LiveFilter> create(std::shared_ptr<dispatch::Executor> worker,
                                            std::shared_ptr<dispatch::Executor> notify,
                                            PublishHandler published, FilterLimits limits = {},
                                            dispatch::WorkerPool* pool = nullptr);

  // Compiles and starts evaluating `options` over `source`. A refusal (a
  // reversed time window, a bad window edge) changes nothing; otherwise the
  // per-rule errors ("Invalid regex: …", empty for working rules) are
  // returned and those rules are left out.
  std::expected<std::vector<std::string>, FilterRefusal> start(const FilterOptions& options,
                                                               logs::LogSource source, FilterContext context);
  // The document changed by `edit`; `after` is its text now.
  void noteEdit(const storage::EditResult& edit, logs::LogSource after, int64_t newVersion);
  // A followed file grew; `after` is the text now.
  void noteAppend(logs::LogSource after, int64_t newVersion);
  void cancel();

  std::shared_ptr<const FilterProjection> projection() const;
  FilterStatus status() const;

 private:
  struct Request;
  LiveFilter(std::shared_ptr<dispatch::Executor> worker, std::shared_ptr<dispatch::Executor> notify,
             PublishHandler published, FilterLimits limits, dispatch::WorkerPool* pool);
  // Queues an evaluation of lines [firstLine, end) merged over `base`, or,
  // with `dirty`, of the edited lines only.
  void schedule(logs::LogSource source, int64_t firstLine, std::shared_ptr<const FilterProjection> base,
                std::optional<std::pair<int64_t, int64_t>> dirty = std::nullopt);
  void run(const std::shared_ptr<Request>& request);
  void runEdited(const Request& request, FilterStatus status);
  void publish(uint64_t generation, std::shared_ptr<const FilterProjection> projection, FilterStatus status);
  // A running evaluation's progress: the status changes, the rows do not.
  void publishProgress(uint64_t generation, int64_t linesDone);

  const std::shared_ptr<dispatch::Executor> worker_;
  const std::shared_ptr<dispatch::Executor> notify_;
  const PublishHandler published_;
  const FilterLimits limits_;
  dispatch::WorkerPool* const pool_;

  // Main thread only.
  std::shared_ptr<const CompiledFilter> compiled_;
  FilterContext context_;
  std::shared_ptr<search::SearchCancellation> running_;
  // Lines edits changed that no settled result has evaluated yet, in the
  // present numbering (main thread only: set by edits, cleared by publication).
  std::optional<std::pair<int64_t, int64_t>> dirty_;

  mutable base::Mutex mutex_;
  uint64_t generation_ GUARDED_BY(mutex_) = 0;  // raised by every request; older results are dropped
  std::shared_ptr<const FilterProjection> projection_ GUARDED_BY(mutex_);
  FilterStatus status_ GUARDED_BY(mutex_);
};

}  // namespace quorin::filter
