#include <gtest/gtest.h>

#include "storage/LargeFileOpenMode.h"
#include "storage/StorageTestSupport.h"

namespace quorin::storage {
namespace {

constexpr int64_t MB = kOpenModeMegabyte;

std::optional<std::string> alertFor(LargeFileOpenRequest request, int64_t fileSize) {
  auto result = validateOpenRequest(request, fileSize);
  if (result) return std::nullopt;
  return result.error().describe();
}

TEST(LargeFileOpenMode, ValidationAlerts) {
  using M = LargeFileOpenMode;
  const int64_t tenMB = 10 * MB;
  EXPECT_EQ(alertFor({M::windowedSlice, 0, 0, 0}, tenMB), "Slice end must be greater than start.");
  EXPECT_EQ(alertFor({M::windowedSlice, 2, -1, 0}, tenMB), "Slice end must be greater than start.");
  EXPECT_EQ(alertFor({M::windowedSlice, -4, 2, 0}, tenMB), std::nullopt);   // a negative start counts as 0
  EXPECT_EQ(alertFor({M::windowedSlice, 9, 900, 0}, tenMB), std::nullopt);  // the end is not checked
  EXPECT_EQ(alertFor({M::windowedSlice, 11, 12, 0}, tenMB + MB / 2),
            "Slice start is past the end of the file (11 MB).");
  EXPECT_EQ(alertFor({M::tail, 0, 0, -3}, tenMB), "Tail size must be at least 1 MB.");
  EXPECT_EQ(alertFor({M::tail, 0, 0, 1}, tenMB), std::nullopt);
  // Only the selected mode's fields count.
  EXPECT_EQ(alertFor({M::wholeFileVirtual, 5, 3, -1}, tenMB), std::nullopt);
}

TEST(LargeFileOpenMode, WindowsSnapToWholeLines) {
  testing::TempDir dir;
  // 3 MiB of 100-byte lines, then a last line without a terminator.
  std::string text;
  while (text.size() < static_cast<size_t>(3 * MB)) text += std::string(99, 'x') + "\n";
  text += "tail";
  const auto total = static_cast<int64_t>(text.size());
  PieceTable table(testing::bufferOver(dir, text));
  const auto snap = table.snapshot();
  using M = LargeFileOpenMode;

  // 1 MiB is byte 76 of a line: the slice starts at the next line, and its
  // end (2 MiB, also mid-line) runs on to the end of that line.
  const auto slice = openModeWindow({M::windowedSlice, 1, 2, 0}, snap, '\n');
  EXPECT_EQ(slice, LineIndexWindow::bounded(1'048'600, 2'097'200));
  // A slice running past the end stops at the end.
  EXPECT_EQ(openModeWindow({M::windowedSlice, 0, 99, 0}, snap, '\n'), LineIndexWindow::bounded(0, total));
  const auto tail = openModeWindow({M::tail, 0, 0, 1}, snap, '\n');
  EXPECT_EQ(tail.end, total);
  EXPECT_EQ(tail.start % 100, 0);
  EXPECT_LE(total - tail.start, MB);
  EXPECT_EQ(openModeWindow({M::tail, 0, 0, 50}, snap, '\n'), LineIndexWindow::bounded(0, total));
  EXPECT_EQ(openModeWindow({M::readOnlyInspect, 0, 0, 0}, snap, '\n'), LineIndexWindow::wholeDocument());

  // Without any line break within a megabyte the window is cut where asked.
  testing::TempDir other;
  PieceTable flat(testing::bufferOver(other, std::string(static_cast<size_t>(3 * MB), 'y')));
  EXPECT_EQ(openModeWindow({M::windowedSlice, 1, 2, 0}, flat.snapshot(), '\n'),
            LineIndexWindow::bounded(MB, 2 * MB));
}

}  // namespace
}  // namespace quorin::storage
