#pragma once

#include <QAction>
#include <QString>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "app/EditorSurface.h"
#include "app/QtMainQueue.h"
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

// Background answers may arrive after a test ends, so this queue lives as long as the process.
inline QtMainQueue& lastingQueue() {
  static auto* queue = new QtMainQueue;
  return *queue;
}

// The action of `window` (or of its menus) with this text, '&' left out; null when there is none.
inline QAction* actionNamed(const QObject& window, const QString& text) {
  for (QAction* action : window.findChildren<QAction*>())
    if (QString(action->text()).remove('&') == text) return action;
  return nullptr;
}

// A document's options with nothing watched. A null `lineIndexQueue` builds
// the index on the product's own queue.
inline document::OpenOptions testOptions(dispatch::MainQueue& main,
                                         std::shared_ptr<dispatch::Executor> lineIndexQueue = {}) {
  document::OpenOptions options;
  options.mainQueue = &main;
  options.lineIndexQueue = std::move(lineIndexQueue);
  options.watchFile = false;
  options.watchMemoryPressure = false;
  return options;
}

// A document over `text`, written to a file in `dir`.
inline std::shared_ptr<document::Document> openTestDocument(
    const testing::TempDir& dir, std::string_view text, dispatch::MainQueue& main,
    std::shared_ptr<dispatch::Executor> lineIndexQueue = {}, int64_t firstPassLines = 0) {
  document::OpenOptions options = testOptions(main, std::move(lineIndexQueue));
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
