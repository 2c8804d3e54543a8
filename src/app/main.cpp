#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

#include "app/BenchSuite.h"
#include "app/DocumentTab.h"
#include "app/MainWindow.h"
#include "app/QtMainQueue.h"
#include "app/RecoveryPrompts.h"
#include "app/UnsavedRecovery.h"
#include "dispatch/WorkerPool.h"
#include "storage/ScratchDirectory.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setOrganizationName(QStringLiteral("Quorin"));
  QApplication::setApplicationName(QStringLiteral("Quorin"));
  QApplication::setApplicationVersion(QStringLiteral(QUORIN_VERSION));

  QCommandLineParser parser;
  parser.setApplicationDescription(QCoreApplication::translate("main", "A text editor for huge files."));
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument(QStringLiteral("FILE"), QCoreApplication::translate("main", "Files to open."),
                               QStringLiteral("[FILE…]"));
  parser.process(app);

  // Scratch left by a run that crashed (line-index files of documents that
  // were open) is ours to remove; a live instance's directories are locked.
  quorin::storage::ScratchDirectory::cleanStaleDocumentDirectories();
  // Worker threads inherit the creating thread's priority: create them from
  // the main thread before any background job does.
  quorin::dispatch::WorkerPool::shared();
  quorin::app::QtMainQueue mainQueue;

  if (auto suite = quorin::app::BenchSuite::fromEnvironment()) return suite->run(mainQueue);
  quorin::app::DocumentTab::pruneSidecarsInBackground();

  auto* window = new quorin::app::MainWindow(mainQueue);
  window->show();
  const QStringList files = parser.positionalArguments();
  // Once the loop runs, so that alerts have a visible window to sit on.
  QTimer::singleShot(0, window, [window, files] {
    quorin::app::examinePendingJournals([window](const quorin::persistence::RecoveryPrompt& prompt) {
      return quorin::app::showRecoveryPrompt(prompt, window);
    });
    quorin::app::examineUnsavedJournals(window, [window](const quorin::persistence::RecoveryPrompt& prompt) {
      return quorin::app::showRecoveryPrompt(prompt, window);
    });
    if (files.isEmpty()) {
      window->restoreSession();
    } else {
      for (const QString& file : files) window->openFileReportingErrors(file);
    }
  });
  return QApplication::exec();
}
