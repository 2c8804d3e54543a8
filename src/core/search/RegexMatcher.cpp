#include "search/RegexMatcher.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <hs.h>
#include <pcre2.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "base/Log.h"
#include "search/Utf8Repair.h"

namespace quorin::search {
namespace {

constexpr int kLinesPerCheck = 256;

struct Line {
  size_t start;       // in the text handed to the engines
  size_t contentEnd;  // before the line break (and a CR before an LF)
  size_t end;         // the line break's position, or the text's length
};

// Escapes that anchor to the subject: in a window scan they would mean the
// window's edges, so such patterns skip the prefilter.
bool anchorsToSubject(std::string_view pattern) {
  for (size_t i = 0; i + 1 < pattern.size(); ++i) {
    if (pattern[i] != '\\') continue;
    const char next = pattern[i + 1];
    if (next == 'A' || next == 'z' || next == 'Z' || next == 'G') return true;
    ++i;  // skip the escaped character (so "\\A" is a backslash and an A)
  }
  return false;
}

class RegexMatcher final : public Matcher {
 public:
  RegexMatcher(pcre2_code* code, hs_database_t* database, hs_scratch_t* scratch)
      : code_(code), database_(database), scratch_(scratch) {}
  ~RegexMatcher() override {
    if (scratch_ != nullptr) hs_free_scratch(scratch_);
    if (database_ != nullptr) hs_free_database(database_);
    pcre2_code_free(code_);
  }
  RegexMatcher(const RegexMatcher&) = delete;
  RegexMatcher& operator=(const RegexMatcher&) = delete;

  std::unique_ptr<WindowScanner> makeScanner() const override;
  size_t contextBefore() const override { return 0; }
  size_t overlapAfter() const override { return 0; }

  const pcre2_code* code() const { return code_; }
  const hs_database_t* database() const { return database_; }
  const hs_scratch_t* scratch() const { return scratch_; }

 private:
  pcre2_code* code_;
  hs_database_t* database_;  // null: no prefilter
  hs_scratch_t* scratch_;    // the prototype each scanner clones
};

class RegexScanner final : public WindowScanner {
 public:
  explicit RegexScanner(const RegexMatcher& matcher) : matcher_(matcher) {
    matchData_ = pcre2_match_data_create_from_pattern(matcher.code(), nullptr);
    jitStack_ = pcre2_jit_stack_create(32 * 1024, 4 * 1024 * 1024, nullptr);
    context_ = pcre2_match_context_create(nullptr);
    if (jitStack_ != nullptr && context_ != nullptr) pcre2_jit_stack_assign(context_, nullptr, jitStack_);
    if (matcher.database() != nullptr && hs_clone_scratch(matcher.scratch(), &scratch_) != HS_SUCCESS)
      scratch_ = nullptr;
  }
  ~RegexScanner() override {
    if (scratch_ != nullptr) hs_free_scratch(scratch_);
    pcre2_match_context_free(context_);
    pcre2_jit_stack_free(jitStack_);
    pcre2_match_data_free(matchData_);
  }
  RegexScanner(const RegexScanner&) = delete;
  RegexScanner& operator=(const RegexScanner&) = delete;

  void scan(ScanWindow& w, MatchCollector& collector) override {
    if (w.end <= w.begin) return;
    // The engines need valid UTF-8: repair when the window is not.
    const uint8_t* text = w.data + w.begin;
    size_t length = w.end - w.begin;
    const bool repaired = !isValidUtf8(text, length);
    if (repaired) {
      repairUtf8(text, length, work_, map_);
      text = reinterpret_cast<const uint8_t*>(work_.data());
      length = work_.size();
    }
    text_ = text;
    length_ = length;
    terminator_ = w.terminator;
    lines_.clear();
    if (scratch_ == nullptr || !prefilter(repaired)) listAllLines();

    int sinceCheck = 0;
    for (const Line& line : lines_) {
      if (++sinceCheck == kLinesPerCheck) {
        sinceCheck = 0;
        if (!collector.keepGoing()) return;
      }
      if (!matchLine(text_, line, collector, w.begin, repaired)) return;
    }
  }

