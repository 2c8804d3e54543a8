#include "search/LiteralMatcher.h"

#include <algorithm>

namespace quorin::search {
namespace {

constexpr size_t kNone = ByteFinder::npos;
constexpr int kStepsPerCheck = 4096;

class LiteralScanner final : public WindowScanner {
 public:
  explicit LiteralScanner(const LiteralMatcher& matcher)
      : matcher_(matcher), next_(matcher.finders().size(), kNone) {}

  void scan(ScanWindow& w, MatchCollector& collector) override {
    if (matcher_.caseInsensitive()) asciiLowerInPlace(w.data, w.size);
    const auto& finders = matcher_.finders();
    if (finders.size() == 1) {
      scanOne(w, finders.front(), collector);
    } else {
      scanMany(w, finders, collector);
    }
  }

 private:
  bool isWholeWord(const ScanWindow& w, size_t at, size_t length) const {
    if (at > 0 && isWordByte(w.data[at - 1])) return false;
    return at + length >= w.size || !isWordByte(w.data[at + length]);
  }

  void scanOne(const ScanWindow& w, const ByteFinder& finder, MatchCollector& collector) {
    size_t at = w.begin;
    int steps = 0;
    while (at < w.end) {
      const size_t found = finder.find(w.data + at, w.size - at);
      if (found == kNone || at + found >= w.end) return;
      at += found;
      if (++steps == kStepsPerCheck) {
        steps = 0;
        if (!collector.keepGoing()) return;
      }
      if (matcher_.wholeWord() && !isWholeWord(w, at, finder.size())) {
        ++at;
        continue;
      }
      if (!collector.add(at, finder.size())) return;
      at += finder.size();
    }
  }

  // Each literal remembers where it occurs next and is searched again only
  // once the scan has passed that point.
  void scanMany(const ScanWindow& w, const std::vector<ByteFinder>& finders, MatchCollector& collector) {
    std::fill(next_.begin(), next_.end(), kNone - 1);  // "not searched yet"
    std::vector<bool> exhausted(finders.size(), false);
    size_t at = w.begin;
    int steps = 0;
    while (at < w.end) {
      size_t best = kNone;
      size_t winner = 0;
      for (size_t i = 0; i < finders.size(); ++i) {
        if (exhausted[i]) continue;
        if (next_[i] == kNone - 1 || next_[i] < at) {
          const size_t found = finders[i].find(w.data + at, w.size - at);
          if (found == kNone) {
            exhausted[i] = true;
            continue;
          }
          next_[i] = at + found;
        }
        if (next_[i] < best) best = next_[i], winner = i;
      }
      if (best == kNone || best >= w.end) return;
      if (++steps == kStepsPerCheck) {
        steps = 0;
        if (!collector.keepGoing()) return;
      }
      const size_t length = finders[winner].size();
      if (matcher_.wholeWord() && !isWholeWord(w, best, length)) {
        at = best + 1;
        continue;
      }
      if (!collector.add(best, length)) return;
      at = best + length;
    }
  }

  const LiteralMatcher& matcher_;
  std::vector<size_t> next_;
};

}  // namespace

LiteralMatcher::LiteralMatcher(std::vector<std::string> literals, bool caseInsensitive, bool wholeWord)
    : caseInsensitive_(caseInsensitive), wholeWord_(wholeWord) {
  for (auto& literal : literals) {
    maxLength_ = std::max(maxLength_, literal.size());
    finders_.emplace_back(caseInsensitive ? asciiLower(literal) : std::move(literal));
  }
}

std::unique_ptr<WindowScanner> LiteralMatcher::makeScanner() const {
  return std::make_unique<LiteralScanner>(*this);
}

}  // namespace quorin::search
