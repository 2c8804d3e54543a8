#pragma once

#include <QWidget>
#include <cstdint>
#include <memory>

#include "app/EditorSurface.h"
#include "app/find/MatchSet.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"
#include "replace/ReplacePlanner.h"
#include "search/FindNext.h"
#include "search/SearchEngine.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTimer;

namespace quorin::app {

// The product's figures; tests shrink them.
struct FindBarConfig {
  int64_t matchCap = search::kFindBarMatchCap;
  search::SearchLimits searchLimits;
  search::FindNextLimits findNextLimits;
  int countDelayMs = 150;     // typing pause before a count starts
  int recountDelayMs = 1000;  // editing pause before stale results are counted again
  int historyLimit = 30;
};

// The find and replace bar of one document tab.
//
// Typing counts every match of the whole document on a background job
// (cancelled when the query changes), with the progress and the matches found
// so far; the stored matches are highlighted in the view. Next and previous
// use the stored matches when they are current and complete, and otherwise
// the bounded find-next scan, so that Enter never waits for a whole-file
// pass. After an edit the matches are shifted along and marked stale until a
// recount. Replace All is one bulk edit and one undo step.
//
// Thread-safety: main thread only. Lifetime: the surface must stay alive
// while the bar is used (the bar's destructor does not touch it, so the tab
// may destroy them in either order); background answers that arrive after the
// bar is gone are dropped.
class FindBar final : public QWidget {
  Q_OBJECT

 public:
  FindBar(std::shared_ptr<document::Document> document, EditorSurface& surface,
          dispatch::MainQueue& mainQueue, QWidget* parent = nullptr, FindBarConfig config = {});
  ~FindBar() override;

  // Ctrl+F / Ctrl+H: show the bar (with or without the replace row), take
  // the selection as the query when it is a short single line, focus it.
  void activate();
  void activateReplace();
  // Esc: hide, stop the count, clear the highlights.
  void close();
  // Creates the shortcuts (Ctrl+F, Ctrl+H, F3, Shift+F3) on `scope`, usually the tab.
  void installShortcuts(QWidget* scope);

  void findNext();
  void findPrevious();
  void replaceCurrent();
  void replaceAll();
  void cancelReplaceAll();

  // For the window and for tests.
  QString query() const;
  void setQuery(const QString& text);
  search::SearchOptions options() const;
  QString summaryText() const;
  QString noticeText() const;
  bool isCounting() const { return countHandle_.cancellation != nullptr; }
  bool isReplacing() const { return replaceAllHandle_.cancellation != nullptr; }
  const MatchSet& matches() const { return matches_; }

 signals:
  // The bar was closed; the view may take the focus back.
  void closed();
  // The highlighted matches changed (a count, an edit, the bar opened or closed).
  void highlightsChanged();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void queryChanged();
  void startCount();
  void stopCount();
  void countFinished(uint64_t generation, search::SearchResult result);
  void documentChanged(const document::DocumentChange& change);
  void step(bool backward);
  // A find-next scan from `from`, passing over matches on hidden lines.
  void scan(int64_t from, bool backward, int64_t origin, bool wrappedBefore, int hops);
  bool onHiddenLine(storage::ByteRange range) const;
  static constexpr int kMaxHiddenHops = 10'000;
  void landOn(storage::ByteRange range, bool wrapped, bool backward);
  void showSummary();
  void setNotice(const QString& text);
  void rememberQuery();
  void finishReplaceAll(search::SearchResult result);
  void setReplacing(bool replacing);
  // The typed replacement, checked against the query (a template for a regex).
  std::expected<replace::PreparedReplacement, replace::ReplaceError> preparedReplacement() const;
  // The replace field's tooltip: the next replacement, or why there is none.
  void updateReplacePreview();

  std::shared_ptr<document::Document> document_;
  EditorSurface& surface_;
  dispatch::MainQueue& mainQueue_;
  const FindBarConfig config_;
  search::SearchEngine engine_;
  search::FindNext finder_;
  int changeListener_ = 0;
  // Lets queued answers check that the bar still exists (the main queue may
  // outlive it).
  std::shared_ptr<FindBar*> alive_;

  QComboBox* queryBox_ = nullptr;
  QCheckBox* caseBox_ = nullptr;
  QCheckBox* wordBox_ = nullptr;
  QCheckBox* regexBox_ = nullptr;
  QCheckBox* escapesBox_ = nullptr;
  QLabel* summary_ = nullptr;
  QLabel* notice_ = nullptr;
  QWidget* replaceRow_ = nullptr;
  QLineEdit* replacementEdit_ = nullptr;
  QPushButton* replaceAllButton_ = nullptr;
  QPushButton* cancelButton_ = nullptr;
  QLabel* replaceProgress_ = nullptr;
  QTimer* countTimer_ = nullptr;
  QTimer* recountTimer_ = nullptr;

  uint64_t generation_ = 0;  // of the query and text being counted
  search::SearchHandle countHandle_;
  search::SearchResult lastResult_;  // summary fields of the last count (matches moved into matches_)
  bool haveResult_ = false;
  std::shared_ptr<MatchSet> highlights_;  // what the view's highlight provider reads
  MatchSet& matches_;
  search::SearchHandle stepHandle_;
  search::SearchHandle replaceAllHandle_;
  uint64_t replaceGeneration_ = 0;
  bool wrapNoteShown_ = false;  // the status bar shows "Search wrapped…" from the last step
};

}  // namespace quorin::app
