#include "search/FindNext.h"

#include <algorithm>
#include <cstring>

#include "base/PageAligned.h"
#include "search/FoldedTextMatcher.h"
#include "search/LiteralMatcher.h"
#include "search/Matcher.h"
#include "search/QueryText.h"
#include "search/RegexMatcher.h"
#include "search/SearchEngine.h"
#include "text/LineEnding.h"

namespace quorin::search {
namespace {

// Keeps the first (forward) or last (backward) match whose start lies in
// [acceptFrom, acceptTo).
class NearestCollector final : public MatchCollector {
 public:
  NearestCollector(const SearchCancellation& cancellation, bool forward)
      : cancellation_(cancellation), forward_(forward) {}

  void aim(int64_t dataStart, int64_t acceptFrom, int64_t acceptTo, std::optional<int64_t> skipEmptyAt) {
    dataStart_ = dataStart;
    acceptFrom_ = acceptFrom;
    acceptTo_ = acceptTo;
    skipEmptyAt_ = skipEmptyAt;
  }

  bool add(size_t start, size_t length) override {
    const int64_t at = dataStart_ + static_cast<int64_t>(start);
    if (at < acceptFrom_) return true;
    if (at >= acceptTo_) return false;
    if (length == 0 && skipEmptyAt_ == at) return true;
    best_ = storage::ByteRange{at, at + static_cast<int64_t>(length)};
    return !forward_;  // going backward, a later match in the window is nearer
  }
  bool keepGoing() override { return !cancellation_.isCancelled(); }

  const std::optional<storage::ByteRange>& best() const { return best_; }

 private:
  const SearchCancellation& cancellation_;
  const bool forward_;
  int64_t dataStart_ = 0;
  int64_t acceptFrom_ = 0;
  int64_t acceptTo_ = 0;
  std::optional<int64_t> skipEmptyAt_;
  std::optional<storage::ByteRange> best_;
};

// One bounded scan: reads windows of whole lines and hands them to a scanner.
class Scan {
 public:
  Scan(const storage::PieceTableSnapshot& text, const Matcher& matcher, const FindNextLimits& limits,
       const SearchCancellation& cancellation, bool forward)
      : text_(text),
        matcher_(matcher),
        scanner_(matcher.makeScanner()),
        total_(text.totalLength()),
        terminator_(text::lineTerminator(text.originalBuffer().lineEnding())),
        windowBytes_(std::max<int64_t>(limits.windowBytes, 1)),
        reach_(std::max<int64_t>(limits.lineReachBytes, 0)),
        cancellation_(cancellation),
        collector_(cancellation, forward) {}

  // The first match starting in [from, to).
  std::optional<storage::ByteRange> forward(int64_t from, int64_t to, std::optional<int64_t> skipEmptyAt) {
    int64_t pos = lineStartAtOrBefore(from);
    const int64_t stop = lineStartAtOrAfter(to);
    while (pos < std::min(to, total_)) {
      if (cancellation_.isCancelled()) return std::nullopt;
      const int64_t cut = std::min(lineStartAtOrAfter(pos + windowBytes_), stop);
      scanWindow(pos, cut, from, to, skipEmptyAt);
      if (collector_.best()) return collector_.best();
      pos = cut;
    }
    return std::nullopt;
  }

  // The last match starting in [from, to).
  std::optional<storage::ByteRange> backward(int64_t from, int64_t to) {
    int64_t end = lineStartAtOrAfter(to);
    int64_t high = to;
    while (high > from) {
      if (cancellation_.isCancelled()) return std::nullopt;
      const int64_t start = lineStartAtOrBefore(std::max(from, high - windowBytes_));
      scanWindow(start, end, from, high, std::nullopt);
      if (collector_.best()) return collector_.best();
      high = end = start;
    }
    return std::nullopt;
  }

