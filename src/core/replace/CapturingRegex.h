#pragma once

#include <expected>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "replace/ReplacementTemplate.h"
#include "search/Utf8Repair.h"

namespace quorin::replace {

struct CompiledPattern;  // PCRE2's compiled code, shared by every reader

// A regular expression compiled the way the search compiles it (PCRE2, UTF,
// Unicode properties, caseless when asked), kept for its groups: the search
// engine finds the matches quickly, and a template that names groups reads
// them here by running the pattern again at a match it reported.
class CapturingRegex {
 public:
  // PCRE2's message for an invalid pattern.
  static std::expected<CapturingRegex, std::string> compile(std::string_view pattern, bool caseSensitive);

  const PatternGroups& groups() const { return groups_; }
  const std::shared_ptr<const CompiledPattern>& code() const { return code_; }

 private:
  std::shared_ptr<const CompiledPattern> code_;
  PatternGroups groups_;
};

// The per-thread state for reading groups (match data, a repair buffer).
class GroupReader {
 public:
  explicit GroupReader(const CapturingRegex& regex);
  ~GroupReader();
  GroupReader(const GroupReader&) = delete;
  GroupReader& operator=(const GroupReader&) = delete;

  // The groups of the match of `matchLength` bytes at `matchStart` of
  // `subject` (one line without its line break; `notBol`/`notEol` when it is
  // a piece of a longer line), as views into `subject`: [0] the match. False
  // when the pattern does not match there with that length (the caller then
  // has only the whole match).
  bool read(std::string_view subject, size_t matchStart, size_t matchLength, bool notBol, bool notEol,
            std::vector<std::string_view>& groups);

 private:
  std::shared_ptr<const CompiledPattern> code_;
  void* matchData_ = nullptr;  // pcre2_match_data
  int groupCount_ = 0;
  std::string repaired_;
  search::RepairedOffsetMap map_;
};

}  // namespace quorin::replace
