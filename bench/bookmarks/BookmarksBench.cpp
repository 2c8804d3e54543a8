// quorin-bench-bookmarks FILE [--threads N] [--reps N]
//
// Bookmarks at the scale of a large log, once the document is open (line
// index built, not counted). Prints one JSON object:
//   bookmarkAll: every line with "ERROR" bookmarked (the search, then one
//     sorted bulk insert), for bench/run to set against `rg -c` on the file;
//   edits: 20,000 edits that add or remove line breaks above 100,000
//     bookmarks, against the same edits on a sorted vector shifted by hand
//     (what a plain list costs);
//   sidecar: the sidecar of those bookmarks built (each line hashed), written
//     as JSON and read back.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include "bookmarks/BookmarkSet.h"
#include "bookmarks/Reanchor.h"
#include "bookmarks/Sidecar.h"
#include "dispatch/WorkerPool.h"
#include "search/SearchEngine.h"
#include "support/IndexedLog.h"

namespace {

using namespace quorin;
using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

template <typename F>
double median(int reps, F&& run) {
  std::vector<double> seconds;
  for (int rep = 0; rep < reps; ++rep) {
    const auto start = Clock::now();
    run();
    seconds.push_back(since(start));
  }
  std::sort(seconds.begin(), seconds.end());
  return seconds[seconds.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const auto log = bench::openIndexedLog(argc, argv, "quorin-bench-bookmarks");
  if (!log) return 2;
  const logs::LogSource source = log->source();
  dispatch::WorkerPool pool(log->threads);
  const search::SearchEngine engine({}, &pool);

  bookmarks::BookmarkSet set;
  const double all = median(log->reps, [&] {
    const auto result = engine.search(1'000'000, {.query = "ERROR"}, source.text, source.lines, {});
    std::vector<int64_t> lines;
    lines.reserve(result.matches.size());
    for (const auto& match : result.matches) {
      if (lines.empty() || lines.back() != match.line) lines.push_back(match.line);
    }
    set.clear();
    set.addAll(lines);
  });

  // 100,000 bookmarks spread over the file; edits in its first tenth.
  const int64_t lineCount = source.lines.lineCount();
  std::vector<int64_t> spread;
  for (int64_t i = 0; i < 100'000; ++i) spread.push_back(i * (lineCount / 100'000));
  std::mt19937 random(7);
  std::vector<std::pair<int64_t, int>> edits;
  for (int i = 0; i < 20'000; ++i) {
    edits.emplace_back(static_cast<int64_t>(random() % std::max<int64_t>(1, lineCount / 10)), i % 2 ? 1 : -1);
  }
  const double ours = median(log->reps, [&] {
    bookmarks::BookmarkSet marks;
    marks.addAll(spread);
    for (const auto& [line, delta] : edits) marks.applyEdit(line, delta < 0 ? 1 : 0, delta > 0 ? 1 : 0);
  });
  const double plain = median(log->reps, [&] {
    std::vector<int64_t> marks = spread;
    for (const auto& [line, delta] : edits) {
      if (delta < 0) std::erase(marks, line + 1);
      for (auto it = std::upper_bound(marks.begin(), marks.end(), line - (delta < 0 ? -1 : 0));
           it != marks.end(); ++it) {
        *it += delta;
      }
    }
  });

  std::vector<bookmarks::Bookmark> marks;
  for (const int64_t line : spread)
    marks.push_back({line, line % 7 == 0 ? "checked: the retry came later" : ""});
  const document::DocumentSnapshot snapshot{source.text, source.lines};
  std::string json;
  const double build = median(log->reps, [&] {
    json = bookmarks::sidecarToJson(bookmarks::sidecarFor({.path = argv[1]}, marks, {}, "", snapshot));
  });
  size_t read = 0;
  const double parse = median(log->reps, [&] { read = bookmarks::sidecarFromJson(json)->bookmarks.size(); });

  std::printf(
      "{\"bookmarkAll\": {\"seconds\": %.6f, \"bookmarks\": %zu}, \"edits\": {\"seconds\": %.6f, "
      "\"plainSeconds\": %.6f, \"count\": %zu}, \"sidecar\": {\"writeSeconds\": %.6f, \"readSeconds\": %.6f, "
      "\"bytes\": %zu, \"bookmarks\": %zu}}\n",
      all, set.size(), ours, plain, edits.size(), build, parse, json.size(), read);
  return 0;
}
