#include "filter/LiveFilter.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace quorin::filter {
namespace {

// Lines evaluated and published first, so that a filtered view has its
// first screen long before a multi-gigabyte document is through.
constexpr int64_t kFirstScreenLines = 64 * 1024;

int64_t wholeLines(const storage::LineIndexSnapshot& lines) {
  const int64_t known = lines.knownLineCount();
  return lines.isComplete ? known : std::max<int64_t>(known - 1, 0);
}

// `fresh`, with the lines of `base` before `keepUntil` shown as they were.
std::shared_ptr<const FilterProjection> merged(const FilterProjection& fresh, const FilterProjection& base,
                                               int64_t keepUntil) {
  const auto& newer = fresh.bitset();
  const auto& older = base.bitset();
  keepUntil = std::min({keepUntil, older.lineCount(), newer.lineCount()});
  LineVisibilityBitset bits;
  for (int64_t w = 0; w < newer.wordCount(); ++w) {
    uint64_t word = newer.word(w);
    const int64_t first = w * 64;
    if (first < keepUntil) {
      const int64_t kept = std::min<int64_t>(64, keepUntil - first);
      word |= older.word(w) & (kept == 64 ? ~uint64_t{0} : (uint64_t{1} << kept) - 1);
    }
    bits.appendBits(word, static_cast<int>(std::min<int64_t>(64, newer.lineCount() - first)));
  }
  bits.rebuildRankDirectory();
  return std::make_shared<FilterProjection>(std::move(bits), fresh.options(), fresh.snapshotVersion(),
                                            fresh.rulesGeneration(), fresh.isComplete());
}

// `base` with the lines [from, to) as `fresh` shows them.
std::shared_ptr<const FilterProjection> replaced(const FilterProjection& base, const FilterProjection& fresh,
                                                 int64_t from, int64_t to) {
  const auto& older = base.bitset();
  const auto& newer = fresh.bitset();
  to = std::min({to, older.lineCount(), newer.lineCount()});
  LineVisibilityBitset bits;
  for (int64_t w = 0; w < older.wordCount(); ++w) {
    const int64_t first = w * 64;
    uint64_t word = older.word(w);
    if (first + 64 > from && first < to) {
      const int64_t low = std::max<int64_t>(from - first, 0), high = std::min<int64_t>(to - first, 64);
      const uint64_t mask = (high == 64 ? ~uint64_t{0} : (uint64_t{1} << high) - 1) & (~uint64_t{0} << low);
      word = (word & ~mask) | (newer.word(w) & mask);
    }
    bits.appendBits(word, static_cast<int>(std::min<int64_t>(64, older.lineCount() - first)));
  }
  bits.rebuildRankDirectory();
  return std::make_shared<FilterProjection>(std::move(bits), fresh.options(), fresh.snapshotVersion(),
                                            fresh.rulesGeneration(), true);
}

}  // namespace

struct LiveFilter::Request {
  uint64_t generation = 0;
  std::shared_ptr<const CompiledFilter> compiled;
  FilterContext context;
  logs::LogSource source;
  int64_t firstLine = 0;
  std::shared_ptr<const FilterProjection> base;  // merged under lines before firstLine
  std::shared_ptr<search::SearchCancellation> cancellation;
  // Edited lines [dirtyFrom, dirtyTo) to evaluate again in `base` (which the
  // edits were spliced into); the rest of `base` stands.
  std::optional<std::pair<int64_t, int64_t>> dirty;
};

std::shared_ptr<LiveFilter> LiveFilter::create(std::shared_ptr<dispatch::Executor> worker,
                                               std::shared_ptr<dispatch::Executor> notify,
                                               PublishHandler published, FilterLimits limits,
                                               dispatch::WorkerPool* pool) {
  return std::shared_ptr<LiveFilter>(
      new LiveFilter(std::move(worker), std::move(notify), std::move(published), limits, pool));
}

LiveFilter::LiveFilter(std::shared_ptr<dispatch::Executor> worker, std::shared_ptr<dispatch::Executor> notify,
                       PublishHandler published, FilterLimits limits, dispatch::WorkerPool* pool)
    : worker_(std::move(worker)),
      notify_(std::move(notify)),
      published_(std::move(published)),
      limits_(limits),
      pool_(pool) {}

