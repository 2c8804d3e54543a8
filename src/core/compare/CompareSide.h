#pragma once

#include <string>
#include <string_view>

#include "document/DocumentTypes.h"
#include "storage/ByteRange.h"
#include "text/DetectedEncoding.h"
#include "text/LineEnding.h"

namespace quorin::compare {

enum class Side { left, right };

std::string_view sideName(Side side);  // "left", "right"

// One side of a comparison as it stood when the comparison began: the text
// and line starts at one version plus the facts the notices need. Built from
// a snapshot the document hands out; read on any thread.
struct CompareSide {
  std::string displayName;  // how messages name it: a file name or a title
  document::DocumentSnapshot snapshot;
  // The part of the document its line index covers: the whole text, or the
  // loaded slice or tail.
  storage::ByteRange range;
  text::LineEnding lineEnding = text::LineEnding::lf;
  text::DetectedEncoding encoding = text::DetectedEncoding::utf8;  // the file's own
  bool transcoded = false;  // the snapshot is a UTF-8 working copy of `encoding`
  bool modified = false;    // unsaved edits are part of the snapshot
  bool partial = false;     // opened as a slice or a tail

  static CompareSide of(document::DescribedSnapshot described, std::string displayName);
};

// Why a comparison could not run; the window shows title() over describe().
struct CompareError {
  std::string sideName;  // the side's displayName
  std::string detail;    // the underlying reason, for the log

  static constexpr std::string_view title() { return "Couldn't compare"; }
  std::string describe() const;
};

}  // namespace quorin::compare
