#include "replace/ReplacePlanner.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "dispatch/Clock.h"
#include "search/QueryText.h"

namespace quorin::replace {
namespace {

constexpr uint64_t kProgressEveryNanos = 50'000'000;
constexpr int64_t kCheckEveryMatches = 4096;
// How much of a line around a match is read to find its groups again.
constexpr int64_t kCaptureReachBytes = 1 << 20;

double secondsSince(uint64_t startNs) {
  return static_cast<double>(dispatch::monotonicNanos() - startNs) / 1e9;
}

// Progress at most every 50 ms.
class Throttle {
 public:
  explicit Throttle(const ReplaceProgressHandler& handler) : handler_(handler) {}
  void report(const ReplaceProgress& progress) {
    if (!handler_) return;
    const uint64_t now = dispatch::monotonicNanos();
    if (now - last_ < kProgressEveryNanos) return;
    last_ = now;
    handler_(progress);
  }

 private:
  const ReplaceProgressHandler& handler_;
  uint64_t last_ = 0;
};

void finish(ReplacePlan& plan, SiteCollector& sites, const PlanLimits& limits, uint64_t startNs) {
  plan.replacements = sites.count();
  plan.keepsLength = sites.keepsLength();
  plan.sites = sites.take(plan.merged, limits.mergeAboveSites, limits.mergedChunkBytes);
  plan.elapsedSeconds = secondsSince(startNs);
}

// The line of a match, read from the snapshot: whole up to kCaptureReachBytes
// either side of the match, cut (and said so) beyond.
struct MatchLine {
  std::string bytes;
  int64_t start = 0;  // document offset of bytes[0]
  bool cutBefore = false;
  bool cutAfter = false;
};

// Reads the line holding [matchStart, matchEnd) into `line`.
void readMatchLine(const storage::PieceTableSnapshot& text, uint8_t terminator, int64_t matchStart,
                   int64_t matchEnd, MatchLine& line) {
  const int64_t total = text.totalLength();
  // Back to the line's start, reading more each time.
  const int64_t floor = std::max<int64_t>(0, matchStart - kCaptureReachBytes);
  int64_t from = std::max(floor, matchStart - 4096);
  std::string before;
  while (true) {
    before.resize(static_cast<size_t>(matchStart - from));
    text.copyBytes({from, matchStart}, reinterpret_cast<uint8_t*>(before.data()));
    const size_t at = before.rfind(static_cast<char>(terminator));
    if (at != std::string::npos) {
      line.start = from + static_cast<int64_t>(at) + 1;
      line.cutBefore = false;
      break;
    }
    if (from == floor) {
      line.start = floor;
      line.cutBefore = floor > 0;
      break;
    }
    from = std::max(floor, matchStart - 4 * (matchStart - from));
  }
  // On to its end.
  const int64_t limit = std::min(total, matchEnd + kCaptureReachBytes);
  int64_t want = std::min(limit, matchEnd + 4096);
  while (true) {
    line.bytes.resize(static_cast<size_t>(want - line.start));
    text.copyBytes({line.start, want}, reinterpret_cast<uint8_t*>(line.bytes.data()));
    const size_t at =
        line.bytes.find(static_cast<char>(terminator), static_cast<size_t>(matchEnd - line.start));
    if (at != std::string::npos) {
      size_t end = at;
      if (terminator == '\n' && end > 0 && line.bytes[end - 1] == '\r') --end;
      line.bytes.resize(end);
      line.cutAfter = false;
      return;
    }
    if (want == limit) {
      line.cutAfter = limit < total;
      return;
    }
    want = std::min(limit, matchEnd + 4 * (want - matchEnd));
  }
}

// The replacement of one match, its line read into `line` unless that
// already holds it.
class MatchExpander {
 public:
  MatchExpander(const PreparedReplacement& prepared, const storage::PieceTableSnapshot& text)
      : prepared_(prepared),
        text_(text),
        terminator_(text::lineTerminator(text.originalBuffer().lineEnding())) {
    if (prepared.replacement.needsGroups() && prepared.captures) reader_.emplace(*prepared.captures);
  }

  void expand(int64_t start, int64_t end, std::string& out) {
    const ReplacementTemplate& t = prepared_.replacement;
    if (t.isConstant()) {
      out += t.constantText();
      return;
    }
    if (!reader_) {
      match_.resize(static_cast<size_t>(end - start));
      text_.copyBytes({start, end}, reinterpret_cast<uint8_t*>(match_.data()));
      groups_.assign(1, match_);
      t.expand(groups_, out);
      return;
    }
    // Matches come in document order, so one read serves a line's matches.
    const int64_t lineEnd = line_.start + static_cast<int64_t>(line_.bytes.size());
    if (!haveLine_ || start < line_.start || end > lineEnd || line_.cutAfter || line_.cutBefore) {
      readMatchLine(text_, terminator_, start, end, line_);
      haveLine_ = true;
    }
    const std::string_view subject = line_.bytes;
    const auto at = static_cast<size_t>(start - line_.start);
    const auto length = static_cast<size_t>(end - start);
    if (!reader_->read(subject, at, length, line_.cutBefore, line_.cutAfter, groups_))
      groups_.assign(1, subject.substr(at, length));
    t.expand(groups_, out);
  }

