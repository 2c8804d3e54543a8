// Running a compiled batch over one window: the merge of the simultaneous
// streams, and the passes of a sequential batch.
#include <cstring>

#include "replace/BatchReplace.h"
#include "replace/SiteCollector.h"

namespace quorin::replace {
namespace {

struct Hit {
  size_t start = 0;
  size_t length = 0;
};

class HitCollector final : public search::MatchCollector {
 public:
  explicit HitCollector(std::vector<Hit>& hits) : hits_(hits) {}
  bool add(size_t start, size_t length) override {
    hits_.push_back({start, length});
    return true;
  }
  bool keepGoing() override { return true; }

 private:
  std::vector<Hit>& hits_;
};

// Where a window's lines are, for rescans and group reads.
struct LineBounds {
  size_t start = 0;       // first byte of the line (0 when it began before the data)
  size_t contentEnd = 0;  // its end without the line break
  size_t end = 0;         // after its line break, or the data's end
  bool cutBefore = false;
  bool cutAfter = false;
};

LineBounds lineAround(const uint8_t* data, size_t size, size_t at, const BatchWindow& w) {
  LineBounds line;
  const auto* before = static_cast<const uint8_t*>(memrchr(data, w.terminator, at));
  line.start = before != nullptr ? static_cast<size_t>(before - data) + 1 : 0;
  line.cutBefore = before == nullptr && !(w.startsDocument && w.begin == 0);
  const auto* after = static_cast<const uint8_t*>(std::memchr(data + at, w.terminator, size - at));
  line.end = after != nullptr ? static_cast<size_t>(after - data) + 1 : size;
  line.contentEnd = after != nullptr ? line.end - 1 : size;
  if (after != nullptr && w.terminator == '\n' && line.contentEnd > line.start &&
      data[line.contentEnd - 1] == '\r')
    --line.contentEnd;
  line.cutAfter = after == nullptr && !w.endsDocument;
  return line;
}

search::ScanWindow scanWindowOf(uint8_t* data, size_t size, const BatchWindow& w) {
  return {.data = data,
          .size = size,
          .begin = w.begin,
          .end = size,
          .terminator = w.terminator,
          .dataStartsDocument = w.startsDocument && w.begin == 0,
          .dataEndsDocument = w.endsDocument};
}

}  // namespace

struct BatchRunner::State {
  struct StreamState {
    std::unique_ptr<search::WindowScanner> scanner;
    std::string copy;  // the window as a folding scanner may rewrite it
    std::vector<Hit> hits;
    size_t next = 0;
    std::vector<Hit> local;  // a rescan of the rest of one line
    size_t localNext = 0;
    size_t localEnd = 0;  // hits of `hits` before this are stale

    const Hit* peek() {
      if (localNext < local.size()) return &local[localNext];
      while (next < hits.size() && hits[next].start < localEnd) ++next;
      return next < hits.size() ? &hits[next] : nullptr;
    }
    void pop() {
      if (localNext < local.size()) {
        ++localNext;
      } else {
        ++next;
      }
    }
  };

  const Batch& batch;
  std::vector<StreamState> streams;
  std::vector<std::unique_ptr<search::WindowScanner>> pairScanners;  // sequential, made on first use
  std::vector<std::unique_ptr<GroupReader>> readers;                 // per pair, made on first use
  std::vector<std::string_view> groups;
  std::string replacement;

  explicit State(const Batch& b) : batch(b), readers(b.pairCount()) {}

  // The replacement of pair `pair` for the match `hit` of the (unfolded) data.
  const std::string& replacementFor(int pair, const uint8_t* data, size_t size, Hit hit,
                                    const BatchWindow& w) {
    const Batch::Pair& p = batch.pairs()[static_cast<size_t>(pair)];
    replacement.clear();
    if (p.replacement.isConstant()) {
      replacement = p.replacement.constantText();
      return replacement;
    }
    const std::string_view match(reinterpret_cast<const char*>(data) + hit.start, hit.length);
    groups.assign(1, match);
    if (p.replacement.needsGroups() && p.captures) {
      auto& reader = readers[static_cast<size_t>(pair)];
      if (!reader) reader = std::make_unique<GroupReader>(*p.captures);
      const LineBounds line = lineAround(data, size, hit.start, w);
      const std::string_view subject(reinterpret_cast<const char*>(data) + line.start,
                                     line.contentEnd - line.start);
      if (!reader->read(subject, hit.start - line.start, hit.length, line.cutBefore, line.cutAfter, groups)) {
        groups.assign(1, match);
      }
    }
    p.replacement.expand(groups, replacement);
    return replacement;
  }

  void scanAll(StreamState& s, uint8_t* data, size_t size, const BatchWindow& w) {
    s.hits.clear();
    s.next = 0;
    s.local.clear();
    s.localNext = 0;
    s.localEnd = 0;
    search::ScanWindow window = scanWindowOf(data, size, w);
    HitCollector collector(s.hits);
    s.scanner->scan(window, collector);
  }

