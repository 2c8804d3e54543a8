// quorin-bench-typing FILE [KEYSTROKES]
//
// Typing latency in a fragmented document: FILE is opened as the editor
// opens it, cut into 100,000 pieces by one bulk edit (50,000 one-byte
// replacements at even spacing, what a Replace All leaves behind before idle
// compaction runs), and then KEYSTROKES characters (default 2,000) are typed
// at one place in the middle. A keystroke is what the editor does per key
// press: the edit through the document (piece table, line index update,
// undo) and the snapshot a view and the background jobs take afterwards.
//
// Baseline: the same keystrokes, the same way, in the same file opened fresh
// (one piece). The ratio says what fragmentation costs a key press; the
// absolute figures are printed too, since latency has a human threshold
// (a frame is 16.7 ms at 60 Hz). Runs alternate between the two documents.
// Output: one JSON object on stdout.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "dispatch/Clock.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"

namespace {

using quorin::document::Document;
using quorin::persistence::TextSelection;

constexpr int64_t kTargetPieces = 100'000;

// Lets the line index finish, so that typing is not measured against a
// build running on the other core.
void waitForIndex(Document& doc, quorin::dispatch::ManualMainQueue& main) {
  while (!doc.waitForLineIndex(std::chrono::milliseconds(100))) main.runPending();
  main.runPending();
}

std::shared_ptr<Document> openDocument(const char* path, quorin::dispatch::ManualMainQueue& main) {
  quorin::document::OpenOptions options;
  options.mainQueue = &main;
  options.watchFile = false;
  options.watchMemoryPressure = false;
  // Compaction would merge the pieces while the benchmark waits; the
  // scenario is the fragmented document before that happens.
  options.compactionPieceThreshold = std::numeric_limits<int64_t>::max();
  auto doc = Document::open(path, std::move(options));
  if (!doc) {
    std::fprintf(stderr, "%s\n", doc.error().describe().c_str());
    std::exit(2);
  }
  waitForIndex(**doc, main);
  return *doc;
}

void fragment(Document& doc) {
  // Each replaced byte splits a piece in three: n sites give 2n + 1 pieces.
  const int64_t sites = kTargetPieces / 2;
  const int64_t step = doc.length() / (sites + 1);
  std::vector<quorin::storage::PieceTable::BulkEditSite> edits;
  edits.reserve(static_cast<size_t>(sites));
  for (int64_t i = 1; i <= sites; ++i) edits.push_back({{i * step, i * step + 1}, "#"});
  if (!doc.replaceAll(edits, "fragment", TextSelection::at(0), TextSelection::at(0))) {
    std::fprintf(stderr, "the bulk edit was refused\n");
    std::exit(2);
  }
}

// Nanoseconds of one key press at `offset`.
uint64_t keystroke(Document& doc, quorin::dispatch::ManualMainQueue& main, int64_t offset, char key) {
  const uint64_t start = quorin::dispatch::monotonicNanos();
  const std::string bytes(1, key);
  const auto edited = doc.insert(offset, bytes, TextSelection::at(offset), TextSelection::at(offset + 1));
  const auto snapshot = doc.snapshot();
  const uint64_t elapsed = quorin::dispatch::monotonicNanos() - start;
  if (!edited || snapshot.text.totalLength() != doc.length()) std::exit(3);
  main.runPending();  // listeners' posted work, outside the measured time as a view would do it later
  return elapsed;
}

double percentile(std::vector<uint64_t> values, double p) {
  std::sort(values.begin(), values.end());
  const auto at = static_cast<size_t>(p * static_cast<double>(values.size() - 1));
  return static_cast<double>(values[at]) / 1e3;  // microseconds
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorin-bench-typing FILE [KEYSTROKES]\n");
    return 2;
  }
  const int keys = argc > 2 ? std::atoi(argv[2]) : 2000;
  quorin::dispatch::ManualMainQueue main;
  auto fragmented = openDocument(argv[1], main);
  fragment(*fragmented);  // a bulk edit this wide restarts the line index
  waitForIndex(*fragmented, main);
  auto whole = openDocument(argv[1], main);
  const int64_t pieces = static_cast<int64_t>(fragmented->pieceCount());

  // Typing in the middle, between two replaced bytes: the piece being typed
  // into grows, as in the editor.
  int64_t atFragmented = fragmented->length() / 2 + 7;
  int64_t atWhole = whole->length() / 2 + 7;
  std::vector<uint64_t> fragmentedTimes, wholeTimes;
  const std::string_view typed = "the quick brown fox jumps over the lazy dog\n";
  for (int i = 0; i < keys; ++i) {
    const char key = typed[static_cast<size_t>(i) % typed.size()];
    fragmentedTimes.push_back(keystroke(*fragmented, main, atFragmented++, key));
    wholeTimes.push_back(keystroke(*whole, main, atWhole++, key));
  }
  std::printf(
      "{\"pieces\":%lld,\"keystrokes\":%d,\"medianMicros\":%.2f,\"p99Micros\":%.2f,"
      "\"baselineMedianMicros\":%.2f,\"baselineP99Micros\":%.2f}\n",
      static_cast<long long>(pieces), keys, percentile(fragmentedTimes, 0.5),
      percentile(fragmentedTimes, 0.99), percentile(wholeTimes, 0.5), percentile(wholeTimes, 0.99));
  return 0;
}
