#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

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

  std::ostream& err_;
  const std::function<std::string()> status_;
  std::mutex mutex_;
  std::condition_variable stop_;
  bool stopping_ = false;  // guarded by mutex_
  std::thread thread_;
};

// "37%" of done / total, or "" when the total is unknown.
std::string percentText(double done, double total);

}  // namespace quorin::cli
