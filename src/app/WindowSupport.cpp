#include "app/WindowSupport.h"

#include <QApplication>
#include <QEventLoop>
#include <QFileInfo>
#include <QSettings>
#include <QTimer>

#include "app/MainWindow.h"
#include "storage/LargeFileOpenMode.h"

namespace quorin::app {

QString canonicalPath(const QString& path) {
  const QFileInfo info(path);
  const QString resolved = info.canonicalFilePath();
  return resolved.isEmpty() ? info.absoluteFilePath() : resolved;
}

int64_t fastOpenThreshold() {
  const QSettings settings;
  return settings
      .value(QString::fromUtf8(storage::kFastOpenThresholdKey.data(),
                               static_cast<qsizetype>(storage::kFastOpenThresholdKey.size())),
             QVariant::fromValue<qlonglong>(storage::kDefaultFastOpenThresholdBytes))
      .toLongLong();
}

jobs::JobRegistry& applicationJobs() {
  static jobs::JobRegistry registry;
  return registry;
}

QList<MainWindow*> allWindows() {
  QList<MainWindow*> windows;
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (auto* window = qobject_cast<MainWindow*>(widget)) windows.append(window);
  }
  return windows;
}

bool inPlaceSavePreference() { return QSettings().value(MainWindow::kInPlaceSaveKey, true).toBool(); }

void setInPlaceSavePreference(bool enabled) { QSettings().setValue(MainWindow::kInPlaceSaveKey, enabled); }

void pumpEvents(int ms) {
  QEventLoop loop;
  QTimer::singleShot(ms, &loop, &QEventLoop::quit);
  loop.exec();
}

}  // namespace quorin::app
