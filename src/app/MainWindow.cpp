#include "MainWindow.h"

#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QLocale>
#include <QMenuBar>
#include <QMessageBox>
#include <QStatusBar>

#include "FirstScreen.h"
#include "FirstScreenView.h"

namespace quorin::app {
namespace {

QString fromUtf8(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QLabel* addStatusLabel(QStatusBar* bar) {
  auto* label = new QLabel(bar);
  label->setContentsMargins(8, 0, 8, 0);
  bar->addPermanentWidget(label);
  return label;
}

}  // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), view_(new FirstScreenView(this)) {
  setWindowTitle(QStringLiteral("Quorin"));
  view_->setHint(tr("Open a file with File ▸ Open (Ctrl+O)"));
  setCentralWidget(view_);
  createMenus();

  coverageLabel_ = new QLabel(statusBar());
  coverageLabel_->setContentsMargins(8, 0, 8, 0);
  statusBar()->addWidget(coverageLabel_, 1);
  sizeLabel_ = addStatusLabel(statusBar());
  encodingLabel_ = addStatusLabel(statusBar());
  lineEndingLabel_ = addStatusLabel(statusBar());
  resize(1000, 700);
}

void MainWindow::createMenus() {
  QMenu* file = menuBar()->addMenu(tr("&File"));
  QAction* open = file->addAction(tr("&Open…"), this, &MainWindow::chooseAndOpenFile);
  open->setShortcut(QKeySequence::Open);
  file->addSeparator();
  QAction* quit = file->addAction(tr("&Quit"), this, &QWidget::close);
  quit->setShortcut(QKeySequence::Quit);
  quit->setMenuRole(QAction::QuitRole);
}

void MainWindow::chooseAndOpenFile() {
  const QString start = currentPath_.isEmpty() ? QString() : QFileInfo(currentPath_).absolutePath();
  const QString path = QFileDialog::getOpenFileName(this, tr("Open File"), start);
  if (!path.isEmpty()) openFileReportingErrors(path);
}

std::optional<QString> MainWindow::openFile(const QString& path) {
  // File names are bytes on Linux; encodeName keeps names that are not UTF-8 openable.
  auto screen = loadFirstScreen(QFile::encodeName(path).toStdString());
  if (!screen) return fromUtf8(screen.error());

  QStringList lines;
  lines.reserve(static_cast<qsizetype>(screen->lines.size()));
  for (const std::string& line : screen->lines) lines.append(fromUtf8(line));
  view_->setLines(std::move(lines));
  currentPath_ = path;

  setWindowTitle(tr("%1 — Quorin").arg(QFileInfo(path).fileName()));
  const QLocale locale;
  coverageLabel_->setText(screen->complete
                              ? tr("%1 lines").arg(locale.toString(view_->lineCount()))
                              : tr("Showing the first %1 lines").arg(locale.toString(view_->lineCount())));
  sizeLabel_->setText(fromUtf8(humanReadableSize(screen->fileLength)));
  sizeLabel_->setToolTip(tr("%1 bytes").arg(locale.toString(static_cast<qlonglong>(screen->fileLength))));
  encodingLabel_->setText(fromUtf8(text::displayName(screen->encoding)));
  lineEndingLabel_->setText(fromUtf8(displayName(screen->lineEnding)));
  return std::nullopt;
}

void MainWindow::openFileReportingErrors(const QString& path) {
  if (const auto error = openFile(path)) {
    QMessageBox::warning(this, tr("Quorin"),
                         tr("Could not open “%1”.").arg(QFileInfo(path).fileName()) + "\n\n" + *error);
  }
}

}  // namespace quorin::app
