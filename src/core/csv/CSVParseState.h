#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/ByteCount.h"

namespace quorin::csv {

// How healthy a table is, best to worst; it decides how much grid editing
// is allowed (cells in normal and warning, columns in normal only).
enum class CSVParseState : uint8_t { normal, warning, degraded, failed };

// "Normal", "Warning", "Degraded", "Failed".
std::string_view rawValue(CSVParseState state);

// A snapshot of a table's health.
struct CSVStructureStats {
  int64_t expectedColumns = 0;  // the field count of a well-formed row
  int64_t rowCount = 0;
  int64_t malformedRowCount = 0;
  int64_t maxContiguousMalformed = 0;  // the longest run of consecutive malformed rows
  std::vector<int64_t> malformedRows;  // 0-based, ascending, capped (see CSVRecordIndex)
  bool unterminatedQuote = false;      // the text ends inside a quoted field
  bool operator==(const CSVStructureStats&) const = default;
};

// failed without rows or columns; degraded past 20 malformed rows in a row
// or past 10 % malformed; warning with any malformed row; normal otherwise.
CSVParseState gradeState(const CSVStructureStats& stats);

inline constexpr std::string_view kCellEditingDisabledMessage =
    "CSV structure issues — cell editing disabled until repaired";
inline constexpr std::string_view kReadOnlyCellsMessage = "Read-Only — cannot edit cells";
inline constexpr std::string_view kSortingUnavailableMessage =
    "Sorting unavailable — CSV structure issues or index still building";
inline constexpr std::string_view kNoLongerParsesMessage = "File no longer parses as CSV — showing raw text";
inline constexpr std::string_view kCouldNotParseMessage = "Could not parse as CSV.";

// Why a cell edit is refused, or nothing when it is allowed.
std::optional<std::string_view> cellEditRefusal(CSVParseState state, bool readOnly);

using base::groupDigits;

// The document window's effective parse state and the status message each
// new grading calls for. Worsening is adopted at once; an improvement only
// once it has been graded twice in a row, so that editing rights do not
// flicker while the user types through a broken row.
// Not thread-safe: it lives with the window, on the main thread.
class CSVStateAnnouncer {
 public:
  explicit CSVStateAnnouncer(std::string groupSeparator = ",") : groupSeparator_(std::move(groupSeparator)) {}

  std::optional<CSVParseState> effectiveState() const { return effective_; }

  // A freshly built index's first grading: adopted without hysteresis and
  // announced once ("CSV parsed with 3 problematic rows — see gutter
  // markers" for warning, a notice for degraded, nothing otherwise or when
  // the table has no rows).
  std::optional<std::string> adoptFreshIndex(const CSVStructureStats& stats, CSVParseState state);

  // Every later grading.
  std::optional<std::string> observe(CSVParseState state);

 private:
  std::string groupSeparator_;
  std::optional<CSVParseState> effective_;
  std::optional<CSVParseState> pending_;
  int pendingCount_ = 0;
};

}  // namespace quorin::csv
