#pragma once

#include <cstdint>
#include <optional>

#include "filter/FilterOptions.h"
#include "search/LineProjection.h"
#include "search/LineVisibilityBitset.h"

namespace quorin::filter {

using search::LineVisibilityBitset;

// The rows a line filter shows, computed on one snapshot of the document.
// The bitset covers the lines evaluated: all of the document's when
// complete, a prefix while the evaluation is under way (or after it was
// cancelled or ran out of time). Immutable once built; any thread may
// query it.
class FilterProjection final : public search::LineProjection {
 public:
  FilterProjection(LineVisibilityBitset bitset, FilterOptions options, int64_t snapshotVersion,
                   int64_t rulesGeneration, bool complete = true)
      : bitset_(std::move(bitset)),
        options_(std::move(options)),
        snapshotVersion_(snapshotVersion),
        rulesGeneration_(rulesGeneration),
        complete_(complete) {}

  const LineVisibilityBitset& bitset() const { return bitset_; }
  const FilterOptions& options() const { return options_; }
  int64_t snapshotVersion() const { return snapshotVersion_; }
  // The severity-rules generation in force when computed; a different
  // current generation means the rows are out of date.
  int64_t rulesGeneration() const { return rulesGeneration_; }
  int64_t linesEvaluated() const { return bitset_.lineCount(); }
  bool isComplete() const { return complete_; }

  int64_t visibleLineCount() const override { return bitset_.visibleLineCount(); }
  bool isVisible(int64_t line) const override { return bitset_.isVisible(line); }
  std::optional<int64_t> row(int64_t line) const override { return bitset_.row(line); }
  std::optional<int64_t> line(int64_t row) const override { return bitset_.line(row); }
  std::optional<int64_t> nextVisibleLine(int64_t line) const override {
    return bitset_.nextVisibleLine(line);
  }
  std::optional<int64_t> previousVisibleLine(int64_t line) const override {
    return bitset_.previousVisibleLine(line);
  }

 private:
  LineVisibilityBitset bitset_;
  FilterOptions options_;
  int64_t snapshotVersion_;
  int64_t rulesGeneration_;
  bool complete_;
};

// The visibility of lines inserted by an edit at `from`, before the filter
// re-evaluates them: shown when either neighbour of the edited range is
// shown, so that typing inside a visible line never makes it vanish.
bool insertedLinesVisible(const LineVisibilityBitset& bitset, int64_t from, int64_t removed);

}  // namespace quorin::filter
