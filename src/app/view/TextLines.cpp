#include "app/view/TextLines.h"

#include <QChar>
#include <algorithm>
#include <limits>

namespace quorin::app {
namespace {

// How far a word step looks before it gives up and stops where it is.
constexpr int64_t kWordScanLimit = 4096;

// The length of the UTF-8 sequence at `p` (within `n` bytes) when valid, else 0.
int validSequenceLength(const uint8_t* p, size_t n, char32_t* out) {
  const uint8_t b = p[0];
  int len = 0;
  char32_t cp = 0;
  if (b < 0x80) {
    *out = b;
    return 1;
  } else if (b >= 0xC2 && b <= 0xDF) {
    len = 2, cp = b & 0x1F;
  } else if (b >= 0xE0 && b <= 0xEF) {
    len = 3, cp = b & 0x0F;
  } else if (b >= 0xF0 && b <= 0xF4) {
    len = 4, cp = b & 0x07;
  } else {
    return 0;
  }
  if (n < static_cast<size_t>(len)) return 0;
  for (int i = 1; i < len; ++i) {
    if ((p[i] & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (p[i] & 0x3F);
  }
  // Overlong forms, surrogates and values past Unicode are invalid.
  if ((len == 3 && cp < 0x800) || (len == 4 && (cp < 0x10000 || cp > 0x10FFFF)) ||
      (cp >= 0xD800 && cp <= 0xDFFF)) {
    return 0;
  }
  *out = cp;
  return len;
}

bool isWide(char32_t c) {
  return (c >= 0x1100 && c <= 0x115F) || (c >= 0x2E80 && c <= 0xA4CF && c != 0x303F) ||
         (c >= 0xAC00 && c <= 0xD7A3) || (c >= 0xF900 && c <= 0xFAFF) || (c >= 0xFE30 && c <= 0xFE4F) ||
         (c >= 0xFF00 && c <= 0xFF60) || (c >= 0xFFE0 && c <= 0xFFE6) || (c >= 0x1F300 && c <= 0x1F64F) ||
         (c >= 0x1F900 && c <= 0x1F9FF) || (c >= 0x20000 && c <= 0x3FFFD);
}

enum class CharClass { space, word, punctuation, lineBreak };

CharClass classify(uint8_t b) {
  if (b == '\n' || b == '\r') return CharClass::lineBreak;
  if (b == ' ' || b == '\t') return CharClass::space;
  // Bytes of non-ASCII characters count as letters: words in other scripts
  // move as words, which is what a user expects more often than not.
  if (b >= 0x80 || b == '_' || (b >= '0' && b <= '9') || ((b | 0x20) >= 'a' && (b | 0x20) <= 'z')) {
    return CharClass::word;
  }
  return CharClass::punctuation;
}

std::string readRange(const storage::PieceTableSnapshot& text, int64_t start, int64_t end) {
  if (end <= start) return {};
  return text.readBytes({start, end}).value_or(std::string());
}

}  // namespace

TextLines::TextLines(document::DocumentSnapshot snapshot, storage::ByteRange range, uint8_t terminator)
    : snap_(std::move(snapshot)), range_(range), terminator_(terminator) {}

int64_t TextLines::indexedFrontier() const {
  if (snap_.lines.isComplete) return range_.end;
  const int64_t known = snap_.lines.knownLineCount();
  if (known == 0) return range_.start;
  return snap_.lines.lineStart(known - 1).value_or(range_.start);
}

std::optional<int64_t> TextLines::scanForward(int64_t from, int64_t limit) const {
  const int64_t end = std::min(range_.end, from + limit);
  // Most lines are short: start small and grow, so a screenful of rows reads little.
  int64_t chunkBytes = 4096;
  std::string chunk;
  for (int64_t at = from; at < end;
       at += chunkBytes, chunkBytes = std::min<int64_t>(chunkBytes * 2, 64 * 1024)) {
    chunk = readRange(snap_.text, at, std::min(end, at + chunkBytes));
    if (const auto hit = chunk.find(static_cast<char>(terminator_)); hit != std::string::npos) {
      return at + static_cast<int64_t>(hit);
    }
  }
  return std::nullopt;
}

std::optional<int64_t> TextLines::scanBackward(int64_t before, int64_t limit) const {
  const int64_t floor = std::max(range_.start, before - limit);
  int64_t chunkBytes = 4096;
  std::string chunk;
  for (int64_t end = before; end > floor;
       end -= chunkBytes, chunkBytes = std::min<int64_t>(chunkBytes * 2, 64 * 1024)) {
    const int64_t start = std::max(floor, end - chunkBytes);
    chunk = readRange(snap_.text, start, end);
    if (const auto hit = chunk.rfind(static_cast<char>(terminator_)); hit != std::string::npos) {
      return start + static_cast<int64_t>(hit);
    }
  }
  return std::nullopt;
}

int64_t TextLines::lineStartOf(int64_t offset) const {
  offset = std::clamp(offset, range_.start, range_.end);
  const int64_t frontier = indexedFrontier();
  if (snap_.lines.isComplete || offset < frontier) {
    if (const auto line = snap_.lines.lineContaining(offset)) {
      if (const auto start = snap_.lines.lineStart(*line)) return std::max(range_.start, *start);
    }
  }
  const int64_t floor = std::max(frontier, range_.start);
  if (offset <= floor) return floor;
  if (const auto hit = scanBackward(offset, std::min(kScanLimit, offset - floor))) return *hit + 1;
  // No break within reach: the frontier line, or, deep inside an unindexed
  // long line, a row start as far back as the scan went.
  return offset - floor <= kScanLimit ? floor : offset - kScanLimit;
}

std::optional<int64_t> TextLines::nextLineStart(int64_t lineStart) const {
  if (lineStart >= range_.end) return std::nullopt;
  if (snap_.lines.isComplete || lineStart < indexedFrontier()) {
    if (const auto line = snap_.lines.lineContaining(lineStart)) {
      if (const auto next = snap_.lines.lineStart(*line + 1)) return std::min(*next, range_.end);
      if (snap_.lines.isComplete) return std::nullopt;
    }
  }
  if (const auto hit = scanForward(lineStart, kScanLimit)) return *hit + 1;
  return std::nullopt;
}

std::optional<int64_t> TextLines::previousLineStart(int64_t lineStart) const {
  if (lineStart <= range_.start) return std::nullopt;
  return lineStartOf(lineStart - 1);
}

int64_t TextLines::contentEnd(int64_t lineStart) const {
  if (const auto next = nextLineStart(lineStart)) {
    int64_t end = *next - 1;
    if (terminator_ == '\n' && end > lineStart && snap_.text.byte(end - 1) == uint8_t{'\r'}) --end;
    return end;
  }
  if (snap_.lines.isComplete || lineStart + kScanLimit >= range_.end) return range_.end;
  return lineStart + kScanLimit;
}

std::optional<int64_t> TextLines::lineNumberOf(int64_t offset) const {
  offset = std::clamp(offset, range_.start, range_.end);
  const int64_t frontier = indexedFrontier();
  if (snap_.lines.isComplete || offset < frontier) return snap_.lines.lineContaining(offset);
  if (offset - frontier > kScanLimit || scanBackward(offset, offset - frontier)) return std::nullopt;
  return snap_.lines.lineContaining(frontier);
}

std::optional<int64_t> TextLines::startOfLine(int64_t line) const {
  if (line < 0) return std::nullopt;
  return snap_.lines.lineStart(line);
}

int64_t TextLines::estimatedLineCount() const { return std::max<int64_t>(1, snap_.lines.lineCount()); }

int64_t TextLines::nextCharacter(int64_t offset) const {
  if (offset >= range_.end) return range_.end;
  const std::string bytes = readRange(snap_.text, offset, std::min(range_.end, offset + 4));
  if (bytes.size() >= 2 && bytes[0] == '\r' && bytes[1] == '\n') return offset + 2;
  char32_t cp = 0;
  const int len = validSequenceLength(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), &cp);
  return offset + std::max(1, len);
}

int64_t TextLines::previousCharacter(int64_t offset) const {
  if (offset <= range_.start) return range_.start;
  const int64_t from = std::max(range_.start, offset - 4);
  const std::string bytes = readRange(snap_.text, from, offset);
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t n = bytes.size();
  if (n >= 2 && p[n - 1] == '\n' && p[n - 2] == '\r') return offset - 2;
  // Back over continuation bytes to a lead whose sequence ends exactly here.
  for (size_t back = 1; back <= n && back <= 4; ++back) {
    const size_t at = n - back;
    if ((p[at] & 0xC0) == 0x80) continue;
    char32_t cp = 0;
    if (validSequenceLength(p + at, back, &cp) == static_cast<int>(back))
      return offset - static_cast<int64_t>(back);
    break;
  }
  return offset - 1;
}

int64_t TextLines::nextWordEnd(int64_t offset) const {
  const int64_t end = std::min(range_.end, offset + kWordScanLimit);
  const std::string bytes = readRange(snap_.text, offset, end);
  size_t i = 0;
  if (i < bytes.size() && classify(static_cast<uint8_t>(bytes[i])) == CharClass::lineBreak) {
    return nextCharacter(offset);
  }
  while (i < bytes.size() && classify(static_cast<uint8_t>(bytes[i])) == CharClass::space) ++i;
  if (i < bytes.size()) {
    const CharClass kind = classify(static_cast<uint8_t>(bytes[i]));
    if (kind != CharClass::lineBreak) {
      while (i < bytes.size() && classify(static_cast<uint8_t>(bytes[i])) == kind) ++i;
    }
  }
  return offset + static_cast<int64_t>(i);
}

int64_t TextLines::previousWordStart(int64_t offset) const {
  const int64_t start = std::max(range_.start, offset - kWordScanLimit);
  const std::string bytes = readRange(snap_.text, start, offset);
  size_t i = bytes.size();
  if (i > 0 && classify(static_cast<uint8_t>(bytes[i - 1])) == CharClass::lineBreak) {
    return previousCharacter(offset);
  }
  while (i > 0 && classify(static_cast<uint8_t>(bytes[i - 1])) == CharClass::space) --i;
  if (i > 0) {
    const CharClass kind = classify(static_cast<uint8_t>(bytes[i - 1]));
    if (kind != CharClass::lineBreak) {
      while (i > 0 && classify(static_cast<uint8_t>(bytes[i - 1])) == kind) --i;
    }
  }
  return start + static_cast<int64_t>(i);
}

storage::ByteRange TextLines::wordAt(int64_t offset) const {
  const int64_t from = std::max(range_.start, offset - kWordScanLimit);
  const int64_t to = std::min(range_.end, offset + kWordScanLimit);
  const std::string bytes = readRange(snap_.text, from, to);
  const auto at = static_cast<size_t>(offset - from);
  if (at >= bytes.size()) return {offset, offset};
  const CharClass kind = classify(static_cast<uint8_t>(bytes[at]));
  if (kind == CharClass::lineBreak) return {offset, nextCharacter(offset)};
  size_t begin = at, end = at;
  while (begin > 0 && classify(static_cast<uint8_t>(bytes[begin - 1])) == kind) --begin;
  while (end < bytes.size() && classify(static_cast<uint8_t>(bytes[end])) == kind) ++end;
  return {from + static_cast<int64_t>(begin), from + static_cast<int64_t>(end)};
}

int64_t RowLayout::cellOf(int64_t offset) const {
  if (offset <= firstByte) return firstCell - (firstByte - offset);
  const auto it = std::upper_bound(byteAt.begin(), byteAt.end(), offset);
  const auto i = static_cast<size_t>(it - byteAt.begin()) - 1;
  if (i + 1 >= byteAt.size()) return cellAt.back() + (offset - byteAt.back());
  return cellAt[i];
}

int64_t RowLayout::offsetAtCell(double cell) const {
  if (cell <= static_cast<double>(firstCell)) return firstByte;
  for (size_t i = 0; i + 1 < cellAt.size(); ++i) {
    const auto left = static_cast<double>(cellAt[i]);
    const auto right = static_cast<double>(cellAt[i + 1]);
    if (cell < right) return cell - left > (right - left) / 2 ? byteAt[i + 1] : byteAt[i];
  }
  return byteAt.back();
}

RowLayout layoutRow(const storage::PieceTableSnapshot& text, int64_t lineStart, int64_t contentEnd,
                    int64_t fromCell, int64_t cellCount) {
  RowLayout row;
  const bool exact = contentEnd - lineStart <= kExactLayoutBytes;
  int64_t start = lineStart;
  int64_t cell = 0;
  if (!exact && fromCell > 0) {
    // One column per byte up to the visible part, then to a character's start.
    start = std::min(contentEnd, lineStart + fromCell);
    const std::string back = readRange(text, std::max(lineStart, start - 3), start);
    for (size_t k = back.size(); k > 0 && start > lineStart; --k) {
      if ((static_cast<uint8_t>(back[k - 1]) & 0xC0) != 0x80) break;
      --start;
    }
    cell = start - lineStart;
  }
  const int64_t stopCell = cellCount >= std::numeric_limits<int64_t>::max() - fromCell
                               ? std::numeric_limits<int64_t>::max()
                               : fromCell + cellCount;
  const int64_t readEnd = exact ? contentEnd : std::min(contentEnd, start + 4 * (cellCount + 8));
  const std::string bytes = readRange(text, start, readEnd);
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  size_t i = 0;
  bool started = false;
  auto begin = [&](int64_t byte, int64_t atCell) {
    started = true;
    row.firstByte = byte;
    row.firstCell = atCell;
  };
  row.display.reserve(static_cast<qsizetype>(std::min<size_t>(bytes.size(), 4096)));
  // Appends a character's symbol without a temporary string: this loop runs
  // for every visible character of every frame.
  auto append = [&row](char32_t symbol, int64_t spaces) {
    if (spaces > 0) {
      for (int64_t k = 0; k < spaces; ++k) row.display.append(QLatin1Char(' '));
    } else if (symbol > 0xFFFF) {
      row.display.append(QChar(QChar::highSurrogate(symbol)));
      row.display.append(QChar(QChar::lowSurrogate(symbol)));
    } else {
      row.display.append(QChar(static_cast<char16_t>(symbol)));
    }
  };
  while (i < bytes.size() && cell < stopCell) {
    char32_t cp = 0;
    int len = validSequenceLength(p + i, bytes.size() - i, &cp);
    int64_t width = 1;
    int64_t spaces = 0;
    char32_t symbol = cp;
    if (len == 0) {
      len = 1;
      symbol = 0xFFFD;
    } else if (cp == '\t') {
      width = spaces = kTabWidth - cell % kTabWidth;
    } else if (cp < 0x20) {
      symbol = 0x2400 + cp;  // the Control Pictures block: ␀ … ␟
    } else if (cp == 0x7F) {
      symbol = 0x2421;
    } else if (cp >= 0x300) {
      if (QChar::category(cp) == QChar::Mark_NonSpacing) {
        width = 0;
      } else if (isWide(cp)) {
        width = 2;
      }
    }
    const int64_t byte = start + static_cast<int64_t>(i);
    if (!started && cell + std::max<int64_t>(width, 1) > fromCell) begin(byte, cell);
    if (started) {
      row.byteAt.push_back(byte);
      row.cellAt.push_back(cell);
      row.charAt.push_back(static_cast<int32_t>(row.display.size()));
      append(symbol, spaces);
    }
    cell += width;
    i += static_cast<size_t>(len);
  }
  const int64_t endByte = start + static_cast<int64_t>(i);
  if (!started) begin(endByte, cell);
  row.byteAt.push_back(endByte);
  row.cellAt.push_back(cell);
  row.charAt.push_back(static_cast<int32_t>(row.display.size()));
  return row;
}

}  // namespace quorin::app