 private:
  void scanWindow(int64_t start, int64_t end, int64_t acceptFrom, int64_t acceptTo,
                  std::optional<int64_t> skipEmptyAt) {
    end = std::min(end, total_);
    if (end <= start) return;
    const int64_t dataStart = std::max<int64_t>(start - static_cast<int64_t>(matcher_.contextBefore()), 0);
    // A regex match has no longest length: a window that cuts a very long
    // line reads on as far as the reach, so a match may cross the cut.
    const bool unbounded = matcher_.overlapAfter() == kUnboundedMatchLength;
    int64_t readEnd = std::min(end + (unbounded ? 0 : static_cast<int64_t>(matcher_.overlapAfter())), total_);
    read(dataStart, readEnd, 0);
    if (unbounded && readEnd < total_ && buffer_[static_cast<size_t>(end - 1 - dataStart)] != terminator_) {
      const int64_t pieceEnd = std::min(end + std::max<int64_t>(reach_, 4), total_);
      read(readEnd, pieceEnd, static_cast<size_t>(readEnd - dataStart));
      readEnd = pieceEnd;
    }
    ScanWindow window;
    window.data = buffer_.data();
    window.size = buffer_.size();
    window.begin = static_cast<size_t>(start - dataStart);
    window.end = static_cast<size_t>(end - dataStart);
    window.terminator = terminator_;
    window.dataStartsDocument = dataStart == 0;
    window.dataEndsDocument = readEnd == total_;
    collector_.aim(dataStart, acceptFrom, acceptTo, skipEmptyAt);
    scanner_->scan(window, collector_);
  }

  // Reads [start, end) of the text into buffer_[at…]. Bytes the file lost
  // under us read as NUL, as everywhere else.
  void read(int64_t start, int64_t end, size_t at) {
    buffer_.resize(at + static_cast<size_t>(end - start));
    const int64_t got = text_.copyBytes({start, end}, buffer_.data() + at);
    std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(at) + std::clamp<int64_t>(got, 0, end - start),
              buffer_.end(), uint8_t{0});
  }

  // The start of the line holding `pos`; `pos` itself when that start lies
  // further back than the reach (a very long line is searched in pieces).
  int64_t lineStartAtOrBefore(int64_t pos) {
    if (pos <= 0) return 0;
    pos = std::min(pos, total_);
    const int64_t floor = std::max<int64_t>(pos - reach_, 0);
    int64_t high = pos;
    while (high > floor) {
      const int64_t low = std::max(floor, high - kStep);
      probe_.resize(static_cast<size_t>(high - low));
      const int64_t got = text_.copyBytes({low, high}, probe_.data());
      if (got <= 0) break;
      if (const void* hit = memrchr(probe_.data(), terminator_, static_cast<size_t>(got)))
        return low + (static_cast<const uint8_t*>(hit) - probe_.data()) + 1;
      high = low;
    }
    return floor == 0 ? 0 : pos;
  }

  // The first line start at or after `pos` (the document's end when none),
  // or a cut `reach` bytes on inside a very long line.
  int64_t lineStartAtOrAfter(int64_t pos) {
    if (pos <= 0) return 0;
    if (pos >= total_) return total_;
    const int64_t ceiling = std::min(pos + reach_, total_);
    int64_t low = pos - 1;  // a line break just before `pos` makes `pos` a line start
    while (low < ceiling) {
      const int64_t high = std::min(ceiling, low + kStep);
      probe_.resize(static_cast<size_t>(high - low));
      const int64_t got = text_.copyBytes({low, high}, probe_.data());
      if (got <= 0) break;
      if (const void* hit = std::memchr(probe_.data(), terminator_, static_cast<size_t>(got)))
        return low + (static_cast<const uint8_t*>(hit) - probe_.data()) + 1;
      low = high;
    }
    return ceiling;
  }

  static constexpr int64_t kStep = 64 * 1024;

