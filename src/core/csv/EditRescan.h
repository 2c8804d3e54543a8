#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "csv/CSVRecordIndex.h"
#include "storage/EditResult.h"
#include "storage/PieceTableSnapshot.h"

namespace quorin::csv {

// The rows of an index that one edit of its text touched, scanned again in
// the new text: index rows [firstRow, lastRow] become `rows` (absolute
// starts in the new text), and every later row moves by the edit's byte delta.
struct EditRescan {
  int64_t firstRow = 0;
  int64_t lastRow = 0;
  std::vector<ScannedRecord> rows;
};

// The scanner's state at a row start is always the same, so an edit changes
// the rows it touches and no others exactly when scanning the new bytes of
// those rows ends on a record boundary that is an old row boundary: then the
// text after it splits as before. Scanning goes on row by row until it does
// (a row joined to the next by a deleted line break, a quote closed further
// down). Nothing when the edit cannot be described so within `maxBytes` of
// rescanning, lies past the scanned part, or reaches a text that ends inside
// quotes: the index is then built again. An edit that changed no bytes gives
// an empty rescan of no rows (firstRow > lastRow).
std::optional<EditRescan> rescanEditedRows(const CSVRecordIndex& index, const storage::EditResult& edit,
                                           const storage::PieceTableSnapshot& text, uint8_t terminator,
                                           int64_t maxBytes);

}  // namespace quorin::csv
