#include "FirstScreen.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "text/EncodingDetector.h"

namespace quorin::app {
namespace {

int64_t codeUnitSize(text::DetectedEncoding encoding) {
  switch (encoding) {
    case text::DetectedEncoding::utf16LE:
    case text::DetectedEncoding::utf16BE: return 2;
    case text::DetectedEncoding::utf32LE:
    case text::DetectedEncoding::utf32BE: return 4;
    default: return 1;
  }
}

std::vector<std::string> splitLines(std::string_view text, text::LineEnding ending) {
  const char terminator = static_cast<char>(text::lineTerminator(ending));
  std::vector<std::string> lines;
  size_t start = 0;
  while (true) {
    const size_t end = text.find(terminator, start);
    std::string_view line =
        text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start);
    if (ending == text::LineEnding::crlf && line.ends_with('\r')) line.remove_suffix(1);
    lines.emplace_back(line);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return lines;
}

}  // namespace

std::expected<FirstScreen, std::string> loadFirstScreen(const std::string& path, int64_t maxBytes) {
  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) return std::unexpected(mmap.error().describe());
  const storage::PieceTable table(storage::OriginalBuffer::make(*mmap, storage::detectFileEncoding(**mmap)));
  const auto snapshot = table.snapshot();
  const auto& original = snapshot.originalBuffer();

  FirstScreen screen;
  screen.path = path;
  screen.fileLength = original.mmap().length();
  screen.documentLength = snapshot.totalLength();
  screen.encoding = original.encoding();
  screen.lineEnding = original.lineEnding();

  int64_t end = std::min(snapshot.totalLength(), maxBytes);
  screen.complete = end == snapshot.totalLength();
  // Whole code units only, so a cut never invents a character.
  if (!screen.complete) end -= end % codeUnitSize(screen.encoding);
  screen.lines = splitLines(snapshot.text({0, end}), screen.lineEnding);
  if (!screen.complete && screen.lines.size() > 1) screen.lines.pop_back();
  return screen;
}

std::string humanReadableSize(int64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  static constexpr std::array<const char*, 6> kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  double value = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  // Round first so that 1023.96 KiB reads "1.0 MiB", not "1024.0 KiB".
  while (value >= 1024 - 0.05 && unit + 1 < kUnits.size()) {
    value /= 1024;
    ++unit;
  }
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%.1f %s", value, kUnits[unit]);
  return buffer;
}

std::string_view displayName(text::LineEnding ending) {
  switch (ending) {
    case text::LineEnding::lf: return "LF";
    case text::LineEnding::crlf: return "CRLF";
    case text::LineEnding::cr: return "CR";
  }
  return "LF";
}

}  // namespace quorin::app
