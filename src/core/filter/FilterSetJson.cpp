#include "filter/FilterSetJson.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <type_traits>

namespace quorin::filter {
namespace {

using nlohmann::json;

// Thrown inside this file only, turned into a FilterSetError at the edge.
struct Refusal {
  std::string reason;
};

constexpr const char* kActionNames[] = {"include", "exclude"};

const json& field(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) throw Refusal{std::string("missing \"") + key + "\""};
  return *found;
}

template <typename T>
T typed(const json& value, const char* key) {
  if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
    // get<int>() would convert 1e300 or 2^64 - 1 silently (or worse).
    const bool fits =
        value.is_number_integer() &&
        (value.is_number_unsigned() ? value.get<uint64_t>() <= uint64_t{INT32_MAX}
                                    : value.get<int64_t>() >= INT32_MIN && value.get<int64_t>() <= INT32_MAX);
    if (!fits) throw Refusal{std::string("\"") + key + "\" is not a whole number in range"};
  }
  try {
    return value.get<T>();
  } catch (const json::exception&) {
    throw Refusal{std::string("\"") + key + "\" has the wrong type"};
  }
}

template <typename T>
T optionalField(const json& object, const char* key, T fallback) {
  const auto found = object.find(key);
  return found == object.end() ? fallback : typed<T>(*found, key);
}

logs::Level levelNamed(const std::string& text) {
  for (int i = 1; i <= static_cast<int>(logs::Level::fatal); ++i) {
    const auto level = static_cast<logs::Level>(i);
    if (logs::name(level) == text) return level;
  }
  throw Refusal{"unknown level \"" + text + "\""};
}

json conditionJson(const Condition& condition) {
  return std::visit(
      [](const auto& c) -> json {
        using T = std::decay_t<decltype(c)>;
        if constexpr (std::is_same_v<T, PatternCondition>) {
          return {{"pattern",
                   {{"text", c.query.query},
                    {"regex", c.query.regex},
                    {"caseSensitive", c.query.caseSensitive},
                    {"wholeWord", c.query.wholeWord}}}};
        } else if constexpr (std::is_same_v<T, LevelCondition>) {
          return {{"minimumLevel", std::string(logs::name(c.level))}};
        } else if constexpr (std::is_same_v<T, TimeWindowCondition>) {
          return {{"timeWindow", {{"from", c.from}, {"to", c.to}}}};
        } else {
          return {{"bookmarked", true}};
        }
      },
      condition);
}

Condition conditionFrom(const json& rule) {
  if (const auto pattern = rule.find("pattern"); pattern != rule.end()) {
    if (!pattern->is_object()) throw Refusal{"\"pattern\" has the wrong type"};
    PatternCondition c;
    c.query.query = typed<std::string>(field(*pattern, "text"), "text");
    c.query.regex = optionalField(*pattern, "regex", false);
    c.query.caseSensitive = optionalField(*pattern, "caseSensitive", false);
    c.query.wholeWord = optionalField(*pattern, "wholeWord", false);
    return c;
  }
  if (const auto level = rule.find("minimumLevel"); level != rule.end()) {
    return LevelCondition{levelNamed(typed<std::string>(*level, "minimumLevel"))};
  }
  if (const auto window = rule.find("timeWindow"); window != rule.end()) {
    if (!window->is_object()) throw Refusal{"\"timeWindow\" has the wrong type"};
    return TimeWindowCondition{optionalField<std::string>(*window, "from", ""),
                               optionalField<std::string>(*window, "to", "")};
  }
  if (rule.contains("bookmarked")) return BookmarkedCondition{};
  throw Refusal{"a rule has no pattern, minimumLevel, timeWindow or bookmarked"};
}

json setJson(const NamedFilter& filter) {
  json rules = json::array();
  for (const FilterRule& rule : filter.options.rules) {
    json r = conditionJson(rule.condition);
    r["enabled"] = rule.enabled;
    r["action"] = kActionNames[static_cast<int>(rule.action)];
    rules.push_back(std::move(r));
  }
  return {{"name", filter.name},
          {"rules", std::move(rules)},
          {"contextBefore", filter.options.contextBefore},
          {"contextAfter", filter.options.contextAfter},
          {"wholeMessages", filter.options.wholeMessages}};
}

