#pragma once

#include <chrono>
#include <functional>
#include <ostream>
#include <string>
#include <thread>

#include "base/Mutex.h"

namespace quorin::cli {

// Whether long commands show a progress line on stderr. main() turns it on
// when stderr is a terminal; a pipe or a file never receives one, and
// neither do the tests' string streams.
void setProgressEnabled(bool enabled);
bool progressEnabled();

// A one-line progress display for long work: while it lives, a thread asks
// `status` for a short text ("indexing 42%") every 200 ms and rewrites the
// line with it, starting only once the work has lasted half a second so
// that quick commands print nothing. The destructor erases the line, so the
// command's own messages start on a clean line.
// Thread-safety: `status` is called from the display thread and must be
// thread-safe; the owner must not write to `err` while the display lives.
class ProgressLine {
 public:
  ProgressLine(std::ostream& err, std::function<std::string()> status);
  ~ProgressLine();
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

 private:
  void run();
  // Waits up to `timeout` for the destructor's stop request; true once it came.
  bool waitForStop(std::chrono::milliseconds timeout) REQUIRES(mutex_);

  std::ostream& err_;
  const std::function<std::string()> status_;
  base::Mutex mutex_;
  base::ConditionVariable stop_;
  bool stopping_ GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

// "37%" of done / total, or "" when the total is unknown.
std::string percentText(double done, double total);

}  // namespace quorin::cli
