#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <filesystem>
#include <memory>
#include <optional>

#include "app/goto/GoToField.h"
#include "bookmarks/DocumentBookmarks.h"
#include "bookmarks/Sidecar.h"
#include "dispatch/MainQueue.h"
#include "document/Document.h"
#include "filter/LiveFilter.h"
#include "jobs/JobRegistry.h"
#include "logs/LogIndex.h"
#include "logs/SeverityRules.h"
#include "recovery/JournalKeeper.h"
#include "search/SearchRuntime.h"

class QStackedWidget;
class QTimer;
class QVBoxLayout;

namespace quorin::dispatch {
class SerialQueue;
}

namespace quorin::app {

class CsvGridView;
class FilterBar;
class FindBar;
class OverviewStrip;
class TextView;

// One open document in a tab: the document, its text view or its table view,
// the find bar above and the go-to field below. It turns the document's notices into
// prompts and status texts, and runs saves (off the GUI thread) with their
// alerts. It keeps the document's log index (levels and times, built in the
// background and kept current through edits, appends and reloads).
// Thread-safety: GUI thread only. Lifetime: owns the document.
class DocumentTab : public QWidget {
  Q_OBJECT

 public:
  DocumentTab(std::shared_ptr<document::Document> document, dispatch::MainQueue& mainQueue,
              jobs::JobRegistry& jobs, QWidget* parent = nullptr);
  ~DocumentTab() override;

  document::Document& document() const { return *doc_; }
  const std::shared_ptr<document::Document>& sharedDocument() const { return doc_; }
  TextView* view() const { return view_; }
  FindBar* findBar() const { return find_; }
  FilterBar* filterBar() const { return filterBar_; }
  GoToField* goToField() const { return goTo_; }
  OverviewStrip* overviewStrip() const { return overview_; }
  dispatch::MainQueue& mainQueue() const { return mainQueue_; }
  // The Table view of a delimited document; false (with the reason in the
  // status bar) when the text does not parse as a table.
  bool setTableView(bool on);
  bool isShowingTable() const;
  CsvGridView* grid() const { return grid_; }

  // The tab's title: the file name, with "•" while unsaved.
  QString title() const;
  // The file, or empty for an untitled document.
  QString path() const;

  // Status-bar texts.
  QString encodingText() const;
  QString lineEndingText() const;
  QString sizeText() const;
  QString indexText() const;
  QString indexToolTip() const;
  // Said once when the tab opens (e.g. that the file looks binary); empty when there is nothing to say.
  QString openNotice() const { return openNotice_; }
  QString followText() const { return followText_; }

  // The log index's latest data (never null; until the first publication
  // only the sampled timestamp format, no blocks), the rules it was built
  // with, and the text it reads.
  std::shared_ptr<const logs::LogIndexData> logData() const { return logData_; }
  const logs::SeverityRules& severityRules() const { return rules_; }
  logs::LogSource logSource() const;
  // Go ▸ Next/Previous Error and the like: the caret to the next (previous)
  // message at `atLeast` or above, or a status message saying why not.
  void stepToMessage(logs::Level atLeast, bool forward);
  // The caret line's time and the time since the previous message; empty
  // when the document has no timestamps.
  QString caretTimeText() const;
  bool canCatchUp() const { return canCatchUp_; }

  // Saves; the outcome arrives as saveFinished. Untitled documents need saveAs.
  void save();
  void saveAs(const QString& path);
  bool isSaving() const { return doc_->isSaving(); }
  void setFollowing(bool follow);
  bool isFollowing() const { return doc_->isFollowing(); }
  void catchUpToLive();

