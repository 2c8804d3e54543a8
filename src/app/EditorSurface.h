#pragma once

#include <QString>
#include <functional>
#include <vector>

#include "search/LineProjection.h"
#include "storage/ByteRange.h"

namespace quorin::app {

// What the panels of a document tab (find bar, go-to field, table view,
// compare) may ask of the text view beside them, so that they can be built
// and tested without it. Offsets are byte offsets into the document's text.
//
// Thread-safety: main thread only. Lifetime: the tab owns both the view and
// its panels; a panel keeps a reference only as long as the tab lives.
class EditorSurface {
 public:
  virtual ~EditorSurface() = default;

  // The selection; `end` is the caret, and begin == end when nothing is selected.
  struct Selection {
    int64_t begin = 0;
    int64_t end = 0;
  };
  virtual Selection selection() const = 0;
  // Selects [begin, end) (the caret at `end`) and scrolls so that it is visible.
  virtual void select(int64_t begin, int64_t end) = 0;

  // Ranges to tint in the view (e.g. every match of the find bar). The view
  // asks for those that intersect the visible bytes each time it paints, so
  // the provider must answer in time proportional to what is visible.
  using HighlightProvider = std::function<std::vector<storage::ByteRange>(storage::ByteRange visible)>;
  virtual void setHighlightProvider(HighlightProvider provider) = 0;
  // Repaint after the provider's answers changed.
  virtual void refreshHighlights() = 0;

  // A short message in the status bar, shown for a few seconds.
  virtual void showStatusMessage(const QString& text) = 0;

  // The lines a filter shows, or null when every line is shown: a go-to or
  // a find step should not land on a line the view does not draw.
  virtual const search::LineProjection* shownLines() const { return nullptr; }
};

}  // namespace quorin::app
