#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "base/Mutex.h"
#include "dispatch/Executor.h"
#include "dispatch/WorkerPool.h"
#include "jobs/JobRegistry.h"
#include "logs/LogIndexData.h"
#include "logs/SeverityRules.h"
#include "storage/EditResult.h"
#include "storage/LineIndexSnapshot.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::logs {

struct LogIndexOptions {
  // The year yearless timestamps (syslog, glog) end in: the file's
  // modification year, or this year for an untitled document.
  int32_t modificationYear = 1970;
  // Lines per unit of parallel work (whole blocks). Tests pass small values.
  int64_t chunkLines = 16 * kLogBlockLines;
};

// The text a job reads: the text and its line starts at one version. The
// line index may still be building; the log index covers the lines it knows.
struct LogSource {
  storage::PieceTableSnapshot text;
  storage::LineIndexSnapshot lines;
};

// The timestamp format of a document from a sample: the first 1,000 lines or
// 1 MiB and a few samples further in. None when it is not a log.
std::optional<TimestampFormat> sampleTimestampFormat(const LogSource& source);

// The whole index in one call, blocking, over the lines `source.lines`
// knows (all of them when it is complete): for the command line, tests and
// benchmarks. Chunks of whole blocks run on `pool` (the process-wide pool
// when null; a 1-thread pool for a sequential build); `token` (optional)
// cancels (the result is then incomplete) and receives progress.
LogIndexData buildLogIndex(const LogSource& source, const SeverityRules& rules,
                           const LogIndexOptions& options, dispatch::WorkerPool* pool = nullptr,
                           jobs::JobToken* token = nullptr);

// A document's log index, kept current as the document changes. Owned by
// whoever shows the document (one per document); the work runs on the
// `worker` executor (a serial queue of its own), its chunks on the
// process-wide pool, over snapshots, never touching the document.
//
// Thread-safety: start(), noteEdit(), noteAppend(), setRules() and cancel()
// on one thread (the main one); data() from any thread. Published data is
// immutable: readers keep the shared pointer as long as they like.
// Lifetime: background work holds the index weakly; dropping the last
// reference cancels it.
// Failure: nothing fails; a cancelled or superseded build publishes nothing
// more.
class LogIndex : public std::enable_shared_from_this<LogIndex> {
 public:
  using PublishHandler = std::function<void(std::shared_ptr<const LogIndexData>)>;

  // `published` runs on `notify` (the main queue in the application) each
  // time new data is published: as blocks fill in during a build (at most a
  // few times a second), when it completes, and after each edit is folded in.
  static std::shared_ptr<LogIndex> create(SeverityRules rules, LogIndexOptions options,
                                          std::shared_ptr<dispatch::Executor> worker,
                                          std::shared_ptr<dispatch::Executor> notify,
                                          PublishHandler published);

  // Builds from scratch over `source` (after open, reload, or a restarted
  // line index: its older snapshots are stale, and work over them is never
  // published), cancelling any build in progress. The build covers the
  // lines whose end is known; noteAppend() carries it on as the line index
  // finds more. Progress goes to `jobs` as a job titled "Indexing log
  // levels and times" when given (rebuilds after edits report there too).
  void start(LogSource source, jobs::JobRegistry* jobs = nullptr);
  // Every edit the document makes, in order (the source is the text after
  // it): the blocks it touched are read again, the ones after it move. A
  // build still running is cancelled and built again over `after`.
  void noteEdit(const storage::EditResult& edit, LogSource after);
  // Bytes a followed file grew by, or lines a line index still scanning
  // found since: the last block is read again with the lines after it.
  void noteAppend(LogSource after);
  // New user rules: a new build (levels and times are found again).
  void setRules(SeverityRules rules, LogSource source);
  // Stops the work in progress; nothing posted before it is published.
  void cancel();

  // The latest published data; an empty index before the first publication.
  std::shared_ptr<const LogIndexData> data() const;

  // Cancels the work in progress; nothing is published after it.
  ~LogIndex();
  LogIndex(const LogIndex&) = delete;
  LogIndex& operator=(const LogIndex&) = delete;

  struct State;

 private:
  LogIndex() = default;
  std::shared_ptr<State> state_;
};

}  // namespace quorin::logs
