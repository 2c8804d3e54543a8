#pragma once

#include <cstdint>
#include <expected>
#include <string>
#include <string_view>
#include <vector>

#include "text/DetectedEncoding.h"
#include "text/LineEnding.h"

namespace quorin::app {

// The opening lines of a file and what opening it found out. Free of Qt so
// that the loading rules are tested without a display.
struct FirstScreen {
  std::string path;
  int64_t fileLength = 0;
  int64_t documentLength = 0;  // the file less its byte-order mark
  text::DetectedEncoding encoding = text::DetectedEncoding::utf8;
  text::LineEnding lineEnding = text::LineEnding::lf;
  // UTF-8, without terminators. A document ending in a terminator has an
  // empty last line, as in every editor; an empty document has one line.
  std::vector<std::string> lines;
  bool complete = true;  // whether `lines` covers the whole document
};

// Enough for many screens of ordinary text while keeping the open instant on
// a multi-gigabyte file.
inline constexpr int64_t kFirstScreenBytes = int64_t{1} << 20;

// Maps `path` and reads at most `maxBytes` of its document through a piece
// table snapshot. When the document is longer, the last line read is cut
// short and dropped, unless it is the only one. The error is the text to
// show the user.
std::expected<FirstScreen, std::string> loadFirstScreen(const std::string& path,
                                                        int64_t maxBytes = kFirstScreenBytes);

// "0 bytes", "1 byte", "1023 bytes", "1.5 KiB", "2.0 GiB".
std::string humanReadableSize(int64_t bytes);

// Names for the status bar, e.g. "UTF-16 LE", "CRLF".
std::string_view displayName(text::LineEnding ending);

}  // namespace quorin::app
