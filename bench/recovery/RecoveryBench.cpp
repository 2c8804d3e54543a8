// quorin-bench-recovery FILE [KEYSTROKES]
//
// What crash recovery costs. Typing: 2 × KEYSTROKES characters (default
// 2,000) typed at one place in a document over FILE cut into 100,000
// pieces, every other key press with the document's journal attached
// (median and p99 of each half). Recovery: a journal of 10,000 edits spread
// over the file (a Replace All of 10,000 sites, then undo and redo) read
// back and replayed onto the file, against opening the file (mapping it and
// counting its lines), which recovery does first anyway. One JSON object on
// stdout; bench/run prints the ratios.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <sstream>
#include <vector>

#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "recovery/JournalKeeper.h"
#include "recovery/Recovery.h"
#include "storage/MMapWrapper.h"

namespace {

using namespace quorin;
using Clock = std::chrono::steady_clock;

double seconds(Clock::duration d) { return std::chrono::duration<double>(d).count(); }

std::shared_ptr<document::Document> openDocument(const char* path, dispatch::ManualMainQueue& main) {
  document::OpenOptions options;
  options.mainQueue = &main;
  options.watchFile = false;
  options.watchMemoryPressure = false;
  options.compactionPieceThreshold = std::numeric_limits<int64_t>::max();
  auto doc = document::Document::open(path, std::move(options));
  if (!doc) {
    std::fprintf(stderr, "%s\n", doc.error().describe().c_str());
    std::exit(2);
  }
  while (!(*doc)->waitForLineIndex(std::chrono::milliseconds(100))) main.runPending();
  main.runPending();
  return *doc;
}

std::vector<storage::PieceTable::BulkEditSite> spread(int64_t length, int64_t count) {
  std::vector<storage::PieceTable::BulkEditSite> sites;
  for (int64_t i = 0; i < count; ++i) {
    const int64_t at = length / (count + 1) * (i + 1);
    sites.push_back({{at, at + 1}, "#"});
  }
  return sites;
}

std::shared_ptr<recovery::JournalKeeper> keeperFor(document::Document& doc,
                                                   const std::filesystem::path& dir) {
  return std::make_shared<recovery::JournalKeeper>(recovery::JournalKeeper::Options{
      .directory = dir, .header = {.path = doc.path(), .encoding = "utf8", .lineEnding = "lf"}, .text = {}});
}

struct Percentiles {
  double median = 0, p99 = 0;
};
Percentiles percentiles(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return {v[v.size() / 2], v[std::min(v.size() - 1, v.size() * 99 / 100)]};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorin-bench-recovery FILE [KEYSTROKES]\n");
    return 2;
  }
  const int keys = argc > 2 ? std::atoi(argv[2]) : 2000;
  const auto dir =
      std::filesystem::temp_directory_path() / ("quorin-bench-recovery-" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  dispatch::ManualMainQueue main;

  // Typing with and without the journal in one document, the recorder
  // attached for every other key: two documents differ by more than the
  // journal (where their pieces landed in memory).
  auto doc = openDocument(argv[1], main);
  (void)doc->replaceAll(spread(doc->snapshot().text.totalLength(), 50'000), "Fragment", {}, {});
  auto keeper = keeperFor(*doc, dir);
  std::vector<double> with, without;
  const int64_t at = doc->snapshot().text.totalLength() / 2;
  for (int k = 0; k < 2 * keys; ++k) {
    const bool journaled = k % 2 == 0;
    doc->setEditRecorder(journaled ? keeper : nullptr);
    const auto start = Clock::now();
    (void)doc->insert(at + k, "k", {}, {});
    (void)doc->snapshot();
    if (journaled) keeper->flushIfDue();
    (journaled ? with : without).push_back(seconds(Clock::now() - start));
  }
  const auto typed = percentiles(with), baseline = percentiles(without);
  keeper->closed();
  doc.reset();

  // A journal of 10,000 edits: a Replace All, its undo and its redo.
  std::filesystem::path journalPath;
  {
    auto doc = openDocument(argv[1], main);
    auto recorder = keeperFor(*doc, dir);
    doc->setEditRecorder(recorder);
    (void)doc->replaceAll(spread(doc->snapshot().text.totalLength(), 10'000), "Replace All", {}, {});
    doc->undo();
    doc->redo();
    journalPath = recorder->journalPath().value();
    std::filesystem::copy_file(journalPath, dir / "kept.qrj");
    recorder->closed();
  }
  const auto openStart = Clock::now();
  openDocument(argv[1], main);
  const double open = seconds(Clock::now() - openStart);
  const auto recoverStart = Clock::now();
  std::ifstream in(dir / "kept.qrj", std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  const auto parsed = recovery::parseJournal(bytes.str()).value();
  storage::PieceTable table(storage::OriginalBuffer::make(storage::MMapWrapper::open(argv[1]).value()));
  if (!recovery::replayRecords(table, parsed.records)) return 2;
  const double recover = seconds(Clock::now() - recoverStart);
  const auto journalBytes = std::filesystem::file_size(dir / "kept.qrj");
  std::filesystem::remove_all(dir);

  std::printf(
      "{\"typing\": {\"medianSeconds\": %.9f, \"p99Seconds\": %.9f, \"baselineMedianSeconds\": %.9f, "
      "\"baselineP99Seconds\": %.9f, \"keys\": %d}, \"recovery\": {\"seconds\": %.6f, \"openSeconds\": %.6f, "
      "\"journalBytes\": %ju, \"edits\": 30000}}\n",
      typed.median, typed.p99, baseline.median, baseline.p99, keys, recover, open,
      static_cast<uintmax_t>(journalBytes));
  return 0;
}
