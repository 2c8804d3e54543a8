#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quorin::search {

// A stretch of document text handed to a scanner. The engine reads it in
// windows of whole lines (a line longer than a window is cut into pieces),
// with a little context on either side.
struct ScanWindow {
  uint8_t* data = nullptr;  // writable: scanners may fold case in place
  size_t size = 0;
  // Matches must start in [begin, end). Bytes before `begin` are context
  // (for word tests); bytes from `end` on let a match that starts before
  // `end` finish, and give the byte after it.
  size_t begin = 0;
  size_t end = 0;
  uint8_t terminator = '\n';  // the document's line break byte
  // Whether data[0] is the document's first byte, and whether the document
  // ends at data[size]. Elsewhere a line may begin before the data or go on
  // past it (a piece of a very long line).
  bool dataStartsDocument = false;
  bool dataEndsDocument = false;
};

// What overlapAfter() returns for matches of any length (a regex): the
// caller then overlaps pieces of a long line by its own bound.
inline constexpr size_t kUnboundedMatchLength = static_cast<size_t>(-1);

// Where a scanner reports. Implemented by the engine, which turns window
// positions into document offsets and line numbers and stores them.
class MatchCollector {
 public:
  virtual ~MatchCollector() = default;
  // A match at window position `start`; starts come in ascending order.
  // False: the search is over (cancelled, timed out); the scanner returns.
  virtual bool add(size_t start, size_t length) = 0;
  // For scanners that do much work without matches: call every so often;
  // false means stop.
  virtual bool keepGoing() = 0;
};

// The per-worker state of a matcher (buffers, engine scratch). One thread.
class WindowScanner {
 public:
  virtual ~WindowScanner() = default;
  virtual void scan(ScanWindow& window, MatchCollector& collector) = 0;
};

// A prepared query. Immutable; shared by every worker of a search.
class Matcher {
 public:
  virtual ~Matcher() = default;
  virtual std::unique_ptr<WindowScanner> makeScanner() const = 0;
  // Bytes a scanner wants before `begin` and after `end` when a window is a
  // piece of a longer line, so that nothing is lost at the cut (after:
  // kUnboundedMatchLength when a match has no longest length).
  virtual size_t contextBefore() const = 0;
  virtual size_t overlapAfter() const = 0;
};

}  // namespace quorin::search