  // The stream's matches from `cursor` to the end of its line, which replace
  // what it had found there (a match chosen from another stream overlapped).
  void rescan(StreamState& s, uint8_t* data, size_t size, size_t cursor, const BatchWindow& w) {
    const LineBounds line = lineAround(data, size, cursor, w);
    const size_t from = line.start > 0 ? line.start - 1 : 0;
    search::ScanWindow window{.data = data + from,
                              .size = line.end - from,
                              .begin = cursor - from,
                              .end = line.end - from,
                              .terminator = w.terminator,
                              .dataStartsDocument = w.startsDocument && w.begin == 0 && line.start == 0,
                              .dataEndsDocument = w.endsDocument && line.end == size};
    std::vector<Hit> found;
    HitCollector collector(found);
    s.scanner->scan(window, collector);
    s.local.clear();
    s.localNext = 0;
    for (Hit h : found) {
      h.start += from;
      if (h.start >= cursor) s.local.push_back(h);
    }
    s.localEnd = std::max(s.localEnd, line.end);
  }
};

BatchRunner::BatchRunner(const Batch& batch) : state_(std::make_unique<State>(batch)) {
  for (const Batch::Stream& stream : batch.streams()) {
    state_->streams.push_back({});
    state_->streams.back().scanner = stream.matcher->makeScanner();
  }
  state_->pairScanners.resize(batch.mode() == BatchMode::sequential ? batch.pairCount() : 0);
}

BatchRunner::~BatchRunner() = default;

void BatchRunner::run(const BatchWindow& w, SiteCollector& sites, std::vector<int64_t>& perPair) {
  State& st = *state_;
  const auto& specs = st.batch.streams();
  auto* data = reinterpret_cast<uint8_t*>(const_cast<char*>(w.data.data()));
  const size_t size = w.data.size();
  for (size_t i = 0; i < specs.size(); ++i) {
    State::StreamState& s = st.streams[i];
    uint8_t* own = data;
    if (specs[i].caseless) {
      s.copy.assign(w.data);
      own = reinterpret_cast<uint8_t*>(s.copy.data());
    }
    st.scanAll(s, own, size, w);
  }
  auto bufferOf = [&](size_t i) {
    return specs[i].caseless ? reinterpret_cast<uint8_t*>(st.streams[i].copy.data()) : data;
  };

  size_t cursor = w.begin;
  std::optional<size_t> emptyAt;  // an empty match was taken here: no other one
  while (true) {
    int bestStream = -1, bestPair = 0;
    Hit best;
    for (size_t i = 0; i < specs.size(); ++i) {
      State::StreamState& s = st.streams[i];
      const Hit* h = nullptr;
      int pair = specs[i].pair;
      while ((h = s.peek()) != nullptr) {
        if (h->start < cursor) {
          st.rescan(s, bufferOf(i), size, cursor, w);
          continue;
        }
        if (h->length == 0 && emptyAt == h->start) {
          s.pop();
          continue;
        }
        if (specs[i].literals) {
          const std::string key(reinterpret_cast<const char*>(bufferOf(i)) + h->start, h->length);
          const auto found = specs[i].pairOf.find(key);
          if (found == specs[i].pairOf.end()) {  // cannot happen: every literal is in the table
            s.pop();
            continue;
          }
          pair = found->second;
        }
        break;
      }
      if (h == nullptr) continue;
      const bool better = bestStream < 0 || h->start < best.start ||
                          (h->start == best.start &&
                           (h->length > best.length || (h->length == best.length && pair < bestPair)));
      if (better) bestStream = static_cast<int>(i), bestPair = pair, best = *h;
    }
    if (bestStream < 0) break;
    st.streams[static_cast<size_t>(bestStream)].pop();
    const std::string& bytes = st.replacementFor(bestPair, data, size, best, w);
    const int64_t at = w.docStart + static_cast<int64_t>(best.start - w.begin);
    sites.add(at, at + static_cast<int64_t>(best.length), bytes);
    ++perPair[static_cast<size_t>(bestPair)];
    cursor = best.start + best.length;
    emptyAt = best.length == 0 ? std::optional(best.start) : std::nullopt;
  }
}

std::string BatchRunner::transform(const BatchWindow& window, std::vector<int64_t>& perPair) {
  State& st = *state_;
  BatchWindow w = window;
  std::string scratch;
  std::vector<Hit> hits;
  for (size_t p = 0; p < st.batch.pairCount(); ++p) {
    auto& scanner = st.pairScanners[p];
    if (!scanner) scanner = st.batch.pairs()[p].matcher->makeScanner();
    scratch.assign(w.data);  // a folding scanner rewrites what it scans
    hits.clear();
    search::ScanWindow scan = scanWindowOf(reinterpret_cast<uint8_t*>(scratch.data()), scratch.size(), w);
    HitCollector collector(hits);
    scanner->scan(scan, collector);
    if (hits.empty()) continue;
    const auto* data = reinterpret_cast<const uint8_t*>(w.data.data());
    std::string next(w.data, 0, w.begin);
    size_t at = w.begin;
    for (const Hit& h : hits) {
      next.append(w.data, at, h.start - at);
      next += st.replacementFor(static_cast<int>(p), data, w.data.size(), h, w);
      at = h.start + h.length;
    }
    next.append(w.data, at, std::string::npos);
    perPair[p] += static_cast<int64_t>(hits.size());
    w.data = std::move(next);
  }
  return w.data.substr(w.begin);
}

}  // namespace quorin::replace
