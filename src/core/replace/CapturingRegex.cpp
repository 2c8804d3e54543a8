#include "replace/CapturingRegex.h"

#include <algorithm>

#include "search/Pcre2Compile.h"

namespace quorin::replace {

struct CompiledPattern {
  pcre2_code* code = nullptr;
  explicit CompiledPattern(pcre2_code* c) : code(c) {}
  ~CompiledPattern() { pcre2_code_free(code); }
  CompiledPattern(const CompiledPattern&) = delete;
  CompiledPattern& operator=(const CompiledPattern&) = delete;
};

namespace {

PatternGroups groupsOf(const pcre2_code* code) {
  PatternGroups groups;
  uint32_t count = 0, names = 0, entrySize = 0;
  pcre2_pattern_info(code, PCRE2_INFO_CAPTURECOUNT, &count);
  pcre2_pattern_info(code, PCRE2_INFO_NAMECOUNT, &names);
  pcre2_pattern_info(code, PCRE2_INFO_NAMEENTRYSIZE, &entrySize);
  groups.count = static_cast<int>(count);
  PCRE2_SPTR table = nullptr;
  pcre2_pattern_info(code, PCRE2_INFO_NAMETABLE, &table);
  for (uint32_t i = 0; i < names && table != nullptr; ++i) {
    const PCRE2_SPTR entry = table + static_cast<size_t>(i) * entrySize;
    const int number = (entry[0] << 8) | entry[1];
    groups.names.emplace_back(std::string(reinterpret_cast<const char*>(entry + 2)), number);
  }
  return groups;
}

}  // namespace

std::expected<CapturingRegex, std::string> CapturingRegex::compile(std::string_view pattern,
                                                                   bool caseSensitive) {
  auto compiled = search::compilePcre2(pattern, caseSensitive);
  if (!compiled) return std::unexpected(compiled.error());
  pcre2_code* code = *compiled;
  CapturingRegex regex;
  regex.code_ = std::make_shared<const CompiledPattern>(code);
  regex.groups_ = groupsOf(code);
  return regex;
}

GroupReader::GroupReader(const CapturingRegex& regex)
    : code_(regex.code()),
      matchData_(pcre2_match_data_create_from_pattern(code_->code, nullptr)),
      groupCount_(regex.groups().count) {}

GroupReader::~GroupReader() { pcre2_match_data_free(static_cast<pcre2_match_data*>(matchData_)); }

bool GroupReader::read(std::string_view subject, size_t matchStart, size_t matchLength, bool notBol,
                       bool notEol, std::vector<std::string_view>& groups) {
  groups.assign(static_cast<size_t>(groupCount_) + 1, std::string_view());
  auto* data = static_cast<pcre2_match_data*>(matchData_);
  // PCRE2 reads valid UTF-8 only: match the repaired line, as the search did.
  std::string_view text = subject;
  size_t start = matchStart;
  const bool repaired =
      !search::isValidUtf8(reinterpret_cast<const uint8_t*>(subject.data()), subject.size());
  if (repaired) {
    search::repairUtf8(reinterpret_cast<const uint8_t*>(subject.data()), subject.size(), repaired_, map_);
    text = repaired_;
    const auto& invalid = map_.invalidOffsets;
    start += 2 * static_cast<size_t>(
                     std::lower_bound(invalid.begin(), invalid.end(), static_cast<int64_t>(matchStart)) -
                     invalid.begin());
  }
  uint32_t options = PCRE2_ANCHORED | PCRE2_NO_UTF_CHECK;
  if (notBol) options |= PCRE2_NOTBOL;
  if (notEol) options |= PCRE2_NOTEOL;
  const auto* bytes = reinterpret_cast<PCRE2_SPTR>(text.data());
  auto toSubject = [&](size_t at) {
    return repaired ? static_cast<size_t>(map_.toOriginal(static_cast<int64_t>(at))) : at;
  };
  // The search takes a non-empty match after an empty one at the same place;
  // so does this, when the first try gives a different length.
  for (const uint32_t extra : {0u, static_cast<uint32_t>(PCRE2_NOTEMPTY_ATSTART)}) {
    const int rc = pcre2_match(code_->code, bytes, text.size(), start, options | extra, data, nullptr);
    if (rc < 0) return false;
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(data);
    if (ovector[0] > ovector[1]) return false;
    if (toSubject(ovector[0]) != matchStart || toSubject(ovector[1]) - matchStart != matchLength) continue;
    const auto pairs = std::min<size_t>(static_cast<size_t>(rc), groups.size());
    for (size_t g = 0; g < pairs; ++g) {
      const size_t from = ovector[2 * g], to = ovector[2 * g + 1];
      if (from == PCRE2_UNSET || to < from) continue;
      const size_t a = toSubject(from), b = toSubject(to);
      groups[g] = subject.substr(a, b - a);
    }
    return true;
  }
  return false;
}

}  // namespace quorin::replace
