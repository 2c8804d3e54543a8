#pragma once

#include <QMainWindow>
#include <QString>
#include <optional>

#include "dispatch/MainQueue.h"
#include "logs/Severity.h"
#include "storage/LargeFileOpenMode.h"

class QAction;
class QLabel;
class QMenu;
class QProgressBar;
class QTabWidget;

namespace quorin::app {

class BookmarksPanel;
class DocumentTab;
class NotesPanel;
class TimelinePanel;

// Whether a restored session entry asks for an open mode again: the file is above the fast-open
// threshold now, and the saved mode was not chosen for it at that size (`savedSize`, absent in
// older sessions).
bool sessionModeNeedsAsking(storage::LargeFileOpenMode savedMode, std::optional<int64_t> savedSize,
                            int64_t size, int64_t threshold);

// A window of tabs, one document per tab. Files open from File ▸ Open, the
// recent-files menu, drag and drop and the command line; a file already open
// in any window is focused instead of opened twice. Files above the
// fast-open threshold go through the large-file dialog first.
//
// Thread-safety: GUI thread only.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(dispatch::MainQueue& mainQueue, QWidget* parent = nullptr);
  ~MainWindow() override;

  // Opens `path` in a new tab (asking for a mode first when it is large), or
  // focuses its tab. Returns the user-facing reason when it could not be opened.
  std::optional<QString> openFile(const QString& path);
  // Opens with a mode chosen already (session restore, tests): no dialog.
  std::optional<QString> openFileWithMode(const QString& path, const storage::LargeFileOpenRequest& mode);
  // openFile, with an alert on failure.
  void openFileReportingErrors(const QString& path);
  void newDocument();

  DocumentTab* currentTab() const;
  QTabWidget* tabs() const { return tabs_; }
  TimelinePanel* timeline() const { return timeline_; }
  NotesPanel* notesPanel() const { return notes_; }
  // Annotate ▸ Mark Selection: the selected text becomes a marker in the next free colour, in every tab.
  void markSelection();
  // The stored markers, compiled for one tab's view; for every tab of every window after a change.
  void applyMarkers(DocumentTab* tab);
  static void applyMarkersEverywhere();
  BookmarksPanel* bookmarksPanel() const { return bookmarksPanel_; }
  dispatch::MainQueue& mainQueue() const { return mainQueue_; }
  DocumentTab* tabAt(int index) const;
  int tabCount() const;
  // Closes a tab, asking first when it has unsaved changes; false when the user cancelled.
  bool closeTab(int index);
  // The tab showing `path` in any window, when there is one.
  static DocumentTab* findOpenTab(const QString& path, MainWindow** window = nullptr);

  // The previous session: open files with their modes and caret positions.
  static void saveSession();
  void restoreSession();
  static QStringList recentFiles();

  // The settings keys.
  static constexpr const char* kRecentFilesKey = "QuorinRecentFiles";
  static constexpr const char* kSessionKey = "QuorinSessionDocuments";
  static constexpr const char* kInPlaceSaveKey = "QuorinInPlaceSaveEnabled";
  // Go ▸ Step Level: the level F6 / Shift+F6 step to ("trace" … "fatal").
  static constexpr const char* kStepLevelKey = "QuorinStepLevel";

  // Filter ▸ Extract: the shown lines of the current tab to a new document, a file or the clipboard;
  // the reason when not.
  std::optional<QString> extractToNewDocument();
  std::optional<QString> extractToFile(const QString& path);
  std::optional<QString> copyShownLines();

  // File ▸ Patch Small Edits in Place: stored, and applied to every open document of every window.
  static void applyInPlaceSavePreference(bool enabled);
  // Help ▸ Keyboard Shortcuts: the menus' shortcuts and the panels' own keys, one a line.
  QString shortcutsText() const;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void createMenus();
  // The Go menu: go to a line or a time, step through messages by level.
  void createGoMenu();
  void setStepLevel(logs::Level level);
  // The Filter menu (MainWindowFilter.cpp): the bar, rules from the find text, the master switch,
  // extracting the shown lines, named filters.
  void createFilterMenu();
  // The Annotate menu and the notes panel (MainWindowAnnotate.cpp).
  void createAnnotateMenu();
  void fillNamedFiltersMenu(QMenu* menu);
  void extractShownLines(int where);  // 0: a new document, 1: a file, 2: the clipboard
  void exportFilterSet();
  void importFilterSet();
  // The Bookmarks menu and panel (MainWindowBookmarks.cpp).
  void createBookmarksMenu();
  void editBookmarkNote(DocumentTab* tab);
  void createStatusBar();
  void chooseAndOpenFile();
  void compareCurrent();
  bool saveCurrent(bool askForName);
  void addTab(DocumentTab* tab);
  void currentTabChanged();
  void updateStatus();
  void updateActions();
  void updateRecentMenu();
  void noteRecent(const QString& path);
  void showTransientMessage(const QString& text);

  dispatch::MainQueue& mainQueue_;
  QTabWidget* tabs_;
  TimelinePanel* timeline_;
  NotesPanel* notes_ = nullptr;
  BookmarksPanel* bookmarksPanel_ = nullptr;
  QMenu* recentMenu_ = nullptr;
  QAction* saveAction_ = nullptr;
  QAction* saveAsAction_ = nullptr;
  QAction* undoAction_ = nullptr;
  QAction* redoAction_ = nullptr;
  QAction* followAction_ = nullptr;
  QAction* catchUpAction_ = nullptr;
  QAction* tableAction_ = nullptr;
  QAction* inPlaceAction_ = nullptr;
  QAction* nextAtLevelAction_ = nullptr;
  QAction* previousAtLevelAction_ = nullptr;
  QAction* showAllLinesAction_ = nullptr;
  logs::Level stepLevel_ = logs::Level::info;
  QLabel* positionLabel_ = nullptr;
  QLabel* selectionLabel_ = nullptr;
  QLabel* timeLabel_ = nullptr;
  QLabel* bookmarkLabel_ = nullptr;
  QLabel* indexLabel_ = nullptr;
  QLabel* filterLabel_ = nullptr;
  QLabel* followLabel_ = nullptr;
  QLabel* sizeLabel_ = nullptr;
  QLabel* encodingLabel_ = nullptr;
  QLabel* lineEndingLabel_ = nullptr;
  QProgressBar* savingBar_ = nullptr;
  QMetaObject::Connection tabConnections_[3];
};

}  // namespace quorin::app
