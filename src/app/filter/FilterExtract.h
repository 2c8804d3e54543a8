#pragma once

#include <QString>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string_view>

#include "document/Document.h"
#include "filter/FilterProjection.h"
#include "logs/LogIndex.h"

namespace quorin::app {

// Streams the lines `projection` shows, each whole (however long) and
// followed by the document's line break, to `sink` in pieces of at most a
// few MiB; `sink` returns false to stop. Returns whether all were written.
bool streamShownLines(const logs::LogSource& source, const filter::FilterProjection& projection,
                      const std::function<bool(std::string_view)>& sink);

// The bytes streamShownLines writes, counted from the line starts alone.
int64_t shownBytes(const logs::LogSource& source, const filter::FilterProjection& projection);

// Writes the shown lines to `path` through a temporary file beside it that
// is renamed into place: a failure leaves the target as it was and no half
// file. Returns the bytes written, or the reason.
std::expected<int64_t, QString> extractToFile(const logs::LogSource& source,
                                              const filter::FilterProjection& projection,
                                              const QString& path);

// Appends the shown lines to `document` (a new untitled one) as one undo step, in pieces.
void extractToDocument(const logs::LogSource& source, const filter::FilterProjection& projection,
                       document::Document& document);

// The shown lines as clipboard text, refused above `limitBytes` with
// "Too many lines to copy (1.2 GB): save them to a file instead".
std::expected<QString, QString> shownLinesForClipboard(const logs::LogSource& source,
                                                       const filter::FilterProjection& projection,
                                                       int64_t limitBytes);

}  // namespace quorin::app