std::expected<std::vector<std::string>, FilterRefusal> LiveFilter::start(const FilterOptions& options,
                                                                         logs::LogSource source,
                                                                         FilterContext context) {
  auto compiled = compileFilter(options);
  if (!compiled) return std::unexpected(compiled.error());
  compiled_ = std::make_shared<const CompiledFilter>(std::move(*compiled));
  context_ = std::move(context);
  schedule(std::move(source), 0, nullptr);
  return compiled_->ruleErrors;
}

void LiveFilter::noteEdit(const storage::EditResult& edit, logs::LogSource after, int64_t newVersion) {
  if (!compiled_) return;
  context_.snapshotVersion = newVersion;
  const auto current = projection();
  // Lines above the edit keep their numbers, so the edited line's number in
  // the new text is its number in the old one.
  const auto from = after.lines.lineContaining(edit.docByteStart);
  if (current && current->isComplete() && after.lines.isComplete && from) {
    const auto inserted = static_cast<int64_t>(edit.insertedNewlineOffsets.size());
    const int64_t removed = inserted + current->linesEvaluated() - wholeLines(after.lines);
    if (removed >= 0) {
      const auto& bits = current->bitset();
      auto spliced = std::make_shared<FilterProjection>(
          bits.spliced(*from, removed + 1, inserted + 1, insertedLinesVisible(bits, *from, removed + 1)),
          current->options(), newVersion, current->rulesGeneration(), true);
      FilterStatus status;
      {
        base::MutexLock guard(mutex_);
        projection_ = spliced;
        status_.computing = true;
        status = status_;
      }
      // The view draws the spliced rows at once, before the edited lines are evaluated again.
      if (published_) published_(spliced, status);
      // The edited lines, with those of earlier edits not evaluated yet, in the new numbering.
      const int64_t removedEnd = *from + removed + 1, insertedEnd = *from + inserted + 1;
      const auto moved = [&](int64_t line) {
        return line >= removedEnd ? line + inserted - removed : std::min(line, insertedEnd);
      };
      auto range = dirty_ ? std::pair{std::min(moved(dirty_->first), *from),
                                      std::max(moved(dirty_->second), insertedEnd)}
                          : std::pair{*from, insertedEnd};
      dirty_ = range;
      schedule(std::move(after), 0, std::move(spliced), range);
      return;
    }
  }
  schedule(std::move(after), 0, nullptr);
}

void LiveFilter::noteAppend(logs::LogSource after, int64_t newVersion) {
  if (!compiled_) return;
  context_.snapshotVersion = newVersion;
  const auto current = projection();
  if (!current || !current->isComplete() || dirty_) {
    // Edited lines still to evaluate: all of it, rather than a tail that would supersede them.
    schedule(std::move(after), 0, nullptr);
    return;
  }
  const auto& options = compiled_->options;
  const int64_t firstLine = std::max<int64_t>(0, current->linesEvaluated() - 1 - limits_.appendSlackLines -
                                                     options.contextBefore - options.contextAfter);
  schedule(std::move(after), firstLine, current);
}

void LiveFilter::cancel() {
  if (running_) running_->cancel();
  base::MutexLock guard(mutex_);
  ++generation_;
  status_.computing = false;
}

std::shared_ptr<const FilterProjection> LiveFilter::projection() const {
  base::MutexLock guard(mutex_);
  return projection_;
}

FilterStatus LiveFilter::status() const {
  base::MutexLock guard(mutex_);
  return status_;
}

void LiveFilter::schedule(logs::LogSource source, int64_t firstLine,
                          std::shared_ptr<const FilterProjection> base,
                          std::optional<std::pair<int64_t, int64_t>> dirty) {
  if (!dirty) dirty_.reset();
  if (running_) running_->cancel();
  running_ = std::make_shared<search::SearchCancellation>();
  uint64_t generation = 0;
  {
    base::MutexLock guard(mutex_);
    generation = ++generation_;
    status_.computing = true;
    status_.linesDone = 0;
    status_.totalLines = wholeLines(source.lines);
  }
  auto request = std::make_shared<Request>(Request{generation, compiled_, context_, std::move(source),
                                                   firstLine, std::move(base), running_, dirty});
  worker_->async([weak = weak_from_this(), request] {
    if (auto self = weak.lock()) self->run(request);
  });
}