 private:
  // The line holding byte `at` of the text.
  Line lineAt(size_t at) const {
    const auto* before = static_cast<const uint8_t*>(memrchr(text_, terminator_, at));
    const size_t start = before ? static_cast<size_t>(before - text_) + 1 : 0;
    const auto* after = static_cast<const uint8_t*>(std::memchr(text_ + at, terminator_, length_ - at));
    const size_t end = after ? static_cast<size_t>(after - text_) : length_;
    size_t contentEnd = end;
    if (terminator_ == '\n' && after && contentEnd > start && text_[contentEnd - 1] == '\r') --contentEnd;
    return {start, contentEnd, end};
  }

  void listAllLines() {
    size_t pos = 0;
    while (pos < length_) {
      const Line line = lineAt(pos);
      lines_.push_back(line);
      pos = line.end + 1;
    }
  }

  // Lets vectorscan name the candidate lines (into lines_); false when it
  // could not scan. It knows only LF as a line break, so when the text has
  // CRs it scans a copy with every line-ending CR turned into an LF; PCRE2
  // never sees those bytes (no subject includes a line's break).
  bool prefilter(bool repaired) {
    const uint8_t* scanned = text_;
    if (std::memchr(text_, '\r', length_) != nullptr) {
      if (!repaired) work_.assign(reinterpret_cast<const char*>(text_), length_);
      for (size_t i = 0; i < work_.size(); ++i) {
        if (work_[i] != '\r') continue;
        if (terminator_ == '\r' || (i + 1 < work_.size() && work_[i + 1] == '\n')) work_[i] = '\n';
      }
      scanned = reinterpret_cast<const uint8_t*>(work_.data());
      // The repaired text is the one PCRE2 reads: keep an unmodified copy.
      if (repaired) {
        original_.assign(reinterpret_cast<const char*>(text_), length_);
        text_ = reinterpret_cast<const uint8_t*>(original_.data());
      }
    }
    unordered_ = false;
    if (hs_scan(matcher_.database(), reinterpret_cast<const char*>(scanned), static_cast<unsigned>(length_),
                0, scratch_, &RegexScanner::onPrefilterMatch, this) != HS_SUCCESS) {
      lines_.clear();
      return false;
    }
    if (unordered_) {
      std::ranges::sort(lines_, {}, &Line::start);
      const auto [first, last] = std::ranges::unique(lines_, {}, &Line::start);
      lines_.erase(first, last);
    }
    return true;
  }

  static int onPrefilterMatch(unsigned /*id*/, unsigned long long /*from*/, unsigned long long to,
                              unsigned /*flags*/, void* context) {
    auto& self = *static_cast<RegexScanner*>(context);
    if (to == 0) return 0;
    const auto last = static_cast<size_t>(to - 1);  // a byte of the match
    if (!self.lines_.empty()) {
      const Line& previous = self.lines_.back();
      if (last >= previous.start && last <= previous.end) return 0;  // already a candidate
      if (last < previous.start) self.unordered_ = true;             // engines may report out of order
    }
    self.lines_.push_back(self.lineAt(last));
    return 0;
  }

