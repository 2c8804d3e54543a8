#include "search/FoldedTextMatcher.h"

#include <unicode/uchar.h>

#include <vector>

#include "search/Utf8Repair.h"

namespace quorin::search {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

char32_t fold(char32_t c) {
  if (c < 0x80) return (c >= 'A' && c <= 'Z') ? c + 0x20 : c;
  return static_cast<char32_t>(u_foldCase(static_cast<UChar32>(c), U_FOLD_CASE_DEFAULT));
}

size_t encodeUtf8(char32_t c, char* out) {
  if (c < 0x80) {
    out[0] = static_cast<char>(c);
    return 1;
  }
  if (c < 0x800) {
    out[0] = static_cast<char>(0xC0 | (c >> 6));
    out[1] = static_cast<char>(0x80 | (c & 0x3F));
    return 2;
  }
  if (c < 0x10000) {
    out[0] = static_cast<char>(0xE0 | (c >> 12));
    out[1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out[2] = static_cast<char>(0x80 | (c & 0x3F));
    return 3;
  }
  out[0] = static_cast<char>(0xF0 | (c >> 18));
  out[1] = static_cast<char>(0x80 | ((c >> 12) & 0x3F));
  out[2] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
  out[3] = static_cast<char>(0x80 | (c & 0x3F));
  return 4;
}

bool isLetterOrNumber(char32_t c) {
  const auto scalar = static_cast<UChar32>(c);
  return u_isalpha(scalar) || (U_GET_GC_MASK(scalar) & U_GC_N_MASK) != 0;
}

// The character ending just before `at`, reading no further back than 0.
char32_t scalarBefore(const uint8_t* data, size_t at) {
  for (size_t back = 1; back <= 4 && back <= at; ++back) {
    char32_t c;
    if (decodeUtf8(data + at - back, back, c) == back) return c;
  }
  return kReplacement;
}

class FoldedScanner final : public WindowScanner {
 public:
  explicit FoldedScanner(const FoldedTextMatcher& matcher) : matcher_(matcher) {}

  void scan(ScanWindow& w, MatchCollector& collector) override {
    foldWindow(w);
    const ByteFinder& finder = matcher_.finder();
    const auto* text = reinterpret_cast<const uint8_t*>(folded_.data());
    size_t at = 0;
    int steps = 0;
    while (at < folded_.size()) {
      const size_t found = finder.find(text + at, folded_.size() - at);
      if (found == ByteFinder::npos) return;
      const size_t start = at + found;
      const size_t originalStart = origin_[start];
      const size_t originalEnd = origin_[start + finder.size()];
      if (originalStart >= w.end) return;
      if (++steps == 4096) {
        steps = 0;
        if (!collector.keepGoing()) return;
      }
      if (matcher_.wholeWord() && !isWholeWord(w, originalStart, originalEnd)) {
        at = start + 1;
        continue;
      }
      if (!collector.add(originalStart, originalEnd - originalStart)) return;
      at = start + finder.size();
    }
  }

 private:
  // Folds [begin, size) into folded_, remembering for every folded byte the
  // window position of the character it came from.
  void foldWindow(const ScanWindow& w) {
    folded_.clear();
    origin_.clear();
    size_t i = w.begin;
    char bytes[4];
    while (i < w.size) {
      char32_t c;
      size_t n = decodeUtf8(w.data + i, w.size - i, c);
      if (n == 0) c = kReplacement, n = 1;
      const size_t written = encodeUtf8(fold(c), bytes);
      folded_.append(bytes, written);
      origin_.insert(origin_.end(), written, static_cast<uint32_t>(i));
      i += n;
    }
    origin_.push_back(static_cast<uint32_t>(w.size));
  }

  bool isWholeWord(const ScanWindow& w, size_t start, size_t end) const {
    if (start > 0 && isLetterOrNumber(scalarBefore(w.data, start))) return false;
    char32_t after;
    if (end < w.size && decodeUtf8(w.data + end, w.size - end, after) != 0 && isLetterOrNumber(after))
      return false;
    return true;
  }

  const FoldedTextMatcher& matcher_;
  std::string folded_;
  std::vector<uint32_t> origin_;
};

}  // namespace

std::string foldCase(std::string_view text) {
  std::string out;
  const auto* data = reinterpret_cast<const uint8_t*>(text.data());
  char bytes[4];
  for (size_t i = 0; i < text.size();) {
    char32_t c;
    size_t n = decodeUtf8(data + i, text.size() - i, c);
    if (n == 0) c = kReplacement, n = 1;
    out.append(bytes, encodeUtf8(fold(c), bytes));
    i += n;
  }
  return out;
}

FoldedTextMatcher::FoldedTextMatcher(std::string_view query, bool wholeWord)
    : finder_(foldCase(query)), wholeWord_(wholeWord), overlap_(4 * finder_.size() + 4) {}

std::unique_ptr<WindowScanner> FoldedTextMatcher::makeScanner() const {
  return std::make_unique<FoldedScanner>(*this);
}

}  // namespace quorin::search
