#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

#include "MainWindow.h"
#include "dispatch/WorkerPool.h"
#include "storage/ScratchDirectory.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Quorin"));
  QApplication::setApplicationVersion(QStringLiteral(QUORIN_VERSION));

  QCommandLineParser parser;
  parser.setApplicationDescription(QStringLiteral("A text editor for huge files."));
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("The file to open."));
  parser.process(app);

  // Scratch left by a run that crashed (line-index files of documents that
  // were open) is ours to remove; a live instance's directories are locked.
  quorin::storage::ScratchDirectory::cleanStaleDocumentDirectories();
  // Worker threads inherit the creating thread's priority: create them from
  // the main thread before any background job does.
  quorin::dispatch::WorkerPool::shared();

  quorin::app::MainWindow window;
  window.show();
  if (!parser.positionalArguments().isEmpty()) {
    const QString path = parser.positionalArguments().first();
    // Opened once the loop runs, so that an error box has a visible window to sit on.
    QTimer::singleShot(0, &window, [&window, path] { window.openFileReportingErrors(path); });
  }
  return QApplication::exec();
}
