#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "filter/FilterTestSupport.h"
#include "filter/LiveFilter.h"
#include "search/SearchTestSupport.h"
#include "support/ManualExecutor.h"

namespace quorin::filter {
namespace {

std::shared_ptr<logs::LogIndexData> isoLog() {
  auto data = std::make_shared<logs::LogIndexData>();
  data->format = logs::TimestampFormat::iso8601;
  data->firstYear = 2026;
  return data;
}

FilterLimits smallLimits() {
  FilterLimits limits;
  limits.chunkLines = 64;
  limits.windowBytes = 64;
  limits.maxLineBytes = kMaxLineBytes;
  limits.appendSlackLines = 16;  // so that appends merge over the earlier rows
  return limits;
}

logs::LogSource sourceOf(const search::SearchDoc& doc) {
  return {doc.table->snapshot(), doc.index->snapshot()};
}

std::vector<bool> shown(const FilterProjection& projection) {
  std::vector<bool> lines(static_cast<size_t>(projection.linesEvaluated()));
  for (size_t i = 0; i < lines.size(); ++i) lines[i] = projection.isVisible(static_cast<int64_t>(i));
  return lines;
}

// What evaluating the whole document from scratch shows.
std::vector<bool> fromScratch(const FilterOptions& options, const search::SearchDoc& doc) {
  const auto compiled = compileFilter(options);
  return shown(*evaluateFilter(*compiled, sourceOf(doc), {isoLog()}, smallLimits()).projection);
}

struct Harness {
  std::shared_ptr<testing::ManualExecutor> worker = std::make_shared<testing::ManualExecutor>();
  std::shared_ptr<testing::ManualExecutor> main = std::make_shared<testing::ManualExecutor>();
  std::vector<std::shared_ptr<const FilterProjection>> published;
  std::shared_ptr<LiveFilter> filter = LiveFilter::create(
      worker, main,
      [this](auto projection, const FilterStatus&) { published.push_back(std::move(projection)); },
      smallLimits());

  void settle() {
    while (worker->runOne() || main->runOne()) {
    }
  }
};

TEST(LiveFilter, AppendedLinesAndEditsEndWhereAFreshEvaluationWould) {
  std::mt19937 random(77);
  for (int round = 0; round < 25; ++round) {
    const Doc before = randomLog(random);
    const Doc more = randomLog(random);
    const FilterOptions options = randomOptions(random);
    if (!compileFilter(options)) continue;
    const search::SearchDoc old(before.text);
    Harness h;
    ASSERT_TRUE(h.filter->start(options, sourceOf(old), {isoLog()}).has_value());
    h.settle();
    ASSERT_EQ(shown(*h.filter->projection()), fromScratch(options, old)) << "round " << round;

    // A followed file grows.
    const search::SearchDoc grown(before.text + more.text);
    h.filter->noteAppend(sourceOf(grown), 2);
    h.settle();
    ASSERT_EQ(shown(*h.filter->projection()), fromScratch(options, grown)) << "round " << round;

    // A line break typed in the middle, then a word far from it before the
    // first is evaluated again: spliced at once, exact once both are.
    const size_t at = grown.table->snapshot().totalLength() / 2;
    std::string text = before.text + more.text;
    text.insert(at, "\n");
    const search::SearchDoc edited(text);
    storage::EditResult edit{.docByteStart = static_cast<int64_t>(at),
                             .bytesInserted = 1,
                             .netByteDelta = 1,
                             .insertedNewlineOffsets = {static_cast<int64_t>(at) + 1}};
    h.filter->noteEdit(edit, sourceOf(edited), 3);
    ASSERT_EQ(h.filter->projection()->linesEvaluated(), edited.index->snapshot().knownLineCount());
    EXPECT_EQ(h.filter->projection()->snapshotVersion(), 3);
    const size_t second = random() % (text.size() + 1);
    text.insert(second, " error id=123");
    const search::SearchDoc twice(text);
    storage::EditResult word{
        .docByteStart = static_cast<int64_t>(second), .bytesInserted = 13, .netByteDelta = 13};
    h.filter->noteEdit(word, sourceOf(twice), 4);
    h.settle();
    ASSERT_EQ(shown(*h.filter->projection()), fromScratch(options, twice)) << "round " << round;
  }
}

TEST(LiveFilter, ANewFilterSupersedesOneStillQueued) {
  const search::SearchDoc doc("2026-03-20 10:00:00 ERROR a\n2026-03-20 10:00:01 INFO b\n");
  Harness h;
  FilterOptions errors, infos;
  errors.rules = {{true, RuleAction::include, PatternCondition{{"ERROR"}}}};
  infos.rules = {{true, RuleAction::include, PatternCondition{{"INFO"}}}};
  ASSERT_TRUE(h.filter->start(errors, sourceOf(doc), {isoLog()}).has_value());
  ASSERT_TRUE(h.filter->start(infos, sourceOf(doc), {isoLog()}).has_value());
  h.settle();
  ASSERT_EQ(h.published.size(), 1u);
  EXPECT_EQ(h.published[0]->options(), infos);
  EXPECT_EQ(shown(*h.published[0]), (std::vector<bool>{false, true, false}));
  EXPECT_FALSE(h.filter->status().computing);
}

}  // namespace
}  // namespace quorin::filter
