#include <gtest/gtest.h>

#include <random>

#include "filter/FilterProjection.h"
#include "search/LineVisibilityBitset.h"

namespace quorin::search {
namespace {

// Every query against a plain vector<bool>.
void expectMatchesModel(const LineVisibilityBitset& bits, const std::vector<bool>& model) {
  const auto n = static_cast<int64_t>(model.size());
  ASSERT_EQ(bits.lineCount(), n);
  std::vector<int64_t> visible;
  for (int64_t i = 0; i < n; ++i)
    if (model[static_cast<size_t>(i)]) visible.push_back(i);
  ASSERT_EQ(bits.visibleLineCount(), static_cast<int64_t>(visible.size()));
  for (int64_t i = -2; i <= n + 1; ++i) {
    const bool shown = i >= 0 && i < n && model[static_cast<size_t>(i)];
    ASSERT_EQ(bits.isVisible(i), shown) << i;
    const auto rank = std::lower_bound(visible.begin(), visible.end(), i) - visible.begin();
    ASSERT_EQ(bits.row(i), shown ? std::optional<int64_t>(rank) : std::nullopt) << i;
    const auto next = std::lower_bound(visible.begin(), visible.end(), std::max<int64_t>(i, 0));
    ASSERT_EQ(bits.nextVisibleLine(i),
              next != visible.end() && i < n ? std::optional<int64_t>(*next) : std::nullopt)
        << i;
    const auto after = std::upper_bound(visible.begin(), visible.end(), i);
    ASSERT_EQ(bits.previousVisibleLine(i),
              after != visible.begin() && i >= 0 ? std::optional<int64_t>(*(after - 1)) : std::nullopt)
        << i;
  }
  for (int64_t r = -1; r <= static_cast<int64_t>(visible.size()); ++r) {
    const bool inRange = r >= 0 && r < static_cast<int64_t>(visible.size());
    ASSERT_EQ(bits.line(r), inRange ? std::optional<int64_t>(visible[static_cast<size_t>(r)]) : std::nullopt)
        << r;
  }
}

TEST(LineVisibilityProjectionTest, AnswersLikeAPlainVectorAfterAppendsSetsAndSplices) {
  std::mt19937 rng(3);
  for (int round = 0; round < 40; ++round) {
    LineVisibilityBitset bits;
    std::vector<bool> model;
    // Runs of every length around word and block boundaries, dense and sparse.
    const int density = static_cast<int>(rng() % 4);
    while (model.size() < 200 + rng() % 2500) {
      if (rng() % 2 == 0) {
        const int64_t count =
            rng() % 3 == 0 ? static_cast<int64_t>(rng() % 700) : static_cast<int64_t>(rng() % 70);
        const bool value = static_cast<int>(rng() % 4) < density;
        bits.appendRun(count, value);
        model.insert(model.end(), static_cast<size_t>(count), value);
      } else {
        const uint64_t word = (uint64_t{rng()} << 32) | rng();
        const int count = static_cast<int>(rng() % 65);
        bits.appendBits(word, count);
        for (int k = 0; k < count; ++k) model.push_back((word >> k) & 1);
      }
    }
    bits.rebuildRankDirectory();
    expectMatchesModel(bits, model);

    const auto line = static_cast<int64_t>(rng() % model.size());
    bits.set(line, !model[static_cast<size_t>(line)]);
    model[static_cast<size_t>(line)] = !model[static_cast<size_t>(line)];
    expectMatchesModel(bits, model);

    const auto from = static_cast<int64_t>(rng() % (model.size() + 1));
    const auto removed = static_cast<int64_t>(rng() % 600);
    const auto inserted = static_cast<int64_t>(rng() % 600);
    const bool value = rng() % 2;
    const LineVisibilityBitset spliced = bits.spliced(from, removed, inserted, value);
    const auto end = std::min<size_t>(model.size(), static_cast<size_t>(from + removed));
    model.erase(model.begin() + from, model.begin() + static_cast<std::ptrdiff_t>(end));
    model.insert(model.begin() + from, static_cast<size_t>(inserted), value);
    expectMatchesModel(spliced, model);
  }
}

TEST(LineVisibilityProjectionTest, EmptyBitsetAndLinesInsertedIntoAShownLine) {
  const LineVisibilityBitset empty(0);
  expectMatchesModel(empty, {});
  EXPECT_EQ(LineVisibilityBitset(-5).lineCount(), 0);

  LineVisibilityBitset one(100);
  one.set(42, true);
  EXPECT_EQ(one.visibleLineCount(), 1);
  // Lines inserted inside a shown line stay shown; next to hidden ones, hidden.
  EXPECT_TRUE(filter::insertedLinesVisible(one, 42, 1));
  EXPECT_FALSE(filter::insertedLinesVisible(one, 10, 2));
  const filter::FilterProjection projection(one.spliced(42, 1, 3, filter::insertedLinesVisible(one, 42, 1)),
                                            {}, 7, 1);
  EXPECT_EQ(projection.visibleLineCount(), 3);
  EXPECT_EQ(projection.line(2), 44);
}

}  // namespace
}  // namespace quorin::search
