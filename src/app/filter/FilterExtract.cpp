#include "app/filter/FilterExtract.h"

#include <QFileInfo>
#include <QSaveFile>
#include <string>

#include "app/filter/FilterTexts.h"
#include "filter/ShownLines.h"
#include "text/LineEnding.h"

namespace quorin::app {
namespace {

constexpr int64_t kPieceBytes = 4 << 20;

std::string_view lineBreak(text::LineEnding ending) {
  switch (ending) {
    case text::LineEnding::crlf: return "\r\n";
    case text::LineEnding::cr: return "\r";
    case text::LineEnding::lf: break;
  }
  return "\n";
}

}  // namespace

bool streamShownLines(const logs::LogSource& source, const filter::FilterProjection& projection,
                      const std::function<bool(std::string_view)>& sink) {
  const std::string_view brk = lineBreak(source.text.originalBuffer().lineEnding());
  const int64_t total = source.text.totalLength();
  std::string piece;
  std::string rest;
  auto flush = [&] {
    const bool ok = piece.empty() || sink(piece);
    piece.clear();
    return ok;
  };
  const bool all =
      filter::forEachShownLine(source, projection, kPieceBytes, [&](const filter::ShownLine& line) {
        piece.append(line.text);
        if (line.cut) {
          // The rest of a long line, window by window, without its line break.
          const int64_t start = source.lines.lineStart(line.line).value_or(total);
          int64_t end = source.lines.lineStart(line.line + 1).value_or(total);
          if (end > start && end < total) end -= static_cast<int64_t>(brk.size());
          for (int64_t at = start + static_cast<int64_t>(line.text.size()); at < end;) {
            if (!flush()) return false;
            const int64_t length = std::min(kPieceBytes, end - at);
            rest.resize(static_cast<size_t>(length));
            const int64_t got =
                source.text.copyBytes({at, at + length}, reinterpret_cast<uint8_t*>(rest.data()));
            if (got <= 0) break;
            piece.append(rest, 0, static_cast<size_t>(got));
            at += got;
          }
        }
        piece.append(brk);
        return static_cast<int64_t>(piece.size()) < kPieceBytes || flush();
      });
  return all && flush();
}

int64_t shownBytes(const logs::LogSource& source, const filter::FilterProjection& projection) {
  const int64_t total = source.text.totalLength();
  const int64_t brk = static_cast<int64_t>(lineBreak(source.text.originalBuffer().lineEnding()).size());
  int64_t bytes = 0;
  for (auto line = projection.nextVisibleLine(0); line; line = projection.nextVisibleLine(*line + 1)) {
    const int64_t start = source.lines.lineStart(*line).value_or(total);
    const auto next = source.lines.lineStart(*line + 1);
    bytes += next ? *next - start : total - start + brk;
  }
  return bytes;
}

std::expected<int64_t, QString> extractToFile(const logs::LogSource& source,
                                              const filter::FilterProjection& projection,
                                              const QString& path) {
  QSaveFile file(path);
  if (!file.open(QIODevice::WriteOnly))
    return std::unexpected(
        FilterTexts::tr("“%1” could not be written: %2").arg(QFileInfo(path).fileName(), file.errorString()));
  int64_t written = 0;
  const bool all = streamShownLines(source, projection, [&](std::string_view bytes) {
    const auto length = static_cast<qint64>(bytes.size());
    if (file.write(bytes.data(), length) != length) return false;
    written += length;
    return true;
  });
  if (!all) {
    const QString reason = file.errorString();
    file.cancelWriting();
    return std::unexpected(
        FilterTexts::tr("“%1” could not be written: %2").arg(QFileInfo(path).fileName(), reason));
  }
  if (!file.commit())
    return std::unexpected(
        FilterTexts::tr("“%1” could not be written: %2").arg(QFileInfo(path).fileName(), file.errorString()));
  return written;
}

void extractToDocument(const logs::LogSource& source, const filter::FilterProjection& projection,
                       document::Document& document) {
  document.beginUndoGroup("Extract Shown Lines", {});
  streamShownLines(source, projection, [&](std::string_view bytes) {
    return document.insert(document.length(), bytes, {}, {}).has_value();
  });
  document.endUndoGroup({});
}

std::expected<QString, QString> shownLinesForClipboard(const logs::LogSource& source,
                                                       const filter::FilterProjection& projection,
                                                       int64_t limitBytes) {
  const int64_t bytes = shownBytes(source, projection);
  if (bytes > limitBytes) return std::unexpected(FilterTexts::tooMuchToCopy(bytes));
  std::string text;
  text.reserve(static_cast<size_t>(bytes));
  streamShownLines(source, projection, [&](std::string_view piece) {
    text.append(piece);
    return true;
  });
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

}  // namespace quorin::app
