#pragma once

#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "filter/FilterOptions.h"

namespace quorin::filter {

// Why a filter set's JSON was not read; nothing was changed.
struct FilterSetError {
  std::string reason;  // "line 3: expected ',' …", "unknown level \"loud\""
  std::string describe() const { return "Not a Quorin filter set: " + reason; }
};

// The version this build writes and the newest it reads.
inline constexpr int kFilterSetVersion = 1;

// One named set as a small JSON file, to take to another machine:
// {"quorinFilterSet": 1, "name": …, "rules": [...], "contextBefore": …,
//  "contextAfter": …, "wholeMessages": …}. Unknown keys are ignored on
// reading; a newer version, a missing or mistyped field, an unknown action
// or level, or context outside 0…kMaxContextLines refuses the whole file.
std::string exportFilterSet(const NamedFilter& filter);
std::expected<NamedFilter, FilterSetError> importFilterSet(std::string_view json);

// The user's list, as kept in the settings ("QuorinNamedFilters"):
// {"quorinFilterSets": 1, "sets": [set, …]}.
std::string namedFiltersToJson(const std::vector<NamedFilter>& filters);
std::expected<std::vector<NamedFilter>, FilterSetError> namedFiltersFromJson(std::string_view json);

}  // namespace quorin::filter
