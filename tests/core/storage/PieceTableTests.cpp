#include <gtest/gtest.h>

#include <latch>
#include <map>
#include <random>
#include <thread>

#include "storage/PieceTable.h"
#include "storage/StorageTestSupport.h"

namespace quorin::storage {
namespace {

using testing::TempDir;
using testing::wholeText;
using Site = PieceTable::BulkEditSite;

std::unique_ptr<PieceTable> tableOver(const TempDir& dir, std::string_view bytes) {
  return std::make_unique<PieceTable>(testing::bufferOver(dir, bytes));
}

std::string digits(size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i) s.push_back(static_cast<char>('0' + i % 10));
  return s;
}

TEST(PieceTable, EmptyDocument) {
  TempDir dir;
  auto table = tableOver(dir, "");
  EXPECT_EQ(table->pieceCount(), 0u);
  EXPECT_EQ(table->readBytes({0, 10}), std::nullopt);
  EXPECT_EQ(table->byte(0), std::nullopt);
  const auto result = table->insert("x", 0);
  EXPECT_EQ(result.newVersion, 1);
  EXPECT_EQ(table->snapshot().pieces(), (std::vector<Piece>{{PieceSource::append, 0, 1}}));
}

TEST(PieceTable, EditResults) {
  TempDir dir;
  auto table = tableOver(dir, digits(200));
  EXPECT_EQ(table->insert("a\nb\n", 100), (EditResult{100, 0, 4, 4, 104, 1, {102, 104}}));
  // Deletes clamp to the end.
  EXPECT_EQ(table->deleteRange({190, 500}), (EditResult{190, 14, 0, -14, 190, 2, {}}));
  EXPECT_EQ(table->totalLength(), 190);

  auto cr = std::make_unique<PieceTable>(testing::bufferOver(dir, "x\ry"));
  EXPECT_EQ(cr->insert("a\nb\n", 1).insertedNewlineOffsets, std::vector<int64_t>{});
  EXPECT_EQ(cr->insert("\r\r", 0).insertedNewlineOffsets, (std::vector<int64_t>{1, 2}));
}

TEST(PieceTable, ImpossibleEditsStopTheProgram) {
  TempDir dir;
  auto table = tableOver(dir, "abc");
  EXPECT_DEATH(table->insert("x", 4), "insert offset outside the document");
  EXPECT_DEATH(table->deleteRange({2, 1}), "reversed");
}

TEST(PieceTable, BulkEditSkipsSitesOutOfOrder) {
  TempDir dir;
  auto table = tableOver(dir, digits(40));
  const std::vector<Site> sites = {{{10, 20}, "x"}, {{15, 30}, "y"}, {{20, 25}, ""},
                                   {{25, 25}, "z"}, {{35, 33}, "w"}, {{38, 99}, "!"}};
  const auto result = table->applyBulkEdits(sites);
  EXPECT_EQ(result.siteApplied, (std::vector<bool>{true, false, true, true, false, true}));
  EXPECT_EQ(result.sitesApplied, 4);
  EXPECT_EQ(result.bytesRemoved, 10 + 5 + 2);
  EXPECT_EQ(result.bytesInserted, 3);
  EXPECT_EQ(result.netByteDelta, -14);
  EXPECT_EQ(result.newVersion, 1);
  const std::string d = digits(40);
  EXPECT_EQ(wholeText(*table), d.substr(0, 10) + "x" + "z" + d.substr(25, 13) + "!");

  EXPECT_EQ(table->applyBulkEdits({}).newVersion, 1);
}

TEST(PieceTable, CompactionMergesAdjacentRunsWithoutANewVersion) {
  TempDir dir;
  auto table = tableOver(dir, digits(10));
  table->insert("ab", 4);
  table->insert("cd", 6);  // continues "ab" in the append buffer
  ASSERT_EQ(table->pieceCount(), 4u);
  const auto result = table->compact(10);
  EXPECT_TRUE(result.swapped);
  EXPECT_EQ(result.piecesBefore, 4);
  EXPECT_EQ(result.piecesAfter, 3);
  EXPECT_EQ(table->version(), 2);
  EXPECT_EQ(wholeText(*table), "0123abcd456789");

  // Deleting text and undoing by hand leaves original pieces that continue each other.
  table->deleteRange({4, 8});
  EXPECT_EQ(table->compact(10).piecesAfter, 1);
  EXPECT_FALSE(table->compact(10).swapped);  // nothing left to merge

  // The budget is looked at before every step: one already spent merges nothing, however few the pieces.
  table->insert("ef", 2);
  table->insert("gh", 4);
  const auto spent = table->compact(-1);
  EXPECT_FALSE(spent.swapped);
  EXPECT_EQ(spent.piecesAfter, spent.piecesBefore);
}

TEST(PieceTable, AnEditDuringCompactionWins) {
  TempDir dir;
  auto table = tableOver(dir, digits(1 << 20));
  int discarded = 0;
  for (int attempt = 0; attempt < 20 && discarded == 0; ++attempt) {
    // Two sites at one position append "x" then "y": adjacent in the append
    // buffer, so every pair is mergeable and the merge takes a while.
    std::vector<Site> sites;
    for (int64_t at = 0; at < (1 << 20); at += 16) {
      sites.push_back({{at, at}, "x"});
      sites.push_back({{at, at}, "y"});
    }
    table->applyBulkEdits(sites);
    const std::string expected = "e" + wholeText(*table);
    const int64_t version = table->version();
    std::latch started(1);
    PieceTable::CompactionResult result;
    std::thread compactor([&] {
      started.count_down();
      result = table->compact(10);
    });
    started.wait();
    table->insert("e", 0);
    compactor.join();
    ASSERT_EQ(wholeText(*table), expected);
    ASSERT_EQ(table->version(), version + 1);
    discarded += result.swapped ? 0 : 1;
  }
  EXPECT_GT(discarded, 0);
}

TEST(PieceTable, ReadsClampAndDecode) {
  TempDir dir;
  PieceTable table(testing::bufferOver(dir, std::string("\xFF\xFE"
                                                        "h\0i\0",
                                                        6)));
  EXPECT_EQ(table.text({0, 4}), "hi");
  EXPECT_EQ(table.text({0, 3}), "h\xEF\xBF\xBD");  // a cut code unit shows as U+FFFD
  EXPECT_EQ(table.readBytes({2, 100}), std::string("i\0", 2));
  EXPECT_EQ(table.readBytes({4, 100}), std::nullopt);
  EXPECT_EQ(table.readBytes({-5, 1}), "h");
  EXPECT_EQ(table.byte(4), std::nullopt);
}

// Random edits against a plain string. Small inserts keep the piece count
// high; an occasional large one crosses the append buffer's blocks.
TEST(PieceTable, RandomEditsMatchAPlainString) {
  TempDir dir;
  std::mt19937_64 rng(20261122);
  auto randomBytes = [&](size_t n) {
    std::string s(n, '\0');
    for (auto& c : s) c = "ab\ncd\r\xC3\xA9 "[rng() % 9];
    return s;
  };
  auto pick = [&](int64_t bound) { return bound <= 0 ? 0 : static_cast<int64_t>(rng() % (bound + 1)); };

  std::string model = randomBytes(5000);
  PieceTable table(testing::bufferOver(dir, model));
  std::vector<std::pair<PieceTableSnapshot, std::string>> kept;
  int64_t version = 0;

  for (int step = 0; step < 3000; ++step) {
    const int64_t length = static_cast<int64_t>(model.size());
    const auto op = rng() % 100;
    if (op < 45) {
      const int64_t at = pick(length);
      const auto bytes = randomBytes(step == 1000 ? 300'000 : rng() % 9);
      table.insert(bytes, at);
      model.insert(static_cast<size_t>(at), bytes);
      version += bytes.empty() ? 0 : 1;
    } else if (op < 85) {
      const int64_t start = pick(length + 5), end = start + pick(40);
      table.deleteRange({start, end});
      if (start < length) {
        model.erase(static_cast<size_t>(start), static_cast<size_t>(std::min(end, length) - start));
        version += std::min(end, length) > start ? 1 : 0;
      }
    } else if (op < 97) {
      std::vector<Site> sites;
      std::string next;
      int64_t cursor = 0;
      for (int64_t at = pick(length); at < length && sites.size() < 40; at += 1 + pick(60)) {
        const int64_t end = std::min(length, at + pick(5));
        sites.push_back({{at, end}, randomBytes(rng() % 4)});
        next +=
            model.substr(static_cast<size_t>(cursor), static_cast<size_t>(at - cursor)) + sites.back().bytes;
        cursor = at = end;
        if (rng() % 5 == 0) sites.push_back({{at - 1, at + 2}, "overlap"});  // must be skipped
      }
      next += model.substr(static_cast<size_t>(cursor));
      const auto result = table.applyBulkEdits(sites);
      for (size_t i = 0; i < sites.size(); ++i) ASSERT_EQ(result.siteApplied[i], sites[i].bytes != "overlap");
      model = next;
      version += sites.empty() ? 0 : 1;
    } else {
      table.compact(10);
    }
    ASSERT_EQ(table.totalLength(), static_cast<int64_t>(model.size())) << "step " << step;
    ASSERT_EQ(table.version(), version);
    if (step % 50 == 0) {
      ASSERT_EQ(wholeText(table), model) << "step " << step;
      kept.emplace_back(table.snapshot(), model);
    }
    const int64_t probe = pick(static_cast<int64_t>(model.size()));
    const auto expectedByte = probe < static_cast<int64_t>(model.size())
                                  ? std::optional<uint8_t>(static_cast<uint8_t>(model[probe]))
                                  : std::nullopt;
    ASSERT_EQ(table.byte(probe), expectedByte);
    const int64_t rangeEnd = probe + pick(100);
    if (rangeEnd > probe && probe < static_cast<int64_t>(model.size())) {
      ASSERT_EQ(table.readBytes({probe, rangeEnd}),
                model.substr(static_cast<size_t>(probe), rangeEnd - probe));
    }
  }
  for (const auto& [snapshot, text] : kept) ASSERT_EQ(wholeText(snapshot), text);
}

// Readers on snapshots while one thread edits and another compacts. Every
// snapshot must read exactly the text of its version. Run under TSan too.
TEST(PieceTable, SnapshotsStayConsistentUnderConcurrentEditsAndCompaction) {
  TempDir dir;
  PieceTable table(testing::bufferOver(dir, digits(4096)));
  std::mutex historyLock;
  std::map<int64_t, std::string> history{{0, digits(4096)}};
  std::atomic<bool> done{false};

  std::vector<std::thread> threads;
  threads.emplace_back([&] {
    while (!done) table.compact(0.01);
  });
  for (int r = 0; r < 3; ++r) {
    threads.emplace_back([&] {
      while (!done) {
        const auto snapshot = table.snapshot();
        const std::string text = wholeText(snapshot);
        for (;;) {  // the editor records a version's text just after making it
          std::lock_guard lock(historyLock);
          if (auto it = history.find(snapshot.version()); it != history.end()) {
            ASSERT_EQ(text, it->second);
            break;
          }
          std::this_thread::yield();
        }
      }
    });
  }
  std::mt19937 rng(7);
  std::string model = digits(4096);
  for (int i = 0; i < 1500; ++i) {
    const auto at = static_cast<int64_t>(rng() % model.size());
    if (i % 3 == 2) {
      table.deleteRange({at, at + 3});
      model.erase(static_cast<size_t>(at), 3);
    } else {
      table.insert("xy", at);
      model.insert(static_cast<size_t>(at), "xy");
    }
    std::lock_guard lock(historyLock);
    history[table.version()] = model;
  }
  done = true;
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wholeText(table), model);
}

}  // namespace
}  // namespace quorin::storage
