#pragma once

#include <cstdint>
#include <string>

#include "gen/Output.h"
#include "gen/Random.h"

namespace quorin::gen {

// An order export as a shop back office produces it (RFC 4180, LF line
// ends): a header row, then one order per record across twelve columns of
// ids, timestamps, names, money and free text. Fields holding a comma, a
// quote or a line break are quoted, so some records span two lines.
class CsvGenerator final : public RecordGenerator {
 public:
  static constexpr int kColumnCount = 12;

  explicit CsvGenerator(uint64_t seed);
  void appendRecord(std::string& out) override;

 private:
  void appendRow(std::string& out);

  Random rng_;
  int64_t orderId_;
  int64_t clockMs_;
  bool headerWritten_ = false;
};

}  // namespace quorin::gen
