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
// and line starts at one version plus the facts the notices need (the
// snapshot the document handed out), and the name messages call it by.
// Read on any thread.
struct CompareSide : document::DescribedSnapshot {
  std::string displayName;  // how messages name it: a file name or a title

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