 private:
  const PreparedReplacement& prepared_;
  const storage::PieceTableSnapshot& text_;
  uint8_t terminator_;
  std::optional<GroupReader> reader_;
  MatchLine line_;
  bool haveLine_ = false;
  std::string match_;
  std::vector<std::string_view> groups_;
};

}  // namespace

std::string ReplaceError::describe() const {
  const std::string prefix = pair > 0 ? "Pair " + std::to_string(pair) + ": " : "";
  switch (kind) {
    case Kind::invalidRegex: return prefix + "Invalid regex: " + detail;
    case Kind::badTemplate: return prefix + detail;
    case Kind::emptyFind: return prefix + "the find text is empty";
    case Kind::lineBreakInFind: return prefix + "a find cannot hold a line break in a batch";
    case Kind::timedOut: return "The search timed out; nothing was replaced";
    case Kind::tooManyMatches: return "Too many matches to replace at once; nothing was replaced";
  }
  return prefix + detail;
}

std::expected<PreparedReplacement, ReplaceError> prepareReplacement(const search::SearchOptions& options,
                                                                    std::string_view replacement) {
  PreparedReplacement prepared;
  prepared.options = options;
  if (options.query.empty()) return std::unexpected(ReplaceError{ReplaceError::Kind::emptyFind, 0, {}});
  if (!options.regex) {
    prepared.replacement = ReplacementTemplate::literal(options.escapes ? search::expandEscapes(replacement)
                                                                        : std::string(replacement));
    return prepared;
  }
  auto regex = CapturingRegex::compile(options.query, options.caseSensitive);
  if (!regex) return std::unexpected(ReplaceError{ReplaceError::Kind::invalidRegex, 0, regex.error()});
  auto parsed = ReplacementTemplate::parse(replacement, regex->groups());
  if (!parsed)
    return std::unexpected(ReplaceError{ReplaceError::Kind::badTemplate, 0, parsed.error().describe()});
  prepared.replacement = std::move(*parsed);
  prepared.captures = std::move(*regex);
  return prepared;
}

std::string replacementForMatch(const PreparedReplacement& prepared, std::string_view line, size_t matchStart,
                                size_t matchLength) {
  std::string out;
  const ReplacementTemplate& t = prepared.replacement;
  if (t.isConstant()) return t.constantText();
  std::vector<std::string_view> groups{line.substr(matchStart, matchLength)};
  if (t.needsGroups() && prepared.captures) {
    GroupReader reader(*prepared.captures);
    if (!reader.read(line, matchStart, matchLength, false, false, groups))
      groups.assign(1, line.substr(matchStart, matchLength));
  }
  t.expand(groups, out);
  return out;
}

ReplacePlan planReplaceAll(const PreparedReplacement& prepared, const document::DocumentSnapshot& snapshot,
                           const search::SearchEngine& engine, const search::SearchCancellation& cancellation,
                           const ReplaceProgressHandler& progress, const PlanLimits& limits) {
  ReplacePlan plan;
  plan.snapshotVersion = snapshot.version();
  search::SearchHooks hooks;
  if (progress) {
    hooks.onProgress = [&progress](const search::SearchProgress& p) {
      progress({p.linesScanned, std::max(p.totalLines, p.linesScanned), p.matchesSoFar});
    };
  }
  const search::SearchResult found = engine.search(std::numeric_limits<int32_t>::max(), prepared.options,
                                                   snapshot.text, snapshot.lines, cancellation, hooks);
  if (found.cancelled) {
    plan.cancelled = true;
    return plan;
  }
  if (found.compileError) {
    plan.error = ReplaceError{ReplaceError::Kind::invalidRegex, 0, *found.compileError};
    return plan;
  }
  if (found.timedOut) {
    plan.error = ReplaceError{ReplaceError::Kind::timedOut, 0, {}};
    return plan;
  }
  if (found.truncated) {
    plan.error = ReplaceError{ReplaceError::Kind::tooManyMatches, 0, {}};
    return plan;
  }

  return planFromMatches(prepared, snapshot.text, found, cancellation, progress, limits);
}

ReplacePlan planFromMatches(const PreparedReplacement& prepared, const storage::PieceTableSnapshot& text,
                            const search::SearchResult& found, const search::SearchCancellation& cancellation,
                            const ReplaceProgressHandler& progress, const PlanLimits& limits) {
  const uint64_t startNs = dispatch::monotonicNanos();
  ReplacePlan plan;
  plan.snapshotVersion = found.snapshotVersion;
  SiteCollector sites(text);
  MatchExpander expander(prepared, text);
  std::string bytes;
  Throttle throttle(progress);
  const auto total = static_cast<int64_t>(found.matches.size());
  for (int64_t i = 0; i < total; ++i) {
    const search::SearchMatch& m = found.matches[static_cast<size_t>(i)];
    if (i % kCheckEveryMatches == 0) {
      if (cancellation.isCancelled()) {
        plan.cancelled = true;
        return plan;
      }
      throttle.report({i, total, i});
    }
    const int64_t end = m.matchByteStart + m.matchByteLength;
    bytes.clear();
    expander.expand(m.matchByteStart, end, bytes);
    sites.add(m.matchByteStart, end, bytes);
  }
  finish(plan, sites, limits, startNs);
  return plan;
}

std::string replacementAt(const PreparedReplacement& prepared, const storage::PieceTableSnapshot& text,
                          storage::ByteRange match) {
  std::string out;
  MatchExpander(prepared, text).expand(match.start, match.end, out);
  return out;
}

ReplacePlan planBatch(const Batch& batch, const document::DocumentSnapshot& snapshot,
                      const search::SearchCancellation& cancellation, const ReplaceProgressHandler& progress,
                      const PlanLimits& limits) {
  const uint64_t startNs = dispatch::monotonicNanos();
  ReplacePlan plan;
  plan.snapshotVersion = snapshot.version();
  plan.perPair.assign(batch.pairCount(), 0);
  const storage::PieceTableSnapshot& text = snapshot.text;
  const int64_t total = text.totalLength();
  SiteCollector sites(text);
  BatchRunner runner(batch);
  Throttle throttle(progress);
  BatchWindow w;
  w.terminator = text::lineTerminator(text.originalBuffer().lineEnding());
  int64_t pos = 0;
  while (pos < total) {
    if (cancellation.isCancelled()) {
      plan.cancelled = true;
      plan.perPair.assign(batch.pairCount(), 0);
      return plan;
    }
    throttle.report({pos, total, sites.count()});
    // Whole lines: up to the last line break of the window, grown for a long line.
    const int64_t context = pos > 0 ? 1 : 0;
    int64_t want = limits.windowBytes;
    int64_t end = 0;
    while (true) {
      end = std::min(total, pos + want);
      w.data.resize(static_cast<size_t>(end - pos + context));
      text.copyBytes({pos - context, end}, reinterpret_cast<uint8_t*>(w.data.data()));
      if (end == total) break;
      const auto* last = static_cast<const uint8_t*>(
          memrchr(w.data.data() + context, w.terminator, static_cast<size_t>(end - pos)));
      if (last != nullptr) {
        end = pos + (reinterpret_cast<const char*>(last) - (w.data.data() + context)) + 1;
        w.data.resize(static_cast<size_t>(end - pos + context));
        break;
      }
      if (want >= limits.maxWindowBytes) break;  // a piece of a longer line
      want = std::min(limits.maxWindowBytes, want * 4);
    }
    w.begin = static_cast<size_t>(context);
    w.docStart = pos;
    w.startsDocument = pos == 0;
    w.endsDocument = end == total;
    if (batch.mode() == BatchMode::simultaneous) {
      runner.run(w, sites, plan.perPair);
    } else {
      const std::string after = runner.transform(w, plan.perPair);
      const std::string_view before = std::string_view(w.data).substr(w.begin);
      if (after != before) {
        // One site per changed window: the window less what did not change at either end.
        size_t prefix = 0;
        while (prefix < before.size() && prefix < after.size() && before[prefix] == after[prefix]) ++prefix;
        size_t suffix = 0;
        while (suffix < before.size() - prefix && suffix < after.size() - prefix &&
               before[before.size() - 1 - suffix] == after[after.size() - 1 - suffix])
          ++suffix;
        sites.add(pos + static_cast<int64_t>(prefix), end - static_cast<int64_t>(suffix),
                  std::string_view(after).substr(prefix, after.size() - prefix - suffix));
      }
    }
    pos = end;
  }
  if (cancellation.isCancelled()) {
    plan.cancelled = true;
    plan.perPair.assign(batch.pairCount(), 0);
    return plan;
  }
  finish(plan, sites, limits, startNs);
  if (batch.mode() == BatchMode::sequential) {
    plan.replacements = 0;
    for (const int64_t n : plan.perPair) plan.replacements += n;
  }
  return plan;
}

}  // namespace quorin::replace