  const storage::PieceTableSnapshot& text_;
  const Matcher& matcher_;
  std::unique_ptr<WindowScanner> scanner_;
  const int64_t total_;
  const uint8_t terminator_;
  const int64_t windowBytes_;
  const int64_t reach_;
  const SearchCancellation& cancellation_;
  NearestCollector collector_;
  base::ReadBuffer buffer_;
  base::ReadBuffer probe_;
};

}  // namespace

std::string FindNextResult::describe() const {
  if (compileError) return "Invalid regex: " + *compileError;
  if (found() || cancelled || emptyQuery) return {};
  return std::string(kNoMatchWithinScanMessage);
}

FindNext::FindNext(FindNextLimits limits, dispatch::WorkerPool* pool)
    : limits_(limits), pool_(pool != nullptr ? pool : &dispatch::WorkerPool::shared()) {}

FindNextResult FindNext::find(const FindNextRequest& request, const storage::PieceTableSnapshot& text,
                              const SearchCancellation& cancellation) const {
  FindNextResult result;
  result.snapshotVersion = text.version();
  // The matcher the whole-document search runs, so that stepping through
  // matches visits exactly the ones that were counted.
  PreparedQuery prep =
      request.options.query.empty() ? PreparedQuery{} : prepareQuery(request.options, limits_.regexPrefilter);
  if (prep.error) {
    result.compileError = std::move(prep.error);
    return result;
  }
  const int64_t total = text.totalLength();
  const int64_t budget = std::max<int64_t>(limits_.scanBytes, 0);
  const int64_t from = std::clamp<int64_t>(request.from, 0, total);
  if (!prep.matcher) {
    result.emptyQuery = true;
    return result;
  }

  // The ranges of match starts to look at, nearest first: up to the end
  // (start) of the document, then from the other end back towards `from`.
  struct Leg {
    int64_t from, to;
    bool wrapped;
  };
  Leg legs[2];
  if (!request.backward) {
    const int64_t end = std::min(total, from + budget);
    legs[0] = {from, end, false};
    legs[1] = {0, request.wrap ? std::min(from, budget - (end - from)) : 0, true};
  } else {
    const int64_t start = std::max<int64_t>(0, from - budget);
    legs[0] = {start, from, false};
    legs[1] = {request.wrap ? std::max(from, total - (budget - (from - start))) : total, total, true};
  }

  for (const Leg& leg : legs) {
    if (leg.to <= leg.from) continue;
    // A leg that reaches the end also takes an empty match there (a pattern
    // such as "^$" on the empty last line).
    const bool towardsEnd = request.backward == leg.wrapped;
    const int64_t to = towardsEnd && leg.to == total ? total + 1 : leg.to;
    Scan scan(text, *prep.matcher, limits_, cancellation, !request.backward);
    const auto match = request.backward
                           ? scan.backward(leg.from, to)
                           : scan.forward(leg.from, to, leg.wrapped ? std::nullopt : std::optional(from));
    if (cancellation.isCancelled()) {
      result.cancelled = true;
      return result;
    }
    if (match) {
      result.match = match;
      result.wrapped = leg.wrapped;
      result.bytesScanned += request.backward ? leg.to - match->start : match->start - leg.from;
      return result;
    }
    result.bytesScanned += leg.to - leg.from;
  }
  return result;
}

SearchHandle FindNext::start(FindNextRequest request, storage::PieceTableSnapshot text, Completion completion,
                             dispatch::MainQueue* mainQueue) const {
  SearchHandle handle{std::make_shared<SearchCancellation>()};
  pool_->async([finder = *this, request = std::move(request), text = std::move(text),
                completion = std::move(completion), mainQueue, cancellation = handle.cancellation] {
    FindNextResult result = finder.find(request, text, *cancellation);
    if (mainQueue != nullptr) {
      mainQueue->post([completion, result = std::move(result)] { completion(result); });
    } else {
      completion(std::move(result));
    }
  });
  return handle;
}

}  // namespace quorin::search
