// The main window's Filter menu: the filter bar, rules from the find text,
// the master switch, extracting the shown lines, and named filters.
#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QMenuBar>
#include <QMessageBox>

#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/filter/FilterBar.h"
#include "app/filter/FilterExtract.h"
#include "app/filter/FilterTexts.h"
#include "app/filter/NamedFilters.h"
#include "app/logs/TimelinePanel.h"
#include "app/view/TextView.h"
#include "filter/FilterSetJson.h"

namespace quorin::app {
namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

// The current tab's settled projection, or why there is nothing to extract yet.
std::expected<std::shared_ptr<const filter::FilterProjection>, QString> settledProjection(DocumentTab* tab) {
  if (!tab) return std::unexpected(QString());
  if (!tab->isFiltering()) return std::unexpected(FilterTexts::tr("No filter is on: every line is shown"));
  auto projection = tab->filterProjection();
  if (!projection || !projection->isComplete() || projection->snapshotVersion() != tab->document().version())
    return std::unexpected(FilterTexts::tr("The filter is still being computed: try again when it is done"));
  return projection;
}

}  // namespace

void MainWindow::createFilterMenu() {
  QMenu* menu = menuBar()->addMenu(tr("Fi&lter"));
  auto onTab = [this](auto method) {
    return [this, method] {
      if (DocumentTab* tab = currentTab()) method(tab);
    };
  };
  menu->addAction(tr("Show Filter &Bar"), QKeySequence(tr("Ctrl+Shift+K")), this,
                  onTab([](DocumentTab* t) { t->filterBar()->activate(); }));
  menu->addAction(tr("&Include Find Text"), QKeySequence(tr("Ctrl+Shift+I")), this, onTab([](DocumentTab* t) {
                    t->filterBar()->show();
                    t->filterBar()->addFindTextRule(filter::RuleAction::include);
                  }));
  menu->addAction(tr("&Exclude Find Text"), QKeySequence(tr("Ctrl+Shift+E")), this, onTab([](DocumentTab* t) {
                    t->filterBar()->show();
                    t->filterBar()->addFindTextRule(filter::RuleAction::exclude);
                  }));
  showAllLinesAction_ = menu->addAction(tr("Show &All Lines"));
  showAllLinesAction_->setCheckable(true);
  showAllLinesAction_->setShortcut(QKeySequence(tr("Ctrl+Shift+A")));
  showAllLinesAction_->setToolTip(tr("Switch the filter off and on, keeping the caret's line"));
  connect(showAllLinesAction_, &QAction::triggered, this, [this](bool all) {
    if (DocumentTab* tab = currentTab()) tab->setFilterEnabled(!all);
  });
  menu->addSeparator();
  menu->addAction(tr("Extract to New &Document"), QKeySequence(tr("Ctrl+Shift+X")), this,
                  [this] { extractShownLines(0); });
  menu->addAction(tr("Extract to &File…"), this, [this] { extractShownLines(1); });
  menu->addAction(tr("&Copy Shown Lines"), this, [this] { extractShownLines(2); });
  menu->addSeparator();
  QMenu* named = menu->addMenu(tr("&Named Filters"));
  connect(named, &QMenu::aboutToShow, this, [this, named] { fillNamedFiltersMenu(named); });
  fillNamedFiltersMenu(named);  // the menu is not empty before it is first shown

  // A drag over the timeline fills the time window.
  connect(timeline_, &TimelinePanel::timeRangeSelected, this, [this](qint64 start, qint64 end) {
    if (DocumentTab* tab = currentTab()) {
      tab->filterBar()->show();
      tab->filterBar()->setTimeRange(start, end);
    }
  });
}

void MainWindow::fillNamedFiltersMenu(QMenu* menu) {
  menu->clear();
  QString problem;
  const auto filters = NamedFilters::load(&problem);
  if (!problem.isEmpty()) showTransientMessage(problem);
  for (const auto& named : filters) {
    menu->addAction(qt(named.name), this, [this, options = named.options] {
      DocumentTab* tab = currentTab();
      if (!tab) return;
      tab->filterBar()->show();
      if (tab->filterBar()->apply(options)) tab->setFilterEnabled(true);
    });
  }
  if (filters.empty()) menu->addAction(tr("No Named Filters"))->setEnabled(false);
  menu->addSeparator();
  menu->addAction(tr("&Save Rules As…"), this, [this] {
    DocumentTab* tab = currentTab();
    if (!tab) return;
    const QString name = QInputDialog::getText(this, tr("Save Filter"), tr("Name:")).trimmed();
    if (name.isEmpty()) return;
    NamedFilters::save(name, tab->filterOptions());
    showTransientMessage(tr("Saved the filter “%1”").arg(name));
  });
  QStringList names;
  for (const auto& named : filters) names << qt(named.name);
  QAction* rename = menu->addAction(tr("&Rename…"), this, [this, names] {
    bool ok = false;
    const QString from =
        QInputDialog::getItem(this, tr("Rename Filter"), tr("Filter:"), names, 0, false, &ok);
    if (!ok) return;
    const QString to =
        QInputDialog::getText(this, tr("Rename Filter"), tr("New name:"), QLineEdit::Normal, from).trimmed();
    if (to.isEmpty() || to == from) return;
    if (!NamedFilters::rename(from, to))
      showTransientMessage(tr("A filter named “%1” exists already").arg(to));
  });
  QAction* remove = menu->addAction(tr("&Delete…"), this, [this, names] {
    bool ok = false;
    const QString name =
        QInputDialog::getItem(this, tr("Delete Filter"), tr("Filter:"), names, 0, false, &ok);
    if (ok) NamedFilters::remove(name);
  });
  rename->setEnabled(!names.isEmpty());
  remove->setEnabled(!names.isEmpty());
  menu->addSeparator();
  menu->addAction(tr("E&xport Rules…"), this, &MainWindow::exportFilterSet);
  menu->addAction(tr("&Import…"), this, &MainWindow::importFilterSet);
}

