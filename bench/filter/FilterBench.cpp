// quorin-bench-filter FILE [--threads N] [--reps N]
//
// Filters over FILE as a filtered view computes them once the document is
// open: the line index (and, for the level row, the log index) built first
// and not counted. Prints one JSON object: per case, the median seconds of
// the filter alone and the lines it shows. bench/run times ripgrep and
// `wc -l` on the same file for the ratios.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dispatch/WorkerPool.h"
#include "filter/FilterEvaluator.h"
#include "logs/LogIndex.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/IndexedLog.h"

namespace {

using namespace quorin;

filter::FilterRule pattern(std::string text, filter::RuleAction action = filter::RuleAction::include) {
  search::SearchOptions query;
  query.query = std::move(text);
  return {true, action, filter::PatternCondition{query}};
}

// Ten thousand literals that look like the log's words but (almost) never occur, and one that does.
filter::FilterOptions manyLiterals() {
  filter::FilterOptions options;
  for (int i = 0; i < 9'999; ++i)
    options.rules.push_back(pattern("user" + std::to_string(1'000'003LL * i + 17)));
  options.rules.push_back(pattern("ERROR"));
  return options;
}

}  // namespace

int main(int argc, char** argv) {
  const auto log = bench::openIndexedLog(argc, argv, "quorin-bench-filter");
  if (!log) return 2;
  const logs::LogSource source = log->source();
  const size_t threads = log->threads;
  const int reps = log->reps;
  dispatch::WorkerPool pool(threads);
  filter::FilterContext context;
  context.logData = std::make_shared<const logs::LogIndexData>(
      logs::buildLogIndex(source, logs::SeverityRules(), {.modificationYear = 2026}, &pool));

  filter::FilterOptions include, exclude, level, one;
  include.rules = {pattern("ERROR")};
  exclude.rules = {pattern("DEBUG", filter::RuleAction::exclude)};
  level.rules = {{true, filter::RuleAction::include, filter::LevelCondition{logs::Level::warning}}};
  one.rules = {pattern("user17"),
               pattern("ERROR")};  // two literals: the many-literal scan, its smallest case
  const std::pair<const char*, filter::FilterOptions> cases[] = {{"include", include},
                                                                 {"exclude", exclude},
                                                                 {"level", level},
                                                                 {"literals-2", one},
                                                                 {"literals-10000", manyLiterals()}};

  std::printf("{");
  bool first = true;
  for (const auto& [name, options] : cases) {
    const auto compiled = filter::compileFilter(options);
    std::vector<double> seconds;
    int64_t shown = 0;
    for (int rep = 0; rep < reps; ++rep) {
      const auto start = std::chrono::steady_clock::now();
      const auto result = filter::evaluateFilter(*compiled, source, context, {}, nullptr, nullptr, &pool);
      seconds.push_back(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
      shown = result.projection->visibleLineCount();
    }
    std::sort(seconds.begin(), seconds.end());
    std::printf("%s\"%s\": {\"seconds\": %.6f, \"shown\": %lld}", first ? "" : ", ", name,
                seconds[seconds.size() / 2], static_cast<long long>(shown));
    first = false;
  }
  std::printf(", \"lines\": %lld, \"threads\": %zu}\n",
              static_cast<long long>(log->lines->snapshot().knownLineCount()), threads);
  return 0;
}
