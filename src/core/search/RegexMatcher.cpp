#include "search/RegexMatcher.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include "search/ByteSearch.h"
#include "search/Pcre2Compile.h"
#include "search/RegexLiteral.h"
#include "search/Utf8Repair.h"

namespace quorin::search {
namespace {

constexpr int kLinesPerCheck = 256;
constexpr size_t kNone = static_cast<size_t>(-1);

bool isContinuation(uint8_t b) { return (b & 0xC0) == 0x80; }

// A byte every match holds (PCRE2's own analysis of the pattern), with its
// other ASCII case beside it: a line without any of them cannot match.
struct RequiredBytes {
  uint8_t bytes[2] = {0, 0};
  int count = 0;
};

// Which byte PCRE2 says every match contains, if one is safe to look for.
// PCRE2 does not say whether that byte is matched without regard to case,
// so both ASCII cases are looked for; a non-ASCII byte, and "k" and "s"
// (which fold to the Kelvin and long-s signs), are trusted only when no
// part of the pattern can ignore case.
std::optional<RequiredBytes> requiredBytes(const pcre2_code* code, std::string_view pattern,
                                           bool caseSensitive) {
  uint32_t type = 0, unit = 0;
  pcre2_pattern_info(code, PCRE2_INFO_LASTCODETYPE, &type);
  if (type == 1) {
    pcre2_pattern_info(code, PCRE2_INFO_LASTCODEUNIT, &unit);
  } else {
    pcre2_pattern_info(code, PCRE2_INFO_FIRSTCODETYPE, &type);
    if (type != 1) return std::nullopt;
    pcre2_pattern_info(code, PCRE2_INFO_FIRSTCODEUNIT, &unit);
  }
  const bool mayIgnoreCase = !caseSensitive || pattern.find("(?") != std::string_view::npos;
  const auto byte = static_cast<uint8_t>(unit);
  const auto lower = static_cast<uint8_t>(byte >= 'A' && byte <= 'Z' ? byte + 32 : byte);
  if (mayIgnoreCase && (byte >= 0x80 || lower == 'k' || lower == 's')) return std::nullopt;
  RequiredBytes required;
  required.bytes[required.count++] = lower;
  if (lower >= 'a' && lower <= 'z') required.bytes[required.count++] = static_cast<uint8_t>(lower - 32);
  return required;
}

// A string every match holds (see innerLiteral), found with ByteFinder, or
// when caseless by both cases of its rarest byte and a caseless compare.
struct LiteralFilter {
  InnerLiteral literal;
  ByteFinder finder;  // of the (lower-cased) text; its rarest byte when caseless
  size_t rareOffset;  // within the text
};

// The inner literal's filter, when it has two bytes or more (one byte is
// no better than PCRE2's required byte).
std::optional<LiteralFilter> literalFilter(std::string_view pattern, bool caseSensitive) {
  auto literal = innerLiteral(pattern, caseSensitive);
  if (!literal || literal->text.size() < 2) return std::nullopt;
  ByteFinder finder(literal->text);
  const size_t rare = finder.rareOffset1();
  return LiteralFilter{std::move(*literal), std::move(finder), rare};
}

// Both ASCII cases of a caseless literal's rarest byte.
RequiredBytes casesOf(uint8_t byte) {
  RequiredBytes required;
  required.bytes[required.count++] = byte;
  if (byte >= 'a' && byte <= 'z') required.bytes[required.count++] = static_cast<uint8_t>(byte - 32);
  return required;
}

class RegexMatcher final : public Matcher {
 public:
  RegexMatcher(pcre2_code* code, std::optional<RequiredBytes> required, std::optional<LiteralFilter> literal,
               size_t minLength, size_t lookBehind)
      : code_(code),
        required_(required),
        literal_(std::move(literal)),
        minLength_(minLength),
        lookBehind_(lookBehind) {}
  ~RegexMatcher() override { pcre2_code_free(code_); }
  RegexMatcher(const RegexMatcher&) = delete;
  RegexMatcher& operator=(const RegexMatcher&) = delete;

