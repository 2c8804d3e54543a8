#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "csv/CSVRecordIndex.h"
#include "csv/CsvTestSupport.h"
#include "dispatch/SerialQueue.h"
#include "support/ManualExecutor.h"

namespace quorin::csv {
namespace {

using testing::buildIndex;
using testing::bytesOf;
using testing::imageOf;
using testing::readRfc4180;
using testing::Table;

Table tableOf(const std::vector<ScannedRecord>& records, bool unterminated) {
  Table table;
  for (const ScannedRecord& record : records) {
    table.starts.push_back(record.start);
    table.fieldCounts.push_back(record.fieldCount);
    table.anomalies.push_back(record.malformed);
  }
  table.unterminatedQuote = unterminated;
  return table;
}

// Feeds `text` to a scanner in pieces cut at `cuts` (ascending), bytewise or fast.
Table scanInPieces(std::string_view text, char delimiter, char terminator, bool bytewise,
                   std::vector<size_t> cuts = {}) {
  RecordScanner scanner(static_cast<uint8_t>(delimiter), static_cast<uint8_t>(terminator));
  std::vector<ScannedRecord> records;
  cuts.push_back(text.size());
  size_t from = 0;
  for (const size_t cut : cuts) {
    const auto piece = bytesOf(text.substr(from, cut - from));
    bytewise ? scanner.scanBytewise(piece, records) : scanner.scan(piece, records);
    from = cut;
  }
  if (auto trailing = scanner.trailingRecord()) records.push_back(*trailing);
  return tableOf(records, scanner.insideQuotes());
}

std::vector<testing::TableShape> shapes() {
  return {{',', "\n", 40, 4, true},   {',', "\r\n", 40, 3, true}, {';', "\r", 40, 5, true},
          {'\t', "\n", 40, 2, false}, {'|', "\r\n", 40, 1, true}, {',', "\n", 3, 12, true}};
}

TEST(CsvRecordScannerTest, FastAndBytewiseScansAgreeWithAPlainReaderOnRandomTables) {
  std::mt19937_64 rng(20260904);
  for (int round = 0; round < 300; ++round) {
    for (const auto& shape : shapes()) {
      const std::string text = testing::randomTable(rng, shape);
      const char terminator = shape.lineEnd == "\r" ? '\r' : '\n';
      const Table expected = readRfc4180(text, shape.delimiter, terminator);
      ASSERT_EQ(scanInPieces(text, shape.delimiter, terminator, true), expected) << text;
      ASSERT_EQ(scanInPieces(text, shape.delimiter, terminator, false), expected) << text;
      const size_t cut = text.empty() ? 0 : rng() % text.size();
      ASSERT_EQ(scanInPieces(text, shape.delimiter, terminator, false, {cut, cut + (text.size() - cut) / 2}),
                expected)
          << text;
    }
  }
}

TEST(CsvRecordScannerTest, FollowsTheStateMachineOnOddInput) {
  // Fast and bytewise agree wherever the text is cut and wherever it falls
  // against the 64-byte blocks.
  auto scan = [](std::string_view text, char terminator = '\n') {
    const Table bytewise = scanInPieces(text, ',', terminator, true);
    for (size_t pad = 0; pad <= 64; pad += 8) {
      const std::string padded = std::string(pad, terminator) + std::string(text);
      const Table expected = scanInPieces(padded, ',', terminator, true);
      for (size_t cut = 0; cut <= padded.size(); ++cut)
        EXPECT_EQ(scanInPieces(padded, ',', terminator, false, {cut}), expected) << padded << " cut " << cut;
    }
    return bytewise;
  };
  // A CR outside quotes does not end a field start, so a quote after it still opens.
  EXPECT_EQ(scan("a,\r\"x,y\"\n").fieldCounts, std::vector<int64_t>{2});
  // A byte other than the line end after a closing quote and CR is malformed and swallowed.
  EXPECT_EQ(scan("\"a\"\r,b\n"), (Table{{0}, {1}, {true}, false}));
  EXPECT_EQ(scan("\"a\"\r\n\"b\"\r"), (Table{{0, 5}, {1, 1}, {false, false}, false}));
  // In CR-only files a CR after a closing quote ends the record.
  EXPECT_EQ(scan("\"a\"\r\r", '\r'), (Table{{0, 4}, {1, 1}, {false, false}, false}));
  EXPECT_EQ(scan(""), (Table{}));
  EXPECT_EQ(scan("\n\n"), (Table{{0, 1}, {1, 1}, {false, false}, false}));
  EXPECT_EQ(scan("x,\"ab\n"), (Table{{0}, {2}, {true}, true}));
}

TEST(CsvRecordIndexTest, BuildMatchesThePlainReaderAtAnyChunkSize) {
  std::mt19937_64 rng(7);
  for (int round = 0; round < 40; ++round) {
    for (const auto& shape : shapes()) {
      const std::string text = testing::randomTable(rng, shape);
      const char terminator = shape.lineEnd == "\r" ? '\r' : '\n';
      const Table expected = readRfc4180(text, shape.delimiter, terminator);
      const auto whole = buildIndex(text, shape.delimiter, terminator);
      EXPECT_TRUE(whole->isComplete());
      ASSERT_EQ(imageOf(*whole).table, expected) << text;
      const int64_t chunk = 1 + static_cast<int64_t>(rng() % 97);
      ASSERT_EQ(imageOf(*buildIndex(text, shape.delimiter, terminator, chunk)), imageOf(*whole)) << chunk;
    }
  }
}

TEST(CsvRecordIndexTest, AQuotedLineBreakAcrossTheChunkBoundaryStaysInOneRow) {
  std::string big(static_cast<size_t>(kIndexChunkBytes) - 10, 'x');
  big += ",\"line\nbreak\",y\nlast";
  const auto index = buildIndex(big);
  EXPECT_EQ(index->rowCount(), 2);
  EXPECT_EQ(index->fieldCount(0), 3);
  EXPECT_EQ(index->rowStart(1), static_cast<int64_t>(big.size()) - 4);
}

TEST(CsvRecordIndexTest, AnswersQueriesAndHoldsTheLastSpanUntilComplete) {
  CSVRecordIndex index(CSVDelimiter::comma(), 20);
  const std::vector<ScannedRecord> rows = {{0, 2, false}, {4, 2, true}, {8, 2, false}};
  index.commitChunk(rows, 12);
  EXPECT_EQ(index.rowSpan(1), (storage::ByteRange{4, 8}));
  EXPECT_EQ(index.rowSpan(2), std::nullopt);  // may still grow
  EXPECT_EQ(index.rowAtOffset(11), 2);
  EXPECT_EQ(index.rowAtOffset(12), std::nullopt);
  EXPECT_EQ(std::vector<bool>({index.isAnomalous(1), index.isAnomalous(2), index.isAnomalous(3)}),
            std::vector<bool>({true, false, true}));       // out of range counts as anomalous
  EXPECT_EQ(index.parseState(), CSVParseState::degraded);  // not settled: graded failed, shown degraded
  index.complete(ScannedRecord{12, 2, false}, false, 20);
  EXPECT_EQ(index.rowSpan(3), (storage::ByteRange{12, 20}));
  EXPECT_EQ(index.rowSpan(4), std::nullopt);
  EXPECT_EQ(index.rowAtOffset(7), 1);
  EXPECT_EQ(index.rowAtOffset(19), 3);
  EXPECT_EQ(index.statistics(), (CSVStructureStats{2, 4, 1, 1, {1}, false}));
  EXPECT_EQ(index.parseState(), CSVParseState::degraded);  // 1 in 4 is over 10 %

  EXPECT_EQ(buildIndex("")->parseState(), CSVParseState::normal);
  // A last line without a line end is still a row; one left inside quotes is malformed.
  const auto open = buildIndex("a,b\nc,\"d\ne");
  EXPECT_EQ(open->rowSpan(1), (storage::ByteRange{4, 10}));
  EXPECT_EQ(open->statistics(), (CSVStructureStats{2, 2, 1, 1, {1}, true}));
}

std::vector<ScannedRecord> uniformRows(int64_t firstStart, int count, int64_t fields) {
  std::vector<ScannedRecord> rows;
  for (int i = 0; i < count; ++i) rows.push_back({firstStart + 10 * i, fields, false});
  return rows;
}

TEST(CsvRecordIndexTest, SettlesExpectedColumnsAtAThousandRowsThenCountsIncrementally) {
  CSVRecordIndex small(CSVDelimiter::comma(), 0);
  small.commitChunk(uniformRows(0, 999, 3), 9990);
  EXPECT_EQ(small.statistics().expectedColumns, 0);
  small.complete(std::nullopt, false, 9990);
  EXPECT_EQ(small.statistics().expectedColumns, 3);

  CSVRecordIndex tied(CSVDelimiter::comma(), 0);
  tied.commitChunk(uniformRows(0, 500, 3), 5000);
  tied.commitChunk(uniformRows(5000, 499, 4), 9990);
  EXPECT_EQ(tied.statistics().expectedColumns, 0);
  tied.commitChunk(uniformRows(9990, 1, 4), 10000);
  const CSVStructureStats settled = tied.statistics();
  EXPECT_EQ(settled.expectedColumns, 4);
  EXPECT_EQ(settled.malformedRowCount, 500);
  EXPECT_EQ(settled.maxContiguousMalformed, 500);
  // After settling, counts grow with each commit.
  tied.commitChunk(uniformRows(10000, 3, 3), 10030);
  tied.commitChunk(uniformRows(10030, 1, 4), 10040);
  tied.commitChunk(uniformRows(10040, 2, 3), 10060);
  EXPECT_EQ(tied.statistics().malformedRowCount, 505);
  EXPECT_EQ(tied.statistics().malformedRows.back(), 1005);

  // The list of malformed rows stops at 10,000; the count goes on.
  tied.commitChunk(uniformRows(10'060, 10'000, 2), 110'060);
  const CSVStructureStats many = tied.statistics();
  EXPECT_EQ(many.malformedRowCount, 10'505);
  EXPECT_EQ(many.malformedRows.size(), kMalformedRowsCap);
  EXPECT_EQ(many.maxContiguousMalformed, 10'002);  // the two rows before were malformed too
  // Rows wider than 65,535 fields saturate.
  tied.commitChunk(std::vector<ScannedRecord>{{110'060, 70'000, false}}, 110'070);
  EXPECT_EQ(tied.fieldCount(tied.rowCount() - 1), kMaxFieldCount);
}

// ---- Edit patches against a rebuild of the edited text ----

std::string rowText(int i, int columns) {
  std::string row = "r" + std::to_string(i);
  for (int c = 1; c < columns; ++c) row += i % 7 == 3 && c == 1 ? ",\"q,\n" + std::to_string(c) + "\"" : ",v";
  return row + "\n";
}

std::string tableText(int rows, int columns) {
  std::string text;
  for (int i = 0; i < rows; ++i) text += i == 5 ? "\"bad\"x,v,v\n" : rowText(i, columns);
  return text;
}

TEST(CsvRecordIndexTest, EditPatchesMatchARebuildOfTheEditedText) {
  for (const int rows : {12, 1100}) {
    const std::string text = tableText(rows, 3);
    const auto original = buildIndex(text, ',', '\n', 64);
    const int64_t start3 = *original->rowStart(3), start4 = *original->rowStart(4);
    const int64_t start8 = *original->rowStart(8), start10 = *original->rowStart(10);

    {  // A cell of row 3 grows by 5 bytes.
      std::string edited = text;
      edited.insert(static_cast<size_t>(start3 + 1), "xxxxx");
      const auto patched = buildIndex(text, ',', '\n', 64);
      patched->shiftRowsAfter(3, 5);
      EXPECT_EQ(imageOf(*patched), imageOf(*buildIndex(edited)));
      EXPECT_EQ(patched->totalBytes(), static_cast<int64_t>(edited.size()));
    }
    {  // Rows 0, 3 and 9 deleted (duplicates and strangers ignored).
      std::string edited = text;
      const int64_t start9 = *original->rowStart(9);
      edited.erase(static_cast<size_t>(start9), static_cast<size_t>(start10 - start9));
      edited.erase(static_cast<size_t>(start3), static_cast<size_t>(start4 - start3));
      edited.erase(0, static_cast<size_t>(*original->rowStart(1)));
      const auto patched = buildIndex(text, ',', '\n', 64);
      patched->removeRows(std::vector<int64_t>{9, 3, 0, 3, -1, 99999});
      EXPECT_EQ(imageOf(*patched), imageOf(*buildIndex(edited)));
    }
    {  // Rows 4..8 replaced by two new rows, one of them wider.
      const std::string fresh = "n1,\"two\nlines\",z\nn2,a,b,c\n";
      std::string edited = text;
      edited.replace(static_cast<size_t>(start4), static_cast<size_t>(start8 - start4), fresh);
      const auto patched = buildIndex(text, ',', '\n', 64);
      const std::vector<int64_t> starts = {start4, start4 + 17}, fields = {3, 4};
      patched->replaceRows(4, 8, starts, fields, static_cast<int64_t>(fresh.size()) - (start8 - start4));
      EXPECT_EQ(imageOf(*patched), imageOf(*buildIndex(edited)));
    }
    {  // A column appended to every row: ",c" before each line end.
      std::string edited;
      std::vector<int64_t> deltas, fields;
      for (int64_t row = 0; row < original->rowCount(); ++row) {
        const auto span = *original->rowSpan(row);
        edited +=
            text.substr(static_cast<size_t>(span.start), static_cast<size_t>(span.length() - 1)) + ",c\n";
        deltas.push_back(2);
        fields.push_back(*original->fieldCount(row) + 1);
      }
      const auto patched = buildIndex(text, ',', '\n', 64);
      patched->applyColumnEdit(deltas, fields, 1);
      EXPECT_EQ(imageOf(*patched), imageOf(*buildIndex(edited)));
    }
  }
}

TEST(CsvRecordIndexTest, PatchesThatMakeNoSenseAreIgnored) {
  const std::string text = "a\nbb\nccc\n";
  const auto index = buildIndex(text);
  const auto before = imageOf(*index);
  index->removeRows(std::vector<int64_t>{0, 1, 2});  // every row
  index->removeRows(std::vector<int64_t>{});
  index->shiftRowsAfter(0, 0);
  index->applyColumnEdit(std::vector<int64_t>{1, 1}, std::nullopt, 1);  // one delta short
  index->replaceRows(2, 1, {}, {}, 0);
  EXPECT_EQ(imageOf(*index), before);

  // Removing row 0 of three moves the others down by its length.
  index->removeRows(std::vector<int64_t>{0});
  EXPECT_EQ(index->rowStarts(0, 10), (std::vector<int64_t>{0, 3}));
  EXPECT_EQ(index->bytesScanned(), 7);

  // The last extra column deleted keeps expectedColumns at 1.
  index->applyColumnEdit(std::vector<int64_t>{0, 0}, std::nullopt, -1);
  EXPECT_EQ(index->statistics().expectedColumns, 1);
  // Offsets never go below zero.
  index->shiftRowsAfter(-1, -100);
  EXPECT_EQ(index->rowStarts(0, 10), (std::vector<int64_t>{0, 0}));
  EXPECT_EQ(index->bytesScanned(), 0);
}

// ---- Background build ----

TEST(CsvRecordIndexTest, BackgroundBuildReportsProgressAndStopsWhenCancelled) {
  jobs::JobRegistry registry;
  quorin::testing::ManualExecutor executor;
  const std::string text = tableText(50, 4);
  int finished = 0;

  auto done = std::make_shared<CSVRecordIndex>(CSVDelimiter::comma(), static_cast<int64_t>(text.size()));
  auto token = CSVRecordIndex::startBuild(done, testing::snapshotOf(text), '\n', registry, executor,
                                          "Indexing rows", [&] { ++finished; });
  ASSERT_EQ(registry.jobs(), (std::vector<jobs::JobInfo>{{token->id(), "Indexing rows", 0, false}}));
  executor.tasks.front()();
  executor.tasks.clear();
  EXPECT_TRUE(done->isComplete());
  EXPECT_EQ(token->progress(), 1.0);
  EXPECT_TRUE(registry.jobs().empty());
  EXPECT_EQ(finished, 1);

  auto cancelled = std::make_shared<CSVRecordIndex>(CSVDelimiter::comma(), static_cast<int64_t>(text.size()));
  token = CSVRecordIndex::startBuild(cancelled, testing::snapshotOf(text), '\n', registry, executor,
                                     "Indexing", [&] { ++finished; });
  EXPECT_TRUE(registry.cancel(token->id()));
  EXPECT_TRUE(registry.jobs().front().cancelling);
  executor.tasks.front()();
  EXPECT_FALSE(cancelled->isComplete());
  EXPECT_EQ(cancelled->rowCount(), 0);
  EXPECT_TRUE(registry.jobs().empty());
  EXPECT_EQ(finished, 2);
}

TEST(CsvRecordIndexTest, ReadersSeeAGrowingIndexWhileTheScanRuns) {
  const std::string text = tableText(3000, 3);
  auto index = std::make_shared<CSVRecordIndex>(CSVDelimiter::comma(), static_cast<int64_t>(text.size()));
  {
    dispatch::SerialQueue queue("quorin.test.csvindex");
    queue.async([&] { index->build(testing::snapshotOf(text), '\n', nullptr, 256); });
    int64_t lastCount = 0;
    while (!index->isComplete()) {
      const int64_t count = index->rowCount();
      EXPECT_GE(count, lastCount);
      lastCount = count;
      EXPECT_TRUE(count == 0 || index->rowAtOffset(0).has_value());
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(imageOf(*index), imageOf(*buildIndex(text)));
}

}  // namespace
}  // namespace quorin::csv
