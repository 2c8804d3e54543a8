#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/Mutex.h"

namespace quorin::jobs {

// The handle a long background job (indexing a table, a whole-file scan)
// reports through: a progress fraction for the shell's job list, and a
// cancellation flag that the job polls at its batching points.
//
// The job keeps its token alive while it runs and calls finish() when done;
// a token dropped without finish() also leaves the registry, so a job that
// ends by any path disappears from the list.
// Thread-safety: every member may be called from any thread.
class JobToken {
 public:
  JobToken(uint64_t id, std::string title) : id_(id), title_(std::move(title)) {}
  JobToken(const JobToken&) = delete;
  JobToken& operator=(const JobToken&) = delete;

  uint64_t id() const { return id_; }
  const std::string& title() const { return title_; }

  // Asks the job to stop; it does so at its next check.
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }
  bool isCancelled() const { return cancelled_.load(std::memory_order_relaxed); }

  // Fraction done, clamped to 0…1 (NaN counts as 0).
  void setProgress(double fraction);
  double progress() const { return progress_.load(std::memory_order_relaxed); }

  void finish() { finished_.store(true, std::memory_order_release); }
  bool isFinished() const { return finished_.load(std::memory_order_acquire); }

 private:
  const uint64_t id_;
  const std::string title_;
  std::atomic<bool> cancelled_{false};
  std::atomic<bool> finished_{false};
  std::atomic<double> progress_{0.0};
};

// What the shell shows of one running job.
struct JobInfo {
  uint64_t id = 0;
  std::string title;
  double progress = 0;
  bool cancelling = false;  // cancel was asked and the job has not stopped yet
  bool operator==(const JobInfo&) const = default;
};

// The running jobs of the process, for the shell's job list and its cancel
// buttons. The registry holds its tokens weakly: it never keeps a job alive,
// and a finished or abandoned job is simply no longer listed.
// Thread-safety: every member may be called from any thread.
class JobRegistry {
 public:
  // A new job, listed until its token is finished or released.
  std::shared_ptr<JobToken> begin(std::string title);

  // The running jobs, oldest first.
  std::vector<JobInfo> jobs() const;

  // Asks job `id` to stop; false when no such job is running.
  bool cancel(uint64_t id);
  void cancelAll();

 private:
  // Live tokens, oldest first; drops the finished and released ones.
  std::vector<std::shared_ptr<JobToken>> liveLocked() const REQUIRES(mutex_);

  mutable base::Mutex mutex_;
  mutable std::vector<std::weak_ptr<JobToken>> tokens_ GUARDED_BY(mutex_);
  uint64_t nextId_ GUARDED_BY(mutex_) = 1;
};

}  // namespace quorin::jobs
