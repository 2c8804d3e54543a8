#include "app/bookmarks/AnnotateTour.h"

#include <QDir>
#include <QFile>
#include <QPlainTextEdit>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/bookmarks/MarkerSettings.h"
#include "app/bookmarks/NotesPanel.h"
#include "app/view/TextView.h"
#include "bookmarks/DocumentBookmarks.h"

namespace quorin::app {
namespace {

QString writeLog(const QString& directory) {
  const QString path = QDir(directory).filePath(QStringLiteral("payments.log"));
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly)) return path;
  for (int i = 0; i < 3000; ++i) {
    const bool failed = i % 23 == 9;
    QString line = QStringLiteral("2026-03-20 11:%1:%2 %3 [worker-%4] %5\n")
                       .arg(i / 60 % 60, 2, 10, QLatin1Char('0'))
                       .arg(i % 60, 2, 10, QLatin1Char('0'))
                       .arg(failed ? QStringLiteral("ERROR") : QStringLiteral("INFO "))
                       .arg(i % 3)
                       .arg(failed ? QStringLiteral("charge %1 timed out after 2000 ms").arg(i)
                                   : QStringLiteral("charge %1 captured in %2 ms").arg(i).arg(i * 13 % 400));
    file.write(line.toUtf8());
  }
  return path;
}

}  // namespace

void tourAnnotate(MainWindow* window, const QString& directory,
                  const std::function<void(QWidget*, const QString&)>& shoot) {
  if (window->openFileWithMode(writeLog(directory), {})) return;
  DocumentTab* tab = window->currentTab();
  pumpEvents(600);  // the log index
  const auto rules = loadMarkerRules();
  saveMarkerRules({{.pattern = "timed out", .colour = bookmarks::MarkerColour::pink},
                   {.pattern = "worker-2", .colour = bookmarks::MarkerColour::cyan}});
  MainWindow::applyMarkersEverywhere();
  auto marks = NotesPanel::bookmarksOf(*tab);
  if (!marks) {
    marks = std::make_shared<bookmarks::DocumentBookmarks>();
    tab->document().setLineAnchors(marks);
  }
  marks->setNote(9, "first timeout: the card network's status page went red at 11:00");
  window->notesPanel()->showTab(tab);
  QPlainTextEdit* editor = window->notesPanel()->editor();
  editor->setPlainText(QStringLiteral("## Payment timeouts, 20 March\n\n- first failure: "));
  editor->moveCursor(QTextCursor::End);
  tab->view()->setCaret(tab->document().snapshot().lines.lineStart(9).value_or(0));
  window->notesPanel()->insertLinkToCaretLine();
  editor->insertPlainText(
      QStringLiteral("\n- every 23rd charge times out, on every worker\n- next: ask the network"));
  tab->view()->scrollToOffset(0);
  tab->view()->setFocus();
  pumpEvents(300);
  shoot(window, QStringLiteral("incident-notes"));
  window->notesPanel()->hide();
  saveMarkerRules(rules);
  MainWindow::applyMarkersEverywhere();
}

}  // namespace quorin::app
