#include "logs/SeverityRules.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <algorithm>

namespace quorin::logs {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool containsFolded(std::string_view text, std::string_view foldedNeedle) {
  if (foldedNeedle.empty() || foldedNeedle.size() > text.size()) return false;
  const size_t last = text.size() - foldedNeedle.size();
  for (size_t i = 0; i <= last; ++i) {
    if (lower(text[i]) != foldedNeedle[0]) continue;
    size_t k = 1;
    while (k < foldedNeedle.size() && lower(text[i + k]) == foldedNeedle[k]) ++k;
    if (k == foldedNeedle.size()) return true;
  }
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