  // The line filter (DocumentTabFilter.cpp). The options are applied at
  // once while the filter is on: a refusal (a reversed window, an offset as
  // a window edge) changes nothing and is returned; otherwise the per-rule
  // errors ("Invalid regex: …", empty for working rules).
  std::expected<std::vector<std::string>, QString> setFilterOptions(const filter::FilterOptions& options);
  const filter::FilterOptions& filterOptions() const { return filterOptions_; }
  const std::vector<std::string>& filterRuleErrors() const { return filterErrors_; }
  // The master switch: off shows every line and keeps the last projection,
  // so that on again with the same options over the same text is instant.
  void setFilterEnabled(bool on);
  bool isFilterEnabled() const { return filterOn_; }
  // Whether the view shows a filtered subset now.
  bool isFiltering() const;
  std::shared_ptr<const filter::FilterProjection> filterProjection() const;
  // "12,345 of 11,018,676 lines shown", "Filtering… 34%", "Updating filter…"; empty when not filtering.
  QString filterStatusText() const;
  // The time-out notice of the last evaluation, if it ran out of time.
  QString filterNotice() const;

  // Crash recovery (DocumentTabRecovery.cpp): the journal of this document's
  // unsaved edits while it has some; empty when none.
  QString recoveryJournalPath() const;
  // Applies a journal's records to the document as one undo step (the
  // document then shows modified); the reason when they do not fit.
  std::optional<QString> applyRecoveredEdits(const std::vector<recovery::JournalRecord>& records);
  // Bookmarks (DocumentTabBookmarks.cpp). A file's bookmarks come back from
  // its sidecar once the line index is complete (re-anchored off the main
  // thread), and go back to it a second after the last change and when the
  // tab closes.
  bookmarks::DocumentBookmarks& bookmarks() const { return *bookmarks_; }
  // Bookmarks of the sidecar that were not found again in the changed file.
  const std::vector<bookmarks::SidecarBookmark>& lostBookmarks() const { return lostBookmarks_; }
  void toggleBookmark();
  // The caret to the next (previous) bookmark on a shown line, wrapping with a status message.
  void stepToBookmark(bool forward);
  void setBookmarkNote(int64_t line, const QString& note);
  // Clears the bookmarks and the lost ones.
  void clearBookmarks();
  // Drops a lost bookmark (by the line it had) from the list and the sidecar.
  void forgetLostBookmark(int64_t savedLine);
  // Every line with a match of the find bar's text, found in the background.
  void bookmarkAllMatches();
  bool isBookmarkingMatches() const { return bookmarkSearch_.cancellation != nullptr; }
  void bookmarkShownLines();
  // The caret's 0-based line (0 where the line index has not counted yet).
  int64_t caretLine() const;
  // A line's message time ("2026-03-20 12:00:01.250"); empty without times.
  QString lineTimeText(int64_t line) const;
  // "+2 min 14 s since bookmark at line 1,234"; empty without times or a bookmark above.
  QString bookmarkTimeText() const;
  // Whether the sidecar is still being read.
  bool isReadingBookmarks() const { return reanchorGeneration_ != 0 || reanchorWaitsForLines_; }
  static constexpr int64_t kBookmarkAllCap = 1'000'000;
  // Deletes, in the background, the sidecars of files gone for 90 days; once, at start.
  static void pruneSidecarsInBackground();

 signals:
  void statusMessage(const QString& text);
  // Title, modified state, index progress or following changed.
  void stateChanged();
  void saveFinished(bool saved);
  void tableViewChanged(bool showing);
  // The log index published new data (blocks filled in, an edit folded in).
  void logDataChanged();
  // The filter's options, switch, progress or projection changed.
  void filterChanged();
  // The bookmarks changed (by the user, an edit, undo, redo or the sidecar); coalesced.
  void bookmarksChanged();

