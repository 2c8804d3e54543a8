#include "logs/LogIndex.h"

#include <chrono>

#include "logs/LogIndexBuild.h"
#include "logs/LogIndexLines.h"
#include "logs/LogIndexUpdate.h"

namespace quorin::logs {
namespace {

constexpr auto kPublishInterval = std::chrono::milliseconds(250);
constexpr int64_t kResampleBelowLines = 1000;
constexpr const char* kJobTitle = "Indexing log levels and times";

}  // namespace

// Everything the background work shares with the main thread. Tasks on the
// worker run one at a time, in the order they were posted, so `working`
// needs no lock; `epoch`, `running` and `latest` are shared and locked.
struct LogIndex::State {
  LogIndexOptions options;
  std::shared_ptr<dispatch::Executor> worker;
  std::shared_ptr<dispatch::Executor> notify;
  PublishHandler published;

  // Main thread only.
  SeverityRules rules;
  jobs::JobRegistry* jobs = nullptr;

  mutable base::Mutex lock;
  // Raised by start() and cancel(): tasks posted before it do nothing.
  uint64_t epoch GUARDED_BY(lock) = 0;
  // The build in progress, for noteEdit() and setRules() to stop.
  std::shared_ptr<jobs::JobToken> running GUARDED_BY(lock);
  std::shared_ptr<const LogIndexData> latest GUARDED_BY(lock) = std::make_shared<const LogIndexData>();

  // Worker only: the index the edits and appends fold into, when a build
  // finished (valid), and the registry a rebuild reports to.
  // Shared with `latest` once published: one copy in memory between edits.
  std::shared_ptr<const LogIndexData> working;
  bool workingValid = false;
  // Edits not folded into `working` yet, as one span of the newest text
  // (their union); kept while the line snapshots that come with them are
  // already stale, which means a newer edit's task is on its way.
  std::optional<storage::EditResult> pending;

  bool isCurrent(uint64_t taskEpoch) const {
    base::MutexLock hold(lock);
    return epoch == taskEpoch;
  }

  // Makes `data` the latest unless a newer epoch began, and hands it to the
  // handler on `notify` unless something newer was published by then.
  static void publish(const std::shared_ptr<State>& state, uint64_t taskEpoch,
                      std::shared_ptr<const LogIndexData> shared) {
    {
      base::MutexLock hold(state->lock);
      if (state->epoch != taskEpoch) return;
      state->latest = shared;
    }
    std::weak_ptr<State> weak = state;
    state->notify->async([weak, shared, taskEpoch] {
      auto alive = weak.lock();
      if (!alive) return;
      {
        // Not after cancel() (the owner may be gone), nor over newer data.
        base::MutexLock hold(alive->lock);
        if (alive->epoch != taskEpoch || alive->latest != shared) return;
      }
      if (alive->published) alive->published(shared);
    });
  }

  // A build from scratch on the worker, publishing as blocks fill in.
  static void rebuild(const std::shared_ptr<State>& state, uint64_t taskEpoch, const LogSource& source,
                      const SeverityRules& rules, std::shared_ptr<jobs::JobToken> token) {
    state->workingValid = false;
    state->pending.reset();
    if (!token) token = std::make_shared<jobs::JobToken>(0, kJobTitle);
    {
      base::MutexLock hold(state->lock);
      if (state->epoch != taskEpoch) {
        token->finish();
        return;
      }
      state->running = token;
    }
    const auto format = sampleTimestampFormat(source);
    const int64_t version = source.text.version();
    auto lastPublish = std::chrono::steady_clock::now() - kPublishInterval;
    auto outcome = detail::buildInRounds(
        source, rules, format, state->options, dispatch::WorkerPool::shared(), token.get(),
        [&](const detail::ScanJoin& join) {
          const auto now = std::chrono::steady_clock::now();
          if (now - lastPublish < kPublishInterval || token->isCancelled() || !source.lines.isCurrent())
            return;
          lastPublish = now;
          publish(state, taskEpoch,
                  std::make_shared<const LogIndexData>(join.data(version, rules.generation(), false)));
        });
    // A line snapshot that went stale during the build may have given wrong
    // line starts: the edit that made it stale brings a newer one.
    if (outcome.complete && !token->isCancelled() && source.lines.isCurrent()) {
      state->working = std::make_shared<const LogIndexData>(
          std::move(outcome.join).take(version, rules.generation(), source.lines.isComplete));
      state->workingValid = true;
      publish(state, taskEpoch, state->working);
    }
    token->finish();
  }

