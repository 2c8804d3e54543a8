#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "csv/CSVRecordIndex.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"

namespace quorin::csv::testing {

inline std::span<const uint8_t> bytesOf(std::string_view text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

inline storage::PieceTableSnapshot snapshotOf(std::string_view text) {
  storage::PieceTable table(storage::OriginalBuffer::untitled());
  if (!text.empty()) table.insert(text, 0);
  return table.snapshot();
}

// What a table reader should find: one entry per record.
struct Table {
  std::vector<int64_t> starts;
  std::vector<int64_t> fieldCounts;
  std::vector<bool> anomalies;
  bool unterminatedQuote = false;
  bool operator==(const Table&) const = default;
};

// A deliberately plain RFC 4180 reader, written field by field rather than as
// a byte state machine, to check the scanner against. Beyond the RFC it
// tolerates what real exports contain, flagging the record: data after a
// closing quote (kept as unquoted data) and a quote left open at the end.
// It does not model CR before a quote at a field start; the generator below
// never writes one.
inline Table readRfc4180(std::string_view text, char delimiter, char terminator) {
  Table table;
  const size_t n = text.size();
  size_t pos = 0;
  while (pos < n) {
    table.starts.push_back(static_cast<int64_t>(pos));
    int64_t fields = 1;
    bool bad = false;
    bool recordEnded = false;
    while (!recordEnded) {
      if (pos < n && text[pos] == '"') {
        ++pos;
        while (true) {
          const size_t quote = text.find('"', pos);
          if (quote == std::string_view::npos) {
            pos = n;
            bad = true;
            table.unterminatedQuote = true;
            break;
          }
          if (quote + 1 < n && text[quote + 1] == '"') {
            pos = quote + 2;
            continue;
          }
          pos = quote + 1;
          break;
        }
        // CR between the closing quote and the line end belongs to the line end.
        if (terminator != '\r' && pos < n && text[pos] == '\r' &&
            (pos + 1 == n || text[pos + 1] == terminator))
          ++pos;
        if (pos < n && text[pos] != delimiter && text[pos] != terminator) bad = true;
      }
      while (pos < n && text[pos] != delimiter && text[pos] != terminator) ++pos;
      if (pos == n) {
        recordEnded = true;
      } else if (text[pos] == delimiter) {
        ++fields;
        ++pos;
      } else {
        ++pos;
        recordEnded = true;
      }
    }
    table.fieldCounts.push_back(fields);
    table.anomalies.push_back(bad);
  }
  return table;
}

// Random tables in the shapes exports take: quoted fields with delimiters,
// doubled quotes and line breaks inside, empty fields, ragged rows, LF, CRLF
// or CR-only line ends, sometimes no final line end or a quote left open,
// and now and then data after a closing quote.
struct TableShape {
  char delimiter = ',';
  std::string lineEnd = "\n";
  int rows = 50;
  int columns = 4;
  bool malformed = true;  // some data after closing quotes, ragged rows
};

inline std::string randomTable(std::mt19937_64& rng, const TableShape& shape) {
  auto below = [&](int n) { return static_cast<int>(rng() % static_cast<uint64_t>(n)); };
  const std::string plain = "abcxyz0129 .-";
  auto plainText = [&](int length) {
    std::string out;
    for (int i = 0; i < length; ++i)
      out.push_back(plain[static_cast<size_t>(below(static_cast<int>(plain.size())))]);
    return out;
  };
  std::string out;
  for (int row = 0; row < shape.rows; ++row) {
    int columns = shape.columns;
    if (shape.malformed && below(20) == 0) columns += below(2) == 0 ? -1 : 1;
    columns = std::max(columns, 1);
    for (int column = 0; column < columns; ++column) {
      if (column > 0) out.push_back(shape.delimiter);
      switch (below(8)) {
        case 0: break;  // empty
        case 1:
        case 2: {
          out.push_back('"');
          const std::string pieces[] = {
              plainText(below(4)), std::string(1, shape.delimiter), "\"\"", "\n", "\r\n", "\r"};
          for (int k = below(5); k >= 0; --k) out += pieces[static_cast<size_t>(below(6))];
          out.push_back('"');
          if (shape.malformed && below(30) == 0) out += "x" + plainText(below(3));
          break;
        }
        case 3: out += "a\"b"; break;  // a quote inside an unquoted field is data
        default: out += plainText(1 + below(6)); break;
      }
    }
    if (row + 1 < shape.rows || below(3) != 0) out += shape.lineEnd;
  }
  if (shape.malformed && below(8) == 0) out += "\"open" + shape.lineEnd + "tail";
  return out;
}

// What a finished index holds, for comparing two of them or one with a Table.
struct IndexImage {
  Table table;
  CSVStructureStats stats;
  int64_t bytesScanned = 0;
  bool operator==(const IndexImage&) const = default;
};

inline IndexImage imageOf(const CSVRecordIndex& index) {
  IndexImage image;
  const int64_t rows = index.rowCount();
  image.table.starts = index.rowStarts(0, rows);
  for (int64_t row = 0; row < rows; ++row) {
    image.table.fieldCounts.push_back(*index.fieldCount(row));
    image.table.anomalies.push_back(index.isAnomalous(row));
  }
  image.stats = index.statistics();
  image.table.unterminatedQuote = image.stats.unterminatedQuote;
  image.bytesScanned = index.bytesScanned();
  return image;
}

inline std::unique_ptr<CSVRecordIndex> buildIndex(std::string_view text, char delimiter = ',',
                                                  char terminator = '\n',
                                                  int64_t chunkBytes = kIndexChunkBytes) {
  auto index = std::make_unique<CSVRecordIndex>(CSVDelimiter{static_cast<uint8_t>(delimiter), "test"},
                                                static_cast<int64_t>(text.size()));
  index->build(snapshotOf(text), static_cast<uint8_t>(terminator), nullptr, chunkBytes);
  return index;
}

}  // namespace quorin::csv::testing
