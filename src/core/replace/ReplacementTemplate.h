#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "replace/CaseMapping.h"

namespace quorin::replace {

// What a compiled pattern captures: its number of groups ($0 not counted)
// and the numbers of its named ones.
struct PatternGroups {
  int count = 0;
  std::vector<std::pair<std::string, int>> names;

  std::optional<int> numberOf(std::string_view name) const;
};

// Why a template was refused; describe() is the text the user sees.
struct TemplateError {
  enum class Kind : uint8_t {
    missingGroup,  // `group` past `groupCount`
    missingName,   // `name` not a group of the pattern
    malformed,     // `detail` at `column` (characters from 1)
  };
  Kind kind = Kind::malformed;
  int group = 0;
  int groupCount = 0;
  std::string name;
  std::string detail;
  int64_t column = 0;

  std::string describe() const;
  bool operator==(const TemplateError&) const = default;
};

// A replacement for regular-expression matches, parsed once against the
// pattern's groups so that a bad reference is refused before anything
// changes. Syntax: $0 $& ${0} (the match), $1…$99 and ${N} (groups; at most
// two digits after a bare $), ${name}, $$ (a dollar; any other $ is literal);
// \n \r \t \\ \xHH \x{H…}; \U and \L (upper or lower case until \E), \E, \u
// and \l (the next character only). Immutable; shareable across threads.
class ReplacementTemplate {
 public:
  static std::expected<ReplacementTemplate, TemplateError> parse(std::string_view text,
                                                                 const PatternGroups& groups);
  // Constant text, taken as it is (a literal query's replacement).
  static ReplacementTemplate literal(std::string_view text);

  // Appends the replacement of one match: groups[0] is the whole match,
  // groups[n] group n (empty when it did not take part); missing entries
  // count as empty.
  void expand(std::span<const std::string_view> groups, std::string& out) const;

  // No group and no case change: the same text for every match.
  bool isConstant() const { return constant_.has_value(); }
  const std::string& constantText() const { return *constant_; }
  // Whether expanding needs any group beyond the whole match.
  bool needsGroups() const { return highestGroup_ > 0; }
  int highestGroup() const { return highestGroup_; }

 private:
  struct Part {
    enum class Kind : uint8_t { text, group, mode, next } kind = Kind::text;
    std::string text;
    int group = 0;
    CaseChange change = CaseChange::none;
  };
  std::vector<Part> parts_;
  std::optional<std::string> constant_;
  int highestGroup_ = 0;
};

}  // namespace quorin::replace