  std::unique_ptr<WindowScanner> makeScanner() const override;
  // Look-behind and \b see characters before a piece of a long line: up to
  // four bytes each, plus one byte to tell whether a line starts there.
  size_t contextBefore() const override { return 4 * (lookBehind_ + 1) + 1; }
  size_t overlapAfter() const override { return kUnboundedMatchLength; }

  const pcre2_code* code() const { return code_; }
  const std::optional<RequiredBytes>& required() const { return required_; }
  const std::optional<LiteralFilter>& literal() const { return literal_; }
  size_t minLength() const { return minLength_; }

 private:
  pcre2_code* code_;
  std::optional<RequiredBytes> required_;  // absent (and no literal): every line is a candidate
  std::optional<LiteralFilter> literal_;   // when caseless, required_ holds its rarest byte's cases
  size_t minLength_;                       // characters, so also a floor in bytes
  size_t lookBehind_;                      // characters
};

struct Line {
  size_t start;       // in the text handed to PCRE2
  size_t contentEnd;  // before the line break (and a CR before an LF)
  size_t end;         // the line break's position, or the text's length
};

class RegexScanner final : public WindowScanner {
 public:
  explicit RegexScanner(const RegexMatcher& matcher) : matcher_(matcher) {
    matchData_ = pcre2_match_data_create_from_pattern(matcher.code(), nullptr);
    jitStack_ = pcre2_jit_stack_create(32 * 1024, 4 * 1024 * 1024, nullptr);
    context_ = pcre2_match_context_create(nullptr);
    if (jitStack_ != nullptr && context_ != nullptr) pcre2_jit_stack_assign(context_, nullptr, jitStack_);
  }
  ~RegexScanner() override {
    pcre2_match_context_free(context_);
    pcre2_jit_stack_free(jitStack_);
    pcre2_match_data_free(matchData_);
  }
  RegexScanner(const RegexScanner&) = delete;
  RegexScanner& operator=(const RegexScanner&) = delete;

  // The subjects are the lines holding [begin, end), whole when the window
  // has them: the first one from its start (in the context) or, cut, from
  // the window's first character boundary; the last one to its end (in the
  // bytes after `end`) or to the data's end, cut.
  void scan(ScanWindow& w, MatchCollector& collector) override {
    if (w.end <= w.begin) return;
    const auto* before = static_cast<const uint8_t*>(memrchr(w.data, w.terminator, w.begin));
    size_t from = before != nullptr ? static_cast<size_t>(before - w.data) + 1 : 0;
    cutBefore_ = before == nullptr && !w.dataStartsDocument;
    if (cutBefore_) {
      while (from < w.begin && isContinuation(w.data[from])) ++from;
    }
    size_t to = w.end;
    cutAfter_ = false;
    if (w.data[w.end - 1] != w.terminator) {  // the last line goes on past `end`
      const auto* after =
          static_cast<const uint8_t*>(std::memchr(w.data + w.end, w.terminator, w.size - w.end));
      if (after != nullptr) {
        to = static_cast<size_t>(after - w.data) + 1;
      } else {
        to = w.size;
        cutAfter_ = !w.dataEndsDocument;
        if (cutAfter_) to = withoutPartialCharacter(w.data, w.end, to);
      }
    }

    // The engine needs valid UTF-8: repair when the text is not.
    text_ = w.data + from;
    length_ = to - from;
    repaired_ = !isValidUtf8(text_, length_);
    if (repaired_) {
      repairUtf8(text_, length_, work_, map_);
      text_ = reinterpret_cast<const uint8_t*>(work_.data());
      length_ = work_.size();
    }
    terminator_ = w.terminator;
    window_ = &w;
    from_ = from;
    begin_ = toText(w.begin - from);
    nextRequired_[0] = nextRequired_[1] = kNone - 1;  // not searched yet

    const bool prefilter = matcher_.required().has_value() || matcher_.literal().has_value();
    size_t pos = 0;
    int sinceCheck = 0;
    while (pos < length_) {
      if (++sinceCheck == kLinesPerCheck) {
        sinceCheck = 0;
        if (!collector.keepGoing()) return;
      }
      size_t lineStart = pos;
      if (prefilter) {
        const size_t hit = findCandidate(pos);
        if (hit == kNone) return;
        const auto* previous = static_cast<const uint8_t*>(memrchr(text_ + pos, terminator_, hit - pos));
        if (previous != nullptr) lineStart = static_cast<size_t>(previous - text_) + 1;
      }
      const Line line = lineFrom(lineStart);
      if (!matchLine(line, collector)) return;
      pos = line.end + 1;
    }
  }

