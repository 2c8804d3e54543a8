#pragma once

#include <cstdint>
#include <expected>
#include <optional>
#include <string>
#include <string_view>

namespace quorin::gen {

// A source of text records: a log line, a CSV row. Appending one record at a
// time lets the writer stop exactly at the first record boundary at or past
// the size asked, and never in the middle of a quoted CSV field.
class RecordGenerator {
 public:
  virtual ~RecordGenerator() = default;
  // Appends exactly one record, its terminating newline included.
  virtual void appendRecord(std::string& out) = 0;
};

// "512", "64K", "200M", "2G" (powers of 1024, upper or lower case). Absent
// for anything else, a negative size included.
std::optional<int64_t> parseSize(std::string_view text);

// Writes records to `fd` until at least `size` bytes have gone out, in
// blocks of a few megabytes. Returns the byte count, or why writing failed.
std::expected<int64_t, std::string> writeRecords(RecordGenerator& generator, int64_t size, int fd);

// The same into memory, for tests and in-process benchmarks.
std::string generate(RecordGenerator& generator, int64_t size);

}  // namespace quorin::gen
