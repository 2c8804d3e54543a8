#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search/Matcher.h"

namespace quorin::bookmarks {

// Eight colours that read on light and dark themes; the application maps
// each name to its own shade.
enum class MarkerColour : uint8_t { yellow, green, cyan, pink, orange, violet, blue, grey };
inline constexpr std::array<std::string_view, 8> kMarkerColourNames = {"yellow", "green",  "cyan", "pink",
                                                                       "orange", "violet", "blue", "grey"};

// A highlight rule: every span the pattern matches is drawn in its colour.
struct MarkerRule {
  std::string pattern;
  bool regex = false;
  bool caseSensitive = false;
  bool wholeWord = false;  // literal patterns only, as in the find bar
  MarkerColour colour = MarkerColour::yellow;
  bool enabled = true;
  bool operator==(const MarkerRule&) const = default;
};

// The user's rules as JSON ("QuorinMarkers" in the settings):
// [{"pattern", "regex", "caseSensitive", "wholeWord", "colour", "enabled"}].
// Reading refuses anything but an array of such objects (at most 1,000),
// unknown colours and empty patterns, with the reason.
std::string markerRulesToJson(const std::vector<MarkerRule>& rules);
std::expected<std::vector<MarkerRule>, std::string> markerRulesFromJson(std::string_view json);

// The first colour no rule uses ("mark this word"), yellow again when all are.
MarkerColour nextFreeColour(const std::vector<MarkerRule>& rules);

// A span to draw, in bytes of the text handed to spans().
struct MarkerSpan {
  int64_t begin = 0;
  int64_t end = 0;
  MarkerColour colour = MarkerColour::yellow;
  bool operator==(const MarkerSpan&) const = default;
};

// The enabled rules, compiled once. spans() is called for the lines being
// drawn only. A rule whose pattern takes longer than `lineBudget` on one
// line is switched off for the rest of this compilation, and the reason is
// kept for the application to show (and to switch the rule off in the
// settings): "Marker "…" switched off: its pattern is too slow on line 1,234".
// Thread-safety: one thread (the scanners keep scratch state).
class CompiledMarkers {
 public:
  static constexpr std::chrono::milliseconds kDefaultLineBudget{20};

  // Rules that do not compile are left out with "Invalid regex: " and PCRE2's message.
  explicit CompiledMarkers(const std::vector<MarkerRule>& rules,
                           std::chrono::nanoseconds lineBudget = kDefaultLineBudget);
  ~CompiledMarkers();
  CompiledMarkers(const CompiledMarkers&) = delete;
  CompiledMarkers& operator=(const CompiledMarkers&) = delete;

  bool empty() const { return compiled_.empty(); }
  // Spans in `text` (one line, or the drawn piece of a long one), by start;
  // where rules overlap, the earlier rule's span is kept. `line` names the
  // line in a message.
  std::vector<MarkerSpan> spans(std::string_view text, int64_t line);

  // Per rule given (in order): an error, or the reason it was switched off.
  const std::vector<std::optional<std::string>>& problems() const { return problems_; }

 private:
  struct Compiled;
  std::vector<std::unique_ptr<Compiled>> compiled_;
  std::vector<std::optional<std::string>> problems_;
  std::chrono::nanoseconds lineBudget_;
  std::string buffer_;
};

}  // namespace quorin::bookmarks