void MainWindow::exportFilterSet() {
  DocumentTab* tab = currentTab();
  if (!tab) return;
  const QString path =
      QFileDialog::getSaveFileName(this, tr("Export Filter"), tr("filter.json"), tr("Filter sets (*.json)"));
  if (path.isEmpty()) return;
  const std::string json =
      filter::exportFilterSet({QFileInfo(path).completeBaseName().toStdString(), tab->filterOptions()});
  QFile file(path);
  if (!file.open(QIODevice::WriteOnly) || file.write(json.data(), static_cast<qint64>(json.size())) < 0)
    return showTransientMessage(
        tr("“%1” could not be written: %2").arg(QFileInfo(path).fileName(), file.errorString()));
  showTransientMessage(tr("Exported the filter to “%1”").arg(QFileInfo(path).fileName()));
}

void MainWindow::importFilterSet() {
  const QString path = QFileDialog::getOpenFileName(this, tr("Import Filter"), QString(),
                                                    tr("Filter sets (*.json);;All files (*)"));
  if (path.isEmpty()) return;
  QFile file(path);
  // A filter set is a few kilobytes; a big file is not one.
  if (!file.open(QIODevice::ReadOnly) || file.size() > (1 << 20))
    return showTransientMessage(tr("“%1” is not a filter set").arg(QFileInfo(path).fileName()));
  const auto imported = filter::importFilterSet(file.readAll().toStdString());
  if (!imported) return showTransientMessage(qt(imported.error().describe()));
  NamedFilters::save(qt(imported->name), imported->options);
  if (DocumentTab* tab = currentTab()) {
    tab->filterBar()->show();
    if (tab->filterBar()->apply(imported->options)) tab->setFilterEnabled(true);
  }
  showTransientMessage(tr("Imported the filter “%1”").arg(qt(imported->name)));
}

void MainWindow::extractShownLines(int where) {
  std::optional<QString> problem;
  if (where == 0) {
    problem = extractToNewDocument();
  } else if (where == 1) {
    if (!currentTab()) return;
    const QString path = QFileDialog::getSaveFileName(this, tr("Extract Shown Lines"));
    if (path.isEmpty()) return;
    problem = extractToFile(path);
  } else {
    problem = copyShownLines();
  }
  if (problem && !problem->isEmpty()) showTransientMessage(*problem);
}

std::optional<QString> MainWindow::extractToNewDocument() {
  DocumentTab* tab = currentTab();
  const auto projection = settledProjection(tab);
  if (!projection) return projection.error();
  const logs::LogSource source = tab->logSource();
  document::OpenOptions options;
  options.mainQueue = &mainQueue_;
  auto document = document::Document::untitled(std::move(options));
  app::extractToDocument(source, **projection, *document);
  addTab(new DocumentTab(std::move(document), mainQueue_, applicationJobs(), tabs_));
  return std::nullopt;
}

std::optional<QString> MainWindow::extractToFile(const QString& path) {
  DocumentTab* tab = currentTab();
  const auto projection = settledProjection(tab);
  if (!projection) return projection.error();
  const auto written = app::extractToFile(tab->logSource(), **projection, path);
  if (!written) return written.error();
  showTransientMessage(
      tr("Wrote %1 lines to “%2”")
          .arg(FilterTexts::grouped((*projection)->visibleLineCount()), QFileInfo(path).fileName()));
  return std::nullopt;
}

std::optional<QString> MainWindow::copyShownLines() {
  DocumentTab* tab = currentTab();
  const auto projection = settledProjection(tab);
  if (!projection) return projection.error();
  auto text = shownLinesForClipboard(tab->logSource(), **projection, TextView::kMaxClipboardBytes);
  if (!text) return text.error();
  QApplication::clipboard()->setText(*text);
  return std::nullopt;
}

}  // namespace quorin::app