void LiveFilter::run(const std::shared_ptr<Request>& request) {
  {
    base::MutexLock guard(mutex_);
    if (request->generation != generation_) return;  // superseded before it began
  }
  FilterStatus status;
  status.totalLines = wholeLines(request->source.lines);
  FilterLimits limits = limits_;
  if (request->dirty) {
    runEdited(*request, status);
    return;
  }
  if (!request->base && status.totalLines > kFirstScreenLines) {
    limits.endLine = kFirstScreenLines;
    auto first = evaluateFilter(*request->compiled, request->source, request->context, limits,
                                request->cancellation.get(), nullptr, pool_);
    if (request->cancellation->isCancelled()) return;
    status.computing = true;
    status.linesEvaluated = first.projection->linesEvaluated();
    publish(request->generation, std::move(first.projection), status);
    limits.endLine.reset();
  }
  limits.firstLine = request->firstLine;
  const auto progress = [this, generation = request->generation](const FilterProgress& p) {
    publishProgress(generation, p.linesEvaluated);
  };
  auto result = evaluateFilter(*request->compiled, request->source, request->context, limits,
                               request->cancellation.get(), progress, pool_);
  if (result.cancelled) return;
  auto projection = std::move(result.projection);
  if (request->base) {
    const int64_t start = request->firstLine / 64 * 64;
    projection = merged(*projection, *request->base, start + request->compiled->options.contextAfter);
  }
  status.computing = false;
  status.linesEvaluated = projection->linesEvaluated();
  status.notice = std::move(result.notice);
  publish(request->generation, std::move(projection), std::move(status));
}

void LiveFilter::runEdited(const Request& request, FilterStatus status) {
  // Lines whose rows an edit of [from, to) can change: context reaches
  // A + B lines, and a head's level, time or whole message reaches its
  // continuation lines (up to the slack). They are evaluated with as much
  // again around them, so that their own context and messages are whole.
  const FilterOptions& options = request.compiled->options;
  const int64_t reach = options.contextBefore + options.contextAfter + 1 +
                        (request.compiled->needsMessages() ? limits_.appendSlackLines : 0);
  const int64_t margin = reach + limits_.appendSlackLines;
  const auto [from, to] = *request.dirty;
  const int64_t keepFrom = std::max<int64_t>(0, from - reach),
                keepTo = std::min(status.totalLines, to + reach);
  FilterLimits limits = limits_;
  limits.firstLine = std::max<int64_t>(0, keepFrom - margin);
  limits.endLine = std::min(status.totalLines, keepTo + margin);
  auto result = evaluateFilter(*request.compiled, request.source, request.context, limits,
                               request.cancellation.get(), nullptr, pool_);
  if (result.cancelled) return;
  auto projection = replaced(*request.base, *result.projection, keepFrom, keepTo);
  status.computing = false;
  status.linesEvaluated = projection->linesEvaluated();
  status.notice = std::move(result.notice);
  publish(request.generation, std::move(projection), std::move(status));
}

void LiveFilter::publishProgress(uint64_t generation, int64_t linesDone) {
  notify_->async([weak = weak_from_this(), generation, linesDone] {
    auto self = weak.lock();
    if (!self) return;
    std::shared_ptr<const FilterProjection> projection;
    FilterStatus status;
    {
      base::MutexLock guard(self->mutex_);
      // Nothing to show yet (before the first screen), or a newer request: no news.
      if (generation != self->generation_ || !self->status_.computing || !self->projection_) return;
      self->status_.linesDone = std::max(self->status_.linesDone, linesDone);
      projection = self->projection_;
      status = self->status_;
    }
    if (self->published_) self->published_(std::move(projection), status);
  });
}

void LiveFilter::publish(uint64_t generation, std::shared_ptr<const FilterProjection> projection,
                         FilterStatus status) {
  notify_->async([weak = weak_from_this(), generation, projection = std::move(projection),
                  status = std::move(status)]() mutable {
    auto self = weak.lock();
    if (!self) return;
    {
      base::MutexLock guard(self->mutex_);
      if (generation != self->generation_) return;  // a newer request is on its way
      self->projection_ = projection;
      self->status_ = status;
    }
    if (!status.computing) self->dirty_.reset();  // the latest request settled every edited line
    if (self->published_) self->published_(std::move(projection), status);
  });
}

}  // namespace quorin::filter
