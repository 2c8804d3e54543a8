#include "storage/LargeFileOpenMode.h"

#include <algorithm>

#include "base/ByteCount.h"

namespace quorin::storage {
namespace {

constexpr int64_t kSnapLookahead = int64_t{1} << 20;

// The offset just after the first terminator in [from, from + lookahead), if any.
std::optional<int64_t> afterNextTerminator(const PieceTableSnapshot& text, int64_t from, uint8_t terminator) {
  const auto bytes = text.readBytes({from, from + kSnapLookahead});
  if (!bytes) return std::nullopt;
  const size_t at = bytes->find(static_cast<char>(terminator));
  if (at == std::string::npos) return std::nullopt;
  return from + static_cast<int64_t>(at) + 1;
}

// `offset` itself when a line starts there, else the start of the next line.
int64_t snapForward(const PieceTableSnapshot& text, int64_t offset, uint8_t terminator) {
  if (offset <= 0 || offset >= text.totalLength() || text.byte(offset - 1) == terminator) return offset;
  return afterNextTerminator(text, offset, terminator).value_or(offset);
}

}  // namespace

std::string_view cardTitle(LargeFileOpenMode mode) {
  switch (mode) {
    case LargeFileOpenMode::windowedSlice: return "Windowed Slice";
    case LargeFileOpenMode::tail: return "Tail";
    case LargeFileOpenMode::wholeFileVirtual: return "Whole-File Virtual";
    case LargeFileOpenMode::readOnlyInspect: return "Read-Only Inspect";
  }
  return {};
}

std::string_view cardDescription(LargeFileOpenMode mode) {
  switch (mode) {
    case LargeFileOpenMode::windowedSlice:
      return "Load only a specific byte range. Faster open. Save reconstructs the full file.";
    case LargeFileOpenMode::tail: return "Load only the last N megabytes. Best for live logs.";
    case LargeFileOpenMode::wholeFileVirtual:
      return "Index the entire file. All operations work against the full file.";
    case LargeFileOpenMode::readOnlyInspect:
      return "Maximum scroll and search performance. Editing disabled.";
  }
  return {};
}

bool acceptsEdits(LargeFileOpenMode mode) { return mode != LargeFileOpenMode::readOnlyInspect; }

std::string OpenModeRejection::describe() const {
  switch (kind) {
    case Kind::sliceEndNotAfterStart: return "Slice end must be greater than start.";
    case Kind::sliceStartPastEnd:
      return "Slice start is past the end of the file (" + std::to_string(fileSizeMB) + " MB).";
    case Kind::tailTooSmall: return "Tail size must be at least 1 MB.";
  }
  return {};
}

std::expected<void, OpenModeRejection> validateOpenRequest(const LargeFileOpenRequest& request,
                                                           int64_t fileSize) {
  using Kind = OpenModeRejection::Kind;
  switch (request.mode) {
    case LargeFileOpenMode::windowedSlice: {
      const int64_t start = std::max<int64_t>(request.sliceStartMB, 0);
      const int64_t end = request.sliceEndMB;
      if (end < 0 || start >= end) return std::unexpected(OpenModeRejection{Kind::sliceEndNotAfterStart});
      // The end is deliberately not checked: a slice may run past the end of the file.
      if (fileSize <= start * kOpenModeMegabyte) {
        const int64_t sizeMB = (std::max<int64_t>(fileSize, 0) + kOpenModeMegabyte - 1) / kOpenModeMegabyte;
        return std::unexpected(OpenModeRejection{Kind::sliceStartPastEnd, sizeMB});
      }
      return {};
    }
    case LargeFileOpenMode::tail:
      if (request.tailMB <= 0) return std::unexpected(OpenModeRejection{Kind::tailTooSmall});
      return {};
    case LargeFileOpenMode::wholeFileVirtual:
    case LargeFileOpenMode::readOnlyInspect: return {};
  }
  return {};
}

std::string openModeExplanation(int64_t fileSize, int64_t thresholdBytes) {
  return base::formatByteCount(fileSize) + " — larger than the " + base::formatByteCount(thresholdBytes) +
         " fast-open threshold";
}

LineIndexWindow openModeWindow(const LargeFileOpenRequest& request, const PieceTableSnapshot& text,
                               uint8_t terminator) {
  const int64_t length = text.totalLength();
  // Megabyte fields are small integers from a dialog; clamp before multiplying so nothing overflows.
  auto bytesOf = [&](int64_t mb) {
    return std::clamp<int64_t>(mb, 0, length / kOpenModeMegabyte + 1) * kOpenModeMegabyte;
  };
  switch (request.mode) {
    case LargeFileOpenMode::windowedSlice: {
      const int64_t start = snapForward(text, std::min(bytesOf(request.sliceStartMB), length), terminator);
      const int64_t end = snapForward(text, std::min(bytesOf(request.sliceEndMB), length), terminator);
      return LineIndexWindow::bounded(start, std::max(end, start));
    }
    case LargeFileOpenMode::tail: {
      const int64_t start = std::max<int64_t>(0, length - bytesOf(request.tailMB));
      return LineIndexWindow::bounded(snapForward(text, start, terminator), length);
    }
    case LargeFileOpenMode::wholeFileVirtual:
    case LargeFileOpenMode::readOnlyInspect: return LineIndexWindow::wholeDocument();
  }
  return LineIndexWindow::wholeDocument();
}

}  // namespace quorin::storage