 private:
  void showLiveNotice(const document::LiveFileNotice& notice);
  void showStatus(const std::string& text);
  void finishSave(const std::expected<persistence::SaveOutcome, persistence::SaveError>& result);
  bool confirmLossySave();
  bool looksBinary() const;
  void startLogIndex();
  void logIndexFollow(const document::DocumentChange& change);
  std::expected<GoToField::TimeLanding, QString> landingForTime(const logs::TimeInput& input) const;
  // The filter (DocumentTabFilter.cpp).
  void createFilter();
  void startFilter();
  // Shows the live filter's last projection when it is current for the options; false when it is not.
  bool showKeptProjection();
  void filterFollow(const document::DocumentChange& change);
  void filterLinesCounted(bool complete);
  void filterLogDataChanged();
  void filterPublished(std::shared_ptr<const filter::FilterProjection> projection);
  void startCrashRecovery();
  void filterBookmarksChanged();
  // Bookmarks (DocumentTabBookmarks.cpp).
  void createBookmarks();
  void closeBookmarks();
  void bookmarksFollow(const document::DocumentChange& change);
  void bookmarksLinesCounted(bool complete);
  void startReanchor();
  void finishReanchor(uint64_t generation, bool rewrite, std::optional<bookmarks::Sidecar> read,
                      std::filesystem::path foundAt, std::vector<bookmarks::Bookmark> found,
                      std::vector<bookmarks::SidecarBookmark> lost);
  void noteBookmarksChanged();
  // The set or the lost list changed: the sidecar's timer, and one notice.
  void markBookmarksChanged();
  void writeBookmarks();
  void finishMatchBookmarks(search::SearchResult result);

  std::shared_ptr<document::Document> doc_;
  dispatch::MainQueue& mainQueue_;
  jobs::JobRegistry& jobs_;
  TextView* view_;
  QVBoxLayout* layout_;
  QStackedWidget* stack_;
  FindBar* find_;
  GoToField* goTo_;
  CsvGridView* grid_ = nullptr;
  OverviewStrip* overview_ = nullptr;
  int listenerToken_ = 0;
  storage::LineIndexProgress progress_;
  QString followText_;
  QString openNotice_;
  bool canCatchUp_ = false;
  bool warnedTooLargeToUndo_ = false;
  logs::SeverityRules rules_;
  std::shared_ptr<dispatch::Executor> logQueue_;
  std::shared_ptr<logs::LogIndex> logIndex_;
  std::shared_ptr<const logs::LogIndexData> logData_;
  // The log index was started while the line index was still counting: it
  // is told as the line index learns more lines.
  bool logIndexTrailsLines_ = false;
  bool logPublished_ = false;

  // The filter.
  FilterBar* filterBar_ = nullptr;
  std::shared_ptr<dispatch::Executor> filterQueue_;
  std::shared_ptr<filter::LiveFilter> liveFilter_;
  filter::FilterOptions filterOptions_;
  std::vector<std::string> filterErrors_;
  bool filterOn_ = true;
  bool filterStarted_ = false;        // the live filter evaluates filterOptions_ (else it is stale)
  bool filterTrailsLines_ = false;    // started while the line index was counting
  bool filterHasWholeLog_ = false;    // started with the complete log index
  uint64_t filterBookmarksSeen_ = 0;  // the bookmarks' generation the filter started with

  // Bookmarks.
  std::shared_ptr<bookmarks::DocumentBookmarks> bookmarks_;
  std::vector<bookmarks::SidecarBookmark> lostBookmarks_;
  std::filesystem::path sidecarAt_;  // where the sidecar was found or last written
  bool reanchorWaitsForLines_ = false;
  uint64_t reanchorGeneration_ = 0;  // of the read under way; 0 when none
  uint64_t reanchorCounter_ = 0;
  std::shared_ptr<jobs::JobToken> reanchorJob_;
  bool bookmarksDirty_ = false;   // changed since the sidecar was last written
  bool applyingSidecar_ = false;  // the change is the sidecar's, not the user's
  bool bookmarksChangePosted_ = false;
  bool hadBookmarks_ = false;         // when the set last changed
  uint64_t bookmarksGeneration_ = 0;  // counts the changes
  bool reportedSidecarFailure_ = false;
  QTimer* sidecarTimer_ = nullptr;
  std::shared_ptr<dispatch::SerialQueue> sidecarQueue_;
  search::SearchHandle bookmarkSearch_;

  // Crash recovery.
  std::shared_ptr<recovery::JournalKeeper> journal_;
  QTimer* journalTimer_ = nullptr;
};

}  // namespace quorin::app