 private:
  // `to`, or less so that the data does not end inside a character (never
  // below `floor`).
  static size_t withoutPartialCharacter(const uint8_t* data, size_t floor, size_t to) {
    size_t lead = to;
    size_t continuations = 0;
    while (lead > floor && continuations < 3 && isContinuation(data[lead - 1])) --lead, ++continuations;
    if (lead == floor || data[lead - 1] < 0xC0) return to;
    const uint8_t b = data[lead - 1];
    const size_t need = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : 2;
    return continuations + 1 < need ? lead - 1 : to;
  }

  // A position in the (original) window data as one in text_.
  size_t toText(size_t original) const {
    if (!repaired_) return original;
    const auto& invalid = map_.invalidOffsets;
    const auto before = std::lower_bound(invalid.begin(), invalid.end(), static_cast<int64_t>(original));
    return original + 2 * static_cast<size_t>(before - invalid.begin());
  }

  // The line starting at `start` of text_.
  Line lineFrom(size_t start) const {
    const auto* after = static_cast<const uint8_t*>(std::memchr(text_ + start, terminator_, length_ - start));
    const size_t end = after ? static_cast<size_t>(after - text_) : length_;
    size_t contentEnd = end;
    if (terminator_ == '\n' && after && contentEnd > start && text_[contentEnd - 1] == '\r') --contentEnd;
    return {start, contentEnd, end};
  }

  // A position at or after `from` inside the next line that may match (the
  // literal's start, or a required byte), or kNone.
  size_t findCandidate(size_t from) {
    const auto& filter = matcher_.literal();
    if (!filter) return findRequired(from);
    const std::string& text = filter->literal.text;
    if (!filter->literal.caseless) {
      const size_t at = filter->finder.find(text_ + from, length_ - from);
      return at == ByteFinder::npos ? kNone : from + at;
    }
    while (from + text.size() <= length_) {
      const size_t hit = findRequired(from + filter->rareOffset);
      if (hit == kNone) return kNone;
      const size_t start = hit - filter->rareOffset;
      if (start + text.size() > length_) return kNone;
      if (equalsIgnoringAsciiCase(text_ + start, text)) return start;
      from = start + 1;
    }
    return kNone;
  }

  static bool equalsIgnoringAsciiCase(const uint8_t* data, std::string_view lowered) {
    for (size_t i = 0; i < lowered.size(); ++i) {
      const uint8_t b = data[i];
      if ((b >= 'A' && b <= 'Z' ? b + 32 : b) != static_cast<uint8_t>(lowered[i])) return false;
    }
    return true;
  }

  // The first required byte at or after `from`, or kNone.
  size_t findRequired(size_t from) {
    const RequiredBytes& required = *matcher_.required();
    size_t best = kNone;
    for (int i = 0; i < required.count; ++i) {
      size_t& next = nextRequired_[i];
      if (next == kNone - 1 || (next != kNone && next < from)) {
        const auto* hit =
            static_cast<const uint8_t*>(std::memchr(text_ + from, required.bytes[i], length_ - from));
        next = hit ? static_cast<size_t>(hit - text_) : kNone;
      }
      best = std::min(best, next);
    }
    return best;
  }

