// The recent-files menu and the session: what is written when a window closes, and opened again at launch.
#include <QFileInfo>
#include <QMenu>
#include <QSettings>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/view/TextView.h"
#include "storage/LargeFileOpenMode.h"

namespace quorin::app {
namespace {

constexpr int kMaxRecentFiles = 12;

}  // namespace

bool sessionModeNeedsAsking(storage::LargeFileOpenMode savedMode, std::optional<int64_t> savedSize,
                            int64_t size, int64_t threshold) {
  if (size <= threshold) return false;
  // Read-only inspection was chosen for a large file and stays safe however the file grew.
  if (savedMode == storage::LargeFileOpenMode::readOnlyInspect) return false;
  // Whole-file mode is kept only when the user chose it for a file that was already
  // large; a file that has grown past the threshold since was never asked about.
  if (savedMode == storage::LargeFileOpenMode::wholeFileVirtual) return !savedSize || *savedSize <= threshold;
  // Slices and tails are chosen afresh, since the file has moved on.
  return true;
}

QStringList MainWindow::recentFiles() { return QSettings().value(kRecentFilesKey).toStringList(); }

void MainWindow::noteRecent(const QString& path) {
  QStringList recent = recentFiles();
  recent.removeAll(path);
  recent.prepend(path);
  while (recent.size() > kMaxRecentFiles) recent.removeLast();
  QSettings().setValue(kRecentFilesKey, recent);
}

void MainWindow::updateRecentMenu() {
  recentMenu_->clear();
  const QStringList recent = recentFiles();
  for (const QString& path : recent) {
    recentMenu_->addAction(
        QFileInfo(path).fileName() + QStringLiteral("  —  ") + QFileInfo(path).absolutePath(), this,
        [this, path] { openFileReportingErrors(path); });
  }
  if (recent.isEmpty()) recentMenu_->addAction(tr("No Recent Files"))->setEnabled(false);
  recentMenu_->addSeparator();
  recentMenu_->addAction(tr("Clear Menu"), this, [] { QSettings().remove(kRecentFilesKey); });
}

void MainWindow::saveSession() {
  QVariantList documents;
  for (MainWindow* window : allWindows()) {
    for (int i = 0; i < window->tabs_->count(); ++i) {
      const DocumentTab* tab = window->tabAt(i);
      if (!tab || tab->path().isEmpty()) continue;
      const auto& mode = tab->document().openMode();
      QVariantMap entry;
      entry[QStringLiteral("path")] = tab->path();
      entry[QStringLiteral("mode")] = static_cast<int>(mode);
      entry[QStringLiteral("caret")] = QVariant::fromValue<qlonglong>(tab->view()->caret());
      entry[QStringLiteral("top")] = QVariant::fromValue<qlonglong>(tab->view()->topOffset());
      entry[QStringLiteral("size")] = QVariant::fromValue<qlonglong>(QFileInfo(tab->path()).size());
      documents.append(entry);
    }
  }
  QSettings().setValue(kSessionKey, documents);
}

void MainWindow::restoreSession() {
  const QVariantList documents = QSettings().value(kSessionKey).toList();
  for (const QVariant& value : documents) {
    const QVariantMap entry = value.toMap();
    const QString path = entry.value(QStringLiteral("path")).toString();
    if (path.isEmpty() || !QFileInfo(path).isFile() || findOpenTab(path)) continue;
    const auto savedMode =
        static_cast<storage::LargeFileOpenMode>(entry.value(QStringLiteral("mode")).toInt());
    const std::optional<int64_t> savedSize =
        entry.contains(QStringLiteral("size"))
            ? std::optional<int64_t>(entry.value(QStringLiteral("size")).toLongLong())
            : std::nullopt;
    storage::LargeFileOpenRequest mode;
    if (savedMode == storage::LargeFileOpenMode::readOnlyInspect) mode.mode = savedMode;
    const bool asked =
        sessionModeNeedsAsking(savedMode, savedSize, QFileInfo(path).size(), fastOpenThreshold());
    if (asked ? openFile(path) : openFileWithMode(path, mode)) continue;
    DocumentTab* tab = findOpenTab(path);
    if (!tab) continue;
    const qlonglong top = entry.value(QStringLiteral("top")).toLongLong();
    const qlonglong caret = entry.value(QStringLiteral("caret")).toLongLong();
    tab->view()->setCaret(caret);
    tab->view()->scrollToOffset(top);
    tab->view()->setCaret(caret);
  }
}

}  // namespace quorin::app