  // Brings `working` up to `after`: pending edits and new lines at the end
  // folded in, or a build from scratch when they cannot be.
  static void catchUp(const std::shared_ptr<State>& state, uint64_t taskEpoch, const LogSource& after,
                      const SeverityRules& rules, jobs::JobRegistry* jobs) {
    if (!state->isCurrent(taskEpoch)) return;
    if (!state->workingValid) {
      State::rebuild(state, taskEpoch, after, rules, jobs ? jobs->begin(kJobTitle) : nullptr);
      return;
    }
    if (!after.lines.isCurrent()) return;
    const bool grew = state->working->snapshotVersion != after.text.version() ||
                      state->working->linesIndexed != detail::coveredLineCount(after) ||
                      state->working->complete != after.lines.isComplete;
    if (!state->pending && !grew) return;
    // A followed file that started empty (or short) becomes a log as lines
    // arrive: its format is sampled again while it is within one sample.
    if (!state->working->format && state->working->linesIndexed < kResampleBelowLines &&
        sampleTimestampFormat(after)) {
      State::rebuild(state, taskEpoch, after, rules, jobs ? jobs->begin(kJobTitle) : nullptr);
      return;
    }
    LogIndexData next = *state->working;
    bool folded = !state->pending || detail::foldEdit(next, *state->pending, after, rules);
    if (folded && (next.linesIndexed != detail::coveredLineCount(after) || !state->pending)) {
      folded = detail::foldAppend(next, after, rules);
    }
    if (!after.lines.isCurrent()) return;
    if (!folded) {
      State::rebuild(state, taskEpoch, after, rules, jobs ? jobs->begin(kJobTitle) : nullptr);
      return;
    }
    state->pending.reset();
    state->working = std::make_shared<const LogIndexData>(std::move(next));
    publish(state, taskEpoch, state->working);
  }
};

namespace {

// The union of `pending` (a span of the text before `edit`) and `edit`, as
// one edit of the text after both: what the log index reads again.
storage::EditResult unite(const std::optional<storage::EditResult>& pending,
                          const storage::EditResult& edit) {
  if (!pending) return edit;
  const int64_t editEnd = edit.docByteStart + edit.bytesRemoved;
  int64_t end = pending->docByteStart + pending->bytesInserted;
  if (end >= editEnd) {
    end += edit.netByteDelta;
  } else if (end > edit.docByteStart) {
    end = edit.docByteStart + edit.bytesInserted;
  }
  storage::EditResult united;
  united.docByteStart = std::min(pending->docByteStart, edit.docByteStart);
  end = std::max(end, edit.docByteStart + edit.bytesInserted);
  united.bytesInserted = end - united.docByteStart;
  united.netByteDelta = pending->netByteDelta + edit.netByteDelta;
  united.bytesRemoved = united.bytesInserted - united.netByteDelta;
  united.newVersion = edit.newVersion;
  return united;
}

}  // namespace

std::shared_ptr<LogIndex> LogIndex::create(SeverityRules rules, LogIndexOptions options,
                                           std::shared_ptr<dispatch::Executor> worker,
                                           std::shared_ptr<dispatch::Executor> notify,
                                           PublishHandler published) {
  std::shared_ptr<LogIndex> index(new LogIndex());
  index->state_ = std::make_shared<State>();
  State& state = *index->state_;
  state.options = options;
  state.worker = std::move(worker);
  state.notify = std::move(notify);
  state.published = std::move(published);
  state.rules = std::move(rules);
  return index;
}

LogIndex::~LogIndex() { cancel(); }

void LogIndex::start(LogSource source, jobs::JobRegistry* jobs) {
  state_->jobs = jobs;
  auto token = jobs ? jobs->begin(kJobTitle) : std::make_shared<jobs::JobToken>(0, kJobTitle);
  uint64_t epoch = 0;
  {
    base::MutexLock hold(state_->lock);
    epoch = ++state_->epoch;
    if (state_->running) state_->running->cancel();
    state_->running = token;
  }
  state_->worker->async([state = state_, epoch, source = std::move(source), rules = state_->rules, token] {
    State::rebuild(state, epoch, source, rules, token);
  });
}

void LogIndex::noteEdit(const storage::EditResult& edit, LogSource after) {
  uint64_t epoch = 0;
  {
    // A build still running reads the text before the edit: stop it; the
    // edit's task builds again over the text after it.
    base::MutexLock hold(state_->lock);
    epoch = state_->epoch;
    if (state_->running && !state_->running->isFinished()) state_->running->cancel();
  }
  auto* jobs = state_->jobs;
  state_->worker->async([state = state_, epoch, edit, after = std::move(after), rules = state_->rules, jobs] {
    if (!state->isCurrent(epoch)) return;
    state->pending = unite(state->pending, edit);
    State::catchUp(state, epoch, after, rules, jobs);
  });
}

void LogIndex::noteAppend(LogSource after) {
  uint64_t epoch = 0;
  {
    base::MutexLock hold(state_->lock);
    epoch = state_->epoch;
  }
  auto* jobs = state_->jobs;
  state_->worker->async([state = state_, epoch, after = std::move(after), rules = state_->rules, jobs] {
    State::catchUp(state, epoch, after, rules, jobs);
  });
}

void LogIndex::setRules(SeverityRules rules, LogSource source) {
  state_->rules = std::move(rules);
  start(std::move(source), state_->jobs);
}

void LogIndex::cancel() {
  base::MutexLock hold(state_->lock);
  ++state_->epoch;
  if (state_->running) state_->running->cancel();
}

std::shared_ptr<const LogIndexData> LogIndex::data() const {
  base::MutexLock hold(state_->lock);
  return state_->latest;
}

}  // namespace quorin::logs