  // Every match in one line; false when the collector says stop.
  bool matchLine(const uint8_t* text, const Line& line, MatchCollector& collector, size_t windowBegin,
                 bool repaired) {
    const auto* subject = reinterpret_cast<PCRE2_SPTR>(text + line.start);
    const size_t length = line.contentEnd - line.start;
    size_t offset = 0;
    uint32_t options = 0;
    while (offset <= length) {
      const int rc = pcre2_match(matcher_.code(), subject, length, offset, options | PCRE2_NO_UTF_CHECK,
                                 matchData_, context_);
      if (rc < 0) {
        if (rc != PCRE2_ERROR_NOMATCH || options == 0) return true;  // no (more) match, or the engine gave up
        // After an empty match: no non-empty one here either, so step one character on.
        options = 0;
        ++offset;
        while (offset < length && (subject[offset] & 0xC0) == 0x80) ++offset;
        continue;
      }
      const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(matchData_);
      const size_t start = ovector[0], end = ovector[1];
      if (start > end) return true;  // \K in a look-ahead can do this; nothing sensible to report
      size_t from = line.start + start, to = line.start + end;
      if (repaired) {
        const auto mapped = map_.mapMatch(static_cast<int64_t>(from), static_cast<int64_t>(to));
        from = static_cast<size_t>(mapped.first), to = static_cast<size_t>(mapped.second);
      }
      if (!collector.add(windowBegin + from, to - from)) return false;
      offset = end;
      options = start == end ? PCRE2_NOTEMPTY_ATSTART | PCRE2_ANCHORED : 0;
    }
    return true;
  }

  const RegexMatcher& matcher_;
  pcre2_match_data* matchData_ = nullptr;
  pcre2_jit_stack* jitStack_ = nullptr;
  pcre2_match_context* context_ = nullptr;
  hs_scratch_t* scratch_ = nullptr;
  const uint8_t* text_ = nullptr;  // what PCRE2 reads: the window's text, or its repair
  size_t length_ = 0;
  uint8_t terminator_ = '\n';
  std::vector<Line> lines_;  // the lines PCRE2 runs on, in order
  bool unordered_ = false;
  std::string work_;      // the repaired text, or the prefilter's copy
  std::string original_;  // the repaired text, when work_ became the prefilter's copy
  RepairedOffsetMap map_;
};

std::unique_ptr<WindowScanner> RegexMatcher::makeScanner() const {
  return std::make_unique<RegexScanner>(*this);
}

// The vectorscan prefilter for a pattern, or null when it cannot have one.
hs_database_t* compilePrefilter(const std::string& pattern, bool caseSensitive) {
  if (pattern.find('\0') != std::string::npos || anchorsToSubject(pattern)) return nullptr;
  unsigned flags = HS_FLAG_PREFILTER | HS_FLAG_UTF8 | HS_FLAG_UCP | HS_FLAG_MULTILINE;
  if (!caseSensitive) flags |= HS_FLAG_CASELESS;
  hs_database_t* database = nullptr;
  hs_compile_error_t* error = nullptr;
  if (hs_compile(pattern.c_str(), flags, HS_MODE_BLOCK, nullptr, &database, &error) != HS_SUCCESS) {
    hs_free_compile_error(error);
    return nullptr;
  }
  return database;
}

}  // namespace

std::expected<std::shared_ptr<const Matcher>, std::string> compileRegexMatcher(std::string_view pattern,
                                                                               RegexOptions options) {
  uint32_t flags = PCRE2_UTF | PCRE2_UCP;
  if (!options.caseSensitive) flags |= PCRE2_CASELESS;
  int errorCode = 0;
  PCRE2_SIZE errorOffset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), flags,
                                   &errorCode, &errorOffset, nullptr);
  if (code == nullptr) {
    PCRE2_UCHAR message[256];
    pcre2_get_error_message(errorCode, message, sizeof message);
    return std::unexpected(std::string(reinterpret_cast<const char*>(message)));
  }
  // Without JIT (an unsupported processor) the interpreter still works.
  pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);

  hs_database_t* database =
      options.prefilter ? compilePrefilter(std::string(pattern), options.caseSensitive) : nullptr;
  hs_scratch_t* scratch = nullptr;
  if (database != nullptr && hs_alloc_scratch(database, &scratch) != HS_SUCCESS) {
    hs_free_database(database);
    database = nullptr;
    scratch = nullptr;
  }
  return std::make_shared<const RegexMatcher>(code, database, scratch);
}

bool usesPrefilter(const Matcher& matcher) {
  const auto* regex = dynamic_cast<const RegexMatcher*>(&matcher);
  return regex != nullptr && regex->database() != nullptr;
}

}  // namespace quorin::search
