#pragma once

#include <QString>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "app/EditorSurface.h"
#include "document/Document.h"
#include "support/TempDir.h"

// Readable QStrings in failure messages.
inline void PrintTo(const QString& text, std::ostream* os) { *os << '"' << text.toStdString() << '"'; }

namespace quorin::app {

// The text view as the panels see it: a selection, a highlight provider and
// the last status message.
class FakeEditorSurface final : public EditorSurface {
 public:
  Selection selection() const override { return selected; }
  void select(int64_t begin, int64_t end) override { selected = {begin, end}; }
  void setHighlightProvider(HighlightProvider provider) override { this->provider = std::move(provider); }
  void refreshHighlights() override {}
  void showStatusMessage(const QString& text) override { status = text; }
  const search::LineProjection* shownLines() const override { return shown.get(); }

  std::vector<storage::ByteRange> highlightsIn(storage::ByteRange visible) const {
    return provider ? provider(visible) : std::vector<storage::ByteRange>{};
  }

  Selection selected;
  HighlightProvider provider;
  QString status;
  std::shared_ptr<const search::LineProjection> shown;  // a filter's lines, or null
};

// A document over `text`, written to a file in `dir`. A null `lineIndexQueue`
// builds the index on the product's own queue.
inline std::shared_ptr<document::Document> openTestDocument(
    const testing::TempDir& dir, std::string_view text, dispatch::MainQueue& main,
    std::shared_ptr<dispatch::Executor> lineIndexQueue = {}, int64_t firstPassLines = 0) {
  document::OpenOptions options;
  options.mainQueue = &main;
  options.watchFile = false;
  options.watchMemoryPressure = false;
  options.lineIndexQueue = lineIndexQueue;
  if (firstPassLines > 0) {
    options.lineIndexLimits.firstPassLines = firstPassLines;
    options.lineIndexLimits.firstPassBytes = 64;
    options.lineIndexLimits.passLines = firstPassLines;
    options.lineIndexLimits.chunkBytes = 16;
  }
  return document::Document::open(dir.write("doc.txt", text).string(), options).value();
}

inline std::string wholeText(const document::Document& doc) {
  return doc.snapshot().text.readBytes({0, doc.length()}).value_or("");
}

}  // namespace quorin::app