  // Every match in one line that starts in the window's range; false when
  // the collector says stop or a match lies past the range (so do the rest).
  bool matchLine(const Line& line, MatchCollector& collector) {
    const auto* subject = reinterpret_cast<PCRE2_SPTR>(text_ + line.start);
    const size_t length = line.contentEnd - line.start;
    if (length < matcher_.minLength()) return true;
    size_t offset = begin_ > line.start ? begin_ - line.start : 0;
    while (offset < length && isContinuation(subject[offset])) ++offset;  // a piece may begin mid-character
    uint32_t base = PCRE2_NO_UTF_CHECK;
    if (line.start == 0 && cutBefore_) base |= PCRE2_NOTBOL;
    if (line.end == length_ && cutAfter_) base |= PCRE2_NOTEOL;
    uint32_t retry = 0;
    while (offset <= length) {
      const int rc =
          pcre2_match(matcher_.code(), subject, length, offset, base | retry, matchData_, context_);
      if (rc < 0) {
        if (rc != PCRE2_ERROR_NOMATCH || retry == 0) return true;  // no (more) match, or the engine gave up
        // After an empty match: no non-empty one here either, so step one character on.
        retry = 0;
        ++offset;
        while (offset < length && isContinuation(subject[offset])) ++offset;
        continue;
      }
      const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(matchData_);
      const size_t start = ovector[0], end = ovector[1];
      if (start > end) return true;  // \K in a look-ahead can do this; nothing sensible to report
      size_t matchFrom = line.start + start, matchTo = line.start + end;
      if (repaired_) {
        const auto mapped = map_.mapMatch(static_cast<int64_t>(matchFrom), static_cast<int64_t>(matchTo));
        matchFrom = static_cast<size_t>(mapped.first), matchTo = static_cast<size_t>(mapped.second);
      }
      matchFrom += from_, matchTo += from_;
      if (!belongsHere(matchFrom)) return false;
      if (!collector.add(matchFrom, matchTo - matchFrom)) return false;
      offset = end;
      retry = start == end ? PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED : 0;
    }
    return true;
  }

  // A match starting at window position `at` is this window's when it
  // starts before `end` (else the next window, which begins there or after
  // a match that crossed the cut, reports it), or when it is the empty match
  // at the document's end, where no window begins.
  bool belongsHere(size_t at) const {
    const ScanWindow& w = *window_;
    return at < w.end || (at == w.size && w.dataEndsDocument);
  }

  const RegexMatcher& matcher_;
  pcre2_match_data* matchData_ = nullptr;
  pcre2_jit_stack* jitStack_ = nullptr;
  pcre2_match_context* context_ = nullptr;
  const ScanWindow* window_ = nullptr;
  const uint8_t* text_ = nullptr;  // what PCRE2 reads: the window's lines, or their repair
  size_t length_ = 0;
  size_t from_ = 0;   // window position of text_[0] (of the original bytes when repaired)
  size_t begin_ = 0;  // the window's begin in text_
  bool repaired_ = false;
  bool cutBefore_ = false;  // the first subject begins inside a line
  bool cutAfter_ = false;   // the last subject ends inside a line
  uint8_t terminator_ = '\n';
  size_t nextRequired_[2] = {0, 0};  // per required byte: its next position, kNone, or kNone - 1 (not yet)
  std::string work_;                 // the repaired text
  RepairedOffsetMap map_;
};

std::unique_ptr<WindowScanner> RegexMatcher::makeScanner() const {
  return std::make_unique<RegexScanner>(*this);
}

}  // namespace

std::expected<std::shared_ptr<const Matcher>, std::string> compileRegexMatcher(std::string_view pattern,
                                                                               RegexOptions options) {
  auto compiled = compilePcre2(pattern, options.caseSensitive);
  if (!compiled) return std::unexpected(compiled.error());
  pcre2_code* code = *compiled;

  uint32_t minLength = 0, lookBehind = 0;
  pcre2_pattern_info(code, PCRE2_INFO_MINLENGTH, &minLength);
  pcre2_pattern_info(code, PCRE2_INFO_MAXLOOKBEHIND, &lookBehind);
  std::optional<RequiredBytes> required;
  std::optional<LiteralFilter> literal;
  if (options.prefilter) {
    literal = literalFilter(pattern, options.caseSensitive);
    if (literal && literal->literal.caseless) {
      required = casesOf(static_cast<uint8_t>(literal->literal.text[literal->rareOffset]));
    } else if (!literal) {
      required = requiredBytes(code, pattern, options.caseSensitive);
    }
  }
  return std::make_shared<const RegexMatcher>(code, required, std::move(literal), minLength, lookBehind);
}

bool usesPrefilter(const Matcher& matcher) {
  const auto* regex = dynamic_cast<const RegexMatcher*>(&matcher);
  return regex != nullptr && (regex->required().has_value() || regex->literal().has_value());
}

}  // namespace quorin::search
