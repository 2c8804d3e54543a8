#pragma once

#include <QObject>
#include <QRgb>
#include <QTimer>
#include <memory>
#include <vector>

#include "bookmarks/Markers.h"
#include "document/Document.h"
#include "search/SearchRuntime.h"

namespace quorin::app {

class DocumentTab;

// Where a tab's markers match in the whole document, for the overview
// strip: one background search per enabled rule (at most 1,000,000 matches
// each), run again a second after the text last changed. Rules whose
// pattern does not compile are left out (the view reports them).
// Thread-safety: GUI thread only; the searches report on the tab's queue.
class MarkerScan : public QObject {
  Q_OBJECT

 public:
  static constexpr int64_t kMostMatches = 1'000'000;

  MarkerScan(DocumentTab* tab, QObject* parent);
  ~MarkerScan() override;

  // The rules to find (replacing the previous ones; none clears the marks).
  void setRules(std::vector<bookmarks::MarkerRule> rules);
  // For `rows` pixel rows over `totalLines` lines: each row's colour, 0 when no marker is in it.
  std::vector<QRgb> rows(int64_t totalLines, int rows) const;

  // The scan of `tab`'s strip (made by the strip's wiring).
  static MarkerScan* of(const DocumentTab& tab);

 signals:
  void changed();

 private:
  void start();
  void cancel();

  DocumentTab* tab_;
  // Its own hold on the document: the strip (and this) outlive the tab's members.
  std::shared_ptr<document::Document> doc_;
  std::vector<bookmarks::MarkerRule> rules_;
  struct Found {
    std::vector<int64_t> lines;  // ascending, distinct
    bookmarks::MarkerColour colour;
  };
  std::vector<Found> found_;
  std::vector<search::SearchHandle> running_;
  uint64_t generation_ = 0;
  QTimer restart_;
  int listener_ = 0;
};

}  // namespace quorin::app
