#include "logs/SeverityRules.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>
#include <bit>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace quorin::logs {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool equalsFolded(const char* text, std::string_view foldedNeedle) {
  for (size_t k = 0; k < foldedNeedle.size(); ++k)
    if (lower(text[k]) != foldedNeedle[k]) return false;
  return true;
}

// Whether `text` holds the lower-cased `foldedNeedle` in any ASCII case.
// Candidates are the places of its first byte (either case), found sixteen
// bytes at a time: OR-ing 0x20 turns only upper-case letters into lower.
bool containsFolded(std::string_view text, std::string_view foldedNeedle) {
  if (foldedNeedle.empty() || foldedNeedle.size() > text.size()) return false;
  const char* s = text.data();
  const size_t last = text.size() - foldedNeedle.size();  // the last possible start
  const char first = foldedNeedle[0];
  const bool letter = first >= 'a' && first <= 'z';
  size_t i = 0;
#ifdef __SSE2__
  const __m128i wanted = _mm_set1_epi8(first), caseBit = _mm_set1_epi8(letter ? 0x20 : 0);
  for (; i + 16 <= last + 1; i += 16) {
    const __m128i block = _mm_or_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i)), caseBit);
    for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(block, wanted))); mask != 0;
         mask &= mask - 1) {
      if (equalsFolded(s + i + static_cast<size_t>(std::countr_zero(mask)), foldedNeedle)) return true;
    }
  }
#endif
  for (; i <= last; ++i)
    if (lower(s[i]) == first && equalsFolded(s + i, foldedNeedle)) return true;
  return false;
}

struct CodeDeleter {
  void operator()(pcre2_code* code) const { pcre2_code_free(code); }
};
struct MatchDataDeleter {
  void operator()(pcre2_match_data* data) const { pcre2_match_data_free(data); }
};

// One match-data block per thread: detect() runs on many threads at once
// and must not allocate per line. One ovector pair is enough, since only
// whether a rule matches is asked.
pcre2_match_data* threadMatchData() {
  thread_local std::unique_ptr<pcre2_match_data, MatchDataDeleter> data(pcre2_match_data_create(1, nullptr));
  return data.get();
}

}  // namespace

struct SeverityRules::Compiled {
  struct Rule {
    std::string folded;  // a literal pattern, lower-cased
    std::unique_ptr<pcre2_code, CodeDeleter> code;
    Level level = Level::none;
  };
  std::vector<SeverityRule> given;
  std::vector<Rule> rules;
};

SeverityRules::SeverityRules() : compiled_(std::make_shared<const Compiled>()) {}

std::expected<void, InvalidSeverityRegex> SeverityRules::setUserRules(std::vector<SeverityRule> rules) {
  auto compiled = std::make_shared<Compiled>();
  for (size_t i = 0; i < rules.size(); ++i) {
    const SeverityRule& rule = rules[i];
    Compiled::Rule out;
    out.level = rule.level;
    if (rule.regex) {
      // Invalid UTF-8 in a line cannot match, rather than failing the match.
      int errorCode = 0;
      PCRE2_SIZE errorOffset = 0;
      pcre2_code* code =
          pcre2_compile(reinterpret_cast<PCRE2_SPTR>(rule.pattern.data()), rule.pattern.size(),
                        PCRE2_UTF | PCRE2_UCP | PCRE2_MATCH_INVALID_UTF, &errorCode, &errorOffset, nullptr);
      if (code == nullptr) {
        PCRE2_UCHAR message[256];
        pcre2_get_error_message(errorCode, message, sizeof message);
        return std::unexpected(InvalidSeverityRegex{i, reinterpret_cast<const char*>(message)});
      }
      // Without JIT (an unsupported processor) the interpreter still works.
      pcre2_jit_compile(code, PCRE2_JIT_COMPLETE);
      out.code.reset(code);
    } else {
      out.folded.resize(rule.pattern.size());
      std::transform(rule.pattern.begin(), rule.pattern.end(), out.folded.begin(), lower);
    }
    compiled->rules.push_back(std::move(out));
  }
  compiled->given = std::move(rules);
  compiled_ = std::move(compiled);
  ++generation_;
  return {};
}

const std::vector<SeverityRule>& SeverityRules::userRules() const { return compiled_->given; }

Level SeverityRules::detect(std::string_view line, size_t timestampEnd) const {
  if (!compiled_->rules.empty()) {
    const std::string_view head = line.substr(0, kUserRuleWindowBytes);
    for (const auto& rule : compiled_->rules) {
      bool matched = false;
      if (rule.code) {
        matched = pcre2_match(rule.code.get(), reinterpret_cast<PCRE2_SPTR>(head.data()), head.size(), 0, 0,
                              threadMatchData(), nullptr) >= 0;
      } else {
        matched = containsFolded(head, rule.folded);
      }
      if (matched) return rule.level;
    }
  }
  return detectLineLevel(line, timestampEnd);
}

}  // namespace quorin::logs
