#include "bookmarks/Markers.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "base/ByteCount.h"
#include "search/SearchEngine.h"

namespace quorin::bookmarks {
namespace {

using nlohmann::json;

constexpr size_t kMaxRules = 1000;

// Collects every match of one scan of a line.
class SpanCollector final : public search::MatchCollector {
 public:
  std::vector<std::pair<size_t, size_t>> found;
  bool add(size_t start, size_t length) override {
    found.emplace_back(start, length);
    return found.size() < 100'000;
  }
  bool keepGoing() override { return true; }
};

std::optional<MarkerColour> colourNamed(std::string_view name) {
  for (size_t i = 0; i < kMarkerColourNames.size(); ++i) {
    if (kMarkerColourNames[i] == name) return static_cast<MarkerColour>(i);
  }
  return std::nullopt;
}

}  // namespace

struct CompiledMarkers::Compiled {
  size_t rule = 0;
  std::string pattern;
  MarkerColour colour;
  std::shared_ptr<const search::Matcher> matcher;
  std::unique_ptr<search::WindowScanner> scanner;
  bool switchedOff = false;
};

std::string markerRulesToJson(const std::vector<MarkerRule>& rules) {
  json out = json::array();
  for (const MarkerRule& rule : rules) {
    out.push_back({{"pattern", rule.pattern},
                   {"regex", rule.regex},
                   {"caseSensitive", rule.caseSensitive},
                   {"wholeWord", rule.wholeWord},
                   {"colour", kMarkerColourNames[static_cast<size_t>(rule.colour)]},
                   {"enabled", rule.enabled}});
  }
  return out.dump(2, ' ', false, json::error_handler_t::replace);
}

std::expected<std::vector<MarkerRule>, std::string> markerRulesFromJson(std::string_view text) {
  const json parsed = json::parse(text, nullptr, false);
  if (parsed.is_discarded()) return std::unexpected("not valid JSON");
  if (!parsed.is_array()) return std::unexpected("not a list of markers");
  if (parsed.size() > kMaxRules) return std::unexpected("more than 1,000 markers");
  std::vector<MarkerRule> rules;
  for (const json& item : parsed) {
    const std::string where = "marker " + std::to_string(rules.size() + 1) + ": ";
    if (!item.is_object()) return std::unexpected(where + "not an object");
    MarkerRule rule;
    const auto pattern = item.find("pattern");
    if (pattern == item.end() || !pattern->is_string() || pattern->get<std::string>().empty()) {
      return std::unexpected(where + "no pattern");
    }
    rule.pattern = pattern->get<std::string>();
    for (auto [key, flag] : {std::pair{"regex", &rule.regex}, std::pair{"caseSensitive", &rule.caseSensitive},
                             std::pair{"wholeWord", &rule.wholeWord}, std::pair{"enabled", &rule.enabled}}) {
      const auto found = item.find(key);
      if (found == item.end()) continue;
      if (!found->is_boolean()) return std::unexpected(where + "\"" + key + "\" is not true or false");
      *flag = found->get<bool>();
    }
    if (const auto colour = item.find("colour"); colour != item.end()) {
      const auto named = colour->is_string() ? colourNamed(colour->get<std::string>()) : std::nullopt;
      if (!named) return std::unexpected(where + "unknown colour");
      rule.colour = *named;
    }
    rules.push_back(std::move(rule));
  }
  return rules;
}

MarkerColour nextFreeColour(const std::vector<MarkerRule>& rules) {
  for (size_t i = 0; i < kMarkerColourNames.size(); ++i) {
    const auto colour = static_cast<MarkerColour>(i);
    if (std::none_of(rules.begin(), rules.end(), [&](const MarkerRule& r) { return r.colour == colour; })) {
      return colour;
    }
  }
  return MarkerColour::yellow;
}

CompiledMarkers::CompiledMarkers(const std::vector<MarkerRule>& rules, std::chrono::nanoseconds lineBudget)
    : problems_(rules.size()), lineBudget_(lineBudget) {
  for (size_t i = 0; i < rules.size(); ++i) {
    const MarkerRule& rule = rules[i];
    if (!rule.enabled || rule.pattern.empty()) continue;
    // The find bar's own preparation: the same literal, case and word rules.
    const auto prepared = search::prepareQuery({.query = rule.pattern,
                                                .caseSensitive = rule.caseSensitive,
                                                .wholeWord = rule.wholeWord,
                                                .regex = rule.regex});
    if (prepared.error) {
      problems_[i] = "Invalid regex: " + *prepared.error;
      continue;
    }
    if (!prepared.matcher || prepared.spansLines) continue;  // a line break never matches within a line
    auto compiled = std::make_unique<Compiled>();
    compiled->rule = i;
    compiled->pattern = rule.pattern;
    compiled->colour = rule.colour;
    compiled->matcher = prepared.matcher;
    compiled->scanner = prepared.matcher->makeScanner();
    compiled_.push_back(std::move(compiled));
  }
}

CompiledMarkers::~CompiledMarkers() = default;

std::vector<MarkerSpan> CompiledMarkers::spans(std::string_view text, int64_t line) {
  std::vector<MarkerSpan> out;
  for (const auto& c : compiled_) {
    if (c->switchedOff) continue;
    buffer_.assign(text);  // scanners may fold case in place
    search::ScanWindow window{.data = reinterpret_cast<uint8_t*>(buffer_.data()),
                              .size = buffer_.size(),
                              .begin = 0,
                              .end = buffer_.size(),
                              .dataStartsDocument = true,
                              .dataEndsDocument = true};
    SpanCollector collector;
    const auto started = std::chrono::steady_clock::now();
    c->scanner->scan(window, collector);
    if (std::chrono::steady_clock::now() - started > lineBudget_) {
      c->switchedOff = true;
      problems_[c->rule] = "Marker \"" + c->pattern + "\" switched off: its pattern is too slow on line " +
                           base::groupDigits(line + 1);
      continue;
    }
    // An earlier rule keeps what it marked. `out` holds disjoint spans by
    // start, so their ends ascend too: one search finds the span to check.
    std::vector<MarkerSpan> added;
    for (const auto& [start, length] : collector.found) {
      const auto begin = static_cast<int64_t>(start);
      const auto end = begin + static_cast<int64_t>(length);
      const auto next = std::upper_bound(out.begin(), out.end(), begin,
                                         [](int64_t at, const MarkerSpan& s) { return at < s.end; });
      const bool overlaps = next != out.end() && next->begin < end;
      const bool overlapsAdded = !added.empty() && added.back().end > begin;
      if (length > 0 && !overlaps && !overlapsAdded) added.push_back({begin, end, c->colour});
    }
    const auto middle = static_cast<std::ptrdiff_t>(out.size());
    out.insert(out.end(), added.begin(), added.end());
    std::inplace_merge(out.begin(), out.begin() + middle, out.end(),
                       [](const MarkerSpan& a, const MarkerSpan& b) { return a.begin < b.begin; });
  }
  return out;
}

}  // namespace quorin::bookmarks
