// The Annotate menu: incident notes, the incident report, and markers.
#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QInputDialog>
#include <QMenuBar>
#include <QStatusBar>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/bookmarks/MarkerScan.h"
#include "app/bookmarks/MarkerSettings.h"
#include "app/bookmarks/MarkersDialog.h"
#include "app/bookmarks/NotesPanel.h"
#include "app/bookmarks/ReportExport.h"
#include "app/view/TextView.h"

namespace quorin::app {
namespace {

constexpr int kDefaultReportContext = 3;

}  // namespace

void MainWindow::createAnnotateMenu() {
  notes_ = new NotesPanel(this);
  addDockWidget(Qt::RightDockWidgetArea, notes_);
  notes_->hide();
  connect(notes_, &NotesPanel::lineActivated, this, [this](qint64 line) {
    DocumentTab* tab = currentTab();
    if (!tab) return;
    const auto start = tab->document().snapshot().lines.lineStart(line);
    if (!start) return showTransientMessage(tr("Line %1 is not in this document").arg(line + 1));
    tab->view()->setCaret(*start);
    tab->view()->scrollToOffset(*start, true);
    tab->view()->setFocus();
  });

  QMenu* menu = new QMenu(tr("&Annotate"), this);
  // Before Help, which stays last.
  const QList<QAction*> menus = menuBar()->actions();
  menuBar()->insertMenu(menus.isEmpty() ? nullptr : menus.back(), menu);
  QAction* notes = notes_->toggleViewAction();
  notes->setText(tr("Incident &Notes"));
  notes->setShortcut(QKeySequence(tr("Ctrl+Alt+N")));
  menu->addAction(notes);
  menu->addAction(tr("Insert &Link to Caret Line"), QKeySequence(tr("Ctrl+Alt+L")), this,
                  [this] { notes_->insertLinkToCaretLine(); });
  menu->addSeparator();
  menu->addAction(tr("&Export Incident Report…"), this, [this] {
    DocumentTab* tab = currentTab();
    if (!tab) return;
    bool ok = false;
    const int context =
        QInputDialog::getInt(this, tr("Export Incident Report"), tr("Lines of context around each bookmark:"),
                             kDefaultReportContext, 0, 50, 1, &ok);
    if (!ok) return;
    const QString path =
        QFileDialog::getSaveFileName(this, tr("Export Incident Report"), tr("incident-report.html"),
                                     tr("Web page (*.html);;Markdown (*.md)"));
    if (path.isEmpty()) return;
    if (const auto problem = saveIncidentReport(*tab, path, context)) return showTransientMessage(*problem);
    showTransientMessage(tr("Incident report saved to %1").arg(path));
  });
  menu->addAction(tr("&Copy Incident Report"), this, [this] {
    if (DocumentTab* tab = currentTab()) {
      QApplication::clipboard()->setText(
          QString::fromStdString(bookmarks::reportMarkdown(incidentReportOf(*tab, kDefaultReportContext))));
      showTransientMessage(tr("Incident report copied as Markdown"));
    }
  });
  menu->addSeparator();
  menu->addAction(tr("&Mark Selection"), QKeySequence(tr("Ctrl+M")), this, [this] { markSelection(); });
  menu->addAction(tr("M&arkers…"), this, [this] {
    MarkersDialog dialog(loadMarkerRules(), this);
    if (dialog.exec() != QDialog::Accepted) return;
    saveMarkerRules(dialog.rules());
    applyMarkersEverywhere();
  });
  menu->addAction(tr("Clear Mar&kers"), this, [] {
    saveMarkerRules({});
    applyMarkersEverywhere();
  });
}

void MainWindow::markSelection() {
  DocumentTab* tab = currentTab();
  if (!tab) return;
  const auto selection = tab->view()->selection();
  const int64_t begin = std::min(selection.begin, selection.end);
  const int64_t end = std::max(selection.begin, selection.end);
  if (begin == end || end - begin > 1000) {
    return showTransientMessage(tr("Select the text to mark (a word or a phrase on one line)"));
  }
  const std::string text = tab->document().snapshot().text.readBytes({begin, end}).value_or("");
  if (text.find('\n') != std::string::npos) {
    return showTransientMessage(tr("Select the text to mark (a word or a phrase on one line)"));
  }
  auto rules = loadMarkerRules();
  for (const auto& rule : rules) {
    if (rule.pattern == text && !rule.regex) return showTransientMessage(tr("Already marked"));
  }
  rules.push_back({.pattern = text, .caseSensitive = true, .colour = bookmarks::nextFreeColour(rules)});
  saveMarkerRules(rules);
  applyMarkersEverywhere();
}

void MainWindow::applyMarkers(DocumentTab* tab) {
  QString problem;
  const auto rules = loadMarkerRules(&problem);
  auto compiled = rules.empty() ? nullptr : std::make_shared<bookmarks::CompiledMarkers>(rules);
  tab->view()->setMarkers(compiled);
  if (MarkerScan* scan = MarkerScan::of(*tab)) scan->setRules(rules);
  if (!problem.isEmpty()) showTransientMessage(problem);
  for (size_t i = 0; compiled && i < compiled->problems().size(); ++i) {
    if (const auto& error = compiled->problems()[i]) {
      showTransientMessage(
          tr("Marker \"%1\": %2")
              .arg(QString::fromStdString(rules[i].pattern), QString::fromStdString(*error)));
    }
  }
}

void MainWindow::applyMarkersEverywhere() {
  for (MainWindow* window : allWindows()) {
    for (int i = 0; i < window->tabCount(); ++i) window->applyMarkers(window->tabAt(i));
  }
}

}  // namespace quorin::app