int64_t contextFrom(const json& set, const char* key) {
  const auto lines = optionalField<int64_t>(set, key, 0);
  if (lines < 0 || lines > kMaxContextLines) {
    throw Refusal{std::string("\"") + key + "\" must be 0 to " + std::to_string(kMaxContextLines)};
  }
  return lines;
}

NamedFilter setFrom(const json& set) {
  if (!set.is_object()) throw Refusal{"a set is not an object"};
  NamedFilter filter;
  filter.name = typed<std::string>(field(set, "name"), "name");
  const json& rules = field(set, "rules");
  if (!rules.is_array()) throw Refusal{"\"rules\" is not a list"};
  for (const json& r : rules) {
    if (!r.is_object()) throw Refusal{"a rule is not an object"};
    FilterRule rule;
    rule.enabled = optionalField(r, "enabled", true);
    const auto action = optionalField<std::string>(r, "action", "include");
    if (action == "exclude") {
      rule.action = RuleAction::exclude;
    } else if (action != "include") {
      throw Refusal{"unknown action \"" + action + "\""};
    }
    rule.condition = conditionFrom(r);
    filter.options.rules.push_back(std::move(rule));
  }
  filter.options.contextBefore = contextFrom(set, "contextBefore");
  filter.options.contextAfter = contextFrom(set, "contextAfter");
  filter.options.wholeMessages = optionalField(set, "wholeMessages", false);
  return filter;
}

void checkVersion(const json& document, const char* key) {
  const int version = typed<int>(field(document, key), key);
  if (version < 1 || version > kFilterSetVersion) {
    throw Refusal{"version " + std::to_string(version) + " is not one this version of Quorin reads"};
  }
}

template <typename Read>
auto parsed(std::string_view text, Read read) -> std::expected<decltype(read(json())), FilterSetError> {
  try {
    const json document = json::parse(text);
    if (!document.is_object()) return std::unexpected(FilterSetError{"not a JSON object"});
    return read(document);
  } catch (const json::parse_error& error) {
    return std::unexpected(FilterSetError{"not valid JSON (byte " + std::to_string(error.byte) + ")"});
  } catch (const Refusal& refusal) {
    return std::unexpected(FilterSetError{refusal.reason});
  } catch (const json::exception& error) {
    return std::unexpected(FilterSetError{error.what()});
  }
}

}  // namespace

std::string exportFilterSet(const NamedFilter& filter) {
  json document = setJson(filter);
  document["quorinFilterSet"] = kFilterSetVersion;
  return document.dump(2) + "\n";
}

std::expected<NamedFilter, FilterSetError> importFilterSet(std::string_view text) {
  return parsed(text, [](const json& document) {
    checkVersion(document, "quorinFilterSet");
    return setFrom(document);
  });
}

std::string namedFiltersToJson(const std::vector<NamedFilter>& filters) {
  json sets = json::array();
  for (const NamedFilter& filter : filters) sets.push_back(setJson(filter));
  return json{{"quorinFilterSets", kFilterSetVersion}, {"sets", std::move(sets)}}.dump();
}

std::expected<std::vector<NamedFilter>, FilterSetError> namedFiltersFromJson(std::string_view text) {
  return parsed(text, [](const json& document) {
    checkVersion(document, "quorinFilterSets");
    const json& sets = field(document, "sets");
    if (!sets.is_array()) throw Refusal{"\"sets\" is not a list"};
    std::vector<NamedFilter> filters;
    for (const json& set : sets) filters.push_back(setFrom(set));
    return filters;
  });
}

bool FilterOptions::hasEnabledRule() const {
  for (const FilterRule& rule : rules) {
    if (rule.enabled) return true;
  }
  return false;
}

}  // namespace quorin::filter
