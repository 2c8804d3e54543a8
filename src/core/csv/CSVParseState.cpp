#include "csv/CSVParseState.h"

namespace quorin::csv {

std::string_view rawValue(CSVParseState state) {
  switch (state) {
    case CSVParseState::normal: return "Normal";
    case CSVParseState::warning: return "Warning";
    case CSVParseState::degraded: return "Degraded";
    case CSVParseState::failed: return "Failed";
  }
  return "Failed";
}

CSVParseState gradeState(const CSVStructureStats& stats) {
  if (stats.rowCount < 1 || stats.expectedColumns < 1) return CSVParseState::failed;
  if (stats.maxContiguousMalformed > 20) return CSVParseState::degraded;
  if (static_cast<double>(stats.malformedRowCount) / static_cast<double>(stats.rowCount) > 0.1)
    return CSVParseState::degraded;
  return stats.malformedRowCount < 1 ? CSVParseState::normal : CSVParseState::warning;
}

std::optional<std::string_view> cellEditRefusal(CSVParseState state, bool readOnly) {
  if (readOnly) return kReadOnlyCellsMessage;
  if (state == CSVParseState::degraded || state == CSVParseState::failed) return kCellEditingDisabledMessage;
  return std::nullopt;
}

std::optional<std::string> CSVStateAnnouncer::adoptFreshIndex(const CSVStructureStats& stats,
                                                              CSVParseState state) {
  effective_ = state;
  pending_.reset();
  pendingCount_ = 0;
  if (stats.rowCount == 0) return std::nullopt;
  if (state == CSVParseState::warning) {
    const int64_t count = stats.malformedRowCount;
    return "CSV parsed with " + groupDigits(count, groupSeparator_) + " problematic row" +
           (count == 1 ? "" : "s") + " — see gutter markers";
  }
  if (state == CSVParseState::degraded) return "CSV structure issues. Column editing disabled.";
  return std::nullopt;
}

std::optional<std::string> CSVStateAnnouncer::observe(CSVParseState state) {
  if (!effective_) {
    effective_ = state;
    return std::nullopt;
  }
  if (state == *effective_) {
    pending_.reset();
    pendingCount_ = 0;
    return std::nullopt;
  }
  if (state > *effective_) {
    effective_ = state;
    pending_.reset();
    pendingCount_ = 0;
    if (state == CSVParseState::degraded)
      return "CSV structure changed. Column editing disabled until structure is repaired.";
    return "CSV structure issues detected — state: " + std::string(rawValue(state));
  }
  if (pending_ != state) {
    pending_ = state;
    pendingCount_ = 1;
    return std::nullopt;
  }
  if (++pendingCount_ < 2) return std::nullopt;
  effective_ = state;
  pending_.reset();
  pendingCount_ = 0;
  if (state == CSVParseState::normal) return "CSV structure repaired — full editing available";
  return "CSV state improved — " + std::string(rawValue(state));
}

}  // namespace quorin::csv
