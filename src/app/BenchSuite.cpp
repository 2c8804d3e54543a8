#include "app/BenchSuite.h"

#include <QAbstractButton>
#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QKeyEvent>
#include <QMessageBox>
#include <QPalette>
#include <QPixmap>
#include <QScrollBar>
#include <QSpinBox>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>
#include <vector>

#include "app/DocumentTab.h"
#include "app/LargeFileDialog.h"
#include "app/MainWindow.h"
#include "app/WindowSupport.h"
#include "app/bookmarks/AnnotateTour.h"
#include "app/bookmarks/BookmarksTour.h"
#include "app/compare/CompareWindow.h"
#include "app/filter/FilterTour.h"
#include "app/find/FindBar.h"
#include "app/goto/GoToField.h"
#include "app/logs/PicturesBench.h"
#include "app/view/TextView.h"
#include "filter/FilterProjection.h"

namespace quorin::app {
namespace {

struct FrameTimes {
  std::vector<double> ms;
  void add(double value) { ms.push_back(value); }
  double percentile(double p) {
    if (ms.empty()) return 0;
    std::sort(ms.begin(), ms.end());
    return ms[std::min(ms.size() - 1, static_cast<size_t>(p * static_cast<double>(ms.size())))];
  }
};

void figure(const char* name, double value, const char* unit) {
  std::printf("%s %.3f %s\n", name, value, unit);
  std::fflush(stdout);
}

void report(const char* prefix, FrameTimes& frames) {
  const std::string p(prefix);
  figure((p + "_median").c_str(), frames.percentile(0.5), "ms");
  figure((p + "_p99").c_str(), frames.percentile(0.99), "ms");
  figure((p + "_max").c_str(), frames.percentile(1.0), "ms");
  figure((p + "_frames").c_str(), static_cast<double>(frames.ms.size()), "count");
}

// Runs the event loop for `ms` milliseconds (index progress, timers).

class Shots {
 public:
  explicit Shots(QString dir) : dir_(std::move(dir)) {
    if (!dir_.isEmpty()) QDir().mkpath(dir_);
  }
  void take(QWidget* window, const QString& step) {
    if (dir_.isEmpty()) return;
    window->grab().save(
        QDir(dir_).filePath(QStringLiteral("%1-%2.png").arg(++count_, 2, 10, QLatin1Char('0')).arg(step)));
  }

 private:
  QString dir_;
  int count_ = 0;
};

// One frame: the change, then the paint it causes, timed together.
template <typename Change>
double frame(TextView* view, Change change) {
  QElapsedTimer timer;
  timer.start();
  change();
  view->viewport()->repaint();
  return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}

// No "save changes?" on the way out: the suites' edits are thrown away.
void discardChanges(MainWindow* window) {
  for (int i = 0; i < window->tabCount(); ++i) {
    window->tabAt(i)->view()->closeTypingGroup();
    window->tabAt(i)->document().discardHistory();
  }
}

// Answers the next modal alert once it is up: a picture of it, then `button`.
void answerNextAlert(Shots& shots, const QString& step, const QString& button) {
  auto* poll = new QTimer;
  poll->setInterval(50);
  QObject::connect(poll, &QTimer::timeout, [poll, &shots, step, button] {
    auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
    if (!box) return;
    poll->stop();
    poll->deleteLater();
    shots.take(box, step);
    for (QAbstractButton* b : box->buttons()) {
      if (b->text() == button) return b->click();
    }
    box->reject();
  });
  poll->start();
}

QString writeFile(const QTemporaryDir& dir, const QString& name, const std::function<QByteArray(int)>& line,
                  int lines) {
  const QString path = dir.filePath(name);
  QFile file(path);
  if (file.open(QIODevice::WriteOnly)) {
    for (int i = 0; i < lines; ++i) file.write(line(i));
  }
  return path;
}

// A service log with errors and their stack traces: level colours and dimmed
// timestamps, in the palette of the desktop and in a dark one.
// The filtered view: the error messages only (head and stack trace), with
// their own line numbers and a rule where lines were skipped. The projection
// is built here by hand so that the shot does not depend on the filter bar.
void shotFilteredView(MainWindow* window, TextView* view, Shots& shots) {
  const auto snapshot = view->document().snapshot();
  const std::string text = snapshot.text.text({0, view->document().length()});
  search::LineVisibilityBitset bits;
  bool inError = false;
  for (size_t start = 0; start < text.size();) {
    const size_t end = std::min(text.find('\n', start), text.size());
    const std::string_view line(text.data() + start, end - start);
    if (!line.starts_with(' ') && !line.starts_with("java.")) inError = line.find("ERROR") != line.npos;
    bits.appendRun(1, inError);
    start = end + 1;
  }
  bits.rebuildRankDirectory();
  view->setLineProjection(
      std::make_shared<filter::FilterProjection>(std::move(bits), filter::FilterOptions{}, 0, 0));
  pumpEvents(100);
  shots.take(window, QStringLiteral("filtered-view"));
  view->setLineProjection(nullptr);
}

void tourLogLevels(MainWindow* window, Shots& shots, const QTemporaryDir& dir) {
  const QString path = writeFile(
      dir, QStringLiteral("payments.log"),
      [](int i) {
        static const char* levels[] = {"INFO ", "DEBUG", "INFO ", "TRACE", "INFO ", "NOTICE", "INFO "};
        const char* level = i % 23 == 11 ? "ERROR" : i % 7 == 4 ? "WARN " : i == 40 ? "FATAL" : levels[i % 7];
        QString line =
            QStringLiteral("2026-03-20 09:14:%1.%2 %3 [worker-%4] payments: %5\n")
                .arg(i / 4 % 60, 2, 10, QLatin1Char('0'))
                .arg(i * 137 % 1000, 3, 10, QLatin1Char('0'))
                .arg(QLatin1String(level))
                .arg(i % 3)
                .arg(i % 23 == 11 ? QStringLiteral("charge %1 failed: card issuer timed out").arg(i)
                     : i % 7 == 4 ? QStringLiteral("retrying charge %1 (attempt 2 of 3)").arg(i)
                                  : QStringLiteral("charge %1 settled in %2 ms").arg(i).arg(i * 31 % 400));
        if (i % 23 == 11)
          line += QStringLiteral(
              "java.net.SocketTimeoutException: Read timed out\n"
              "    at com.example.pay.IssuerClient.charge(IssuerClient.java:88)\n"
              "    at com.example.pay.Worker.run(Worker.java:41)\n");
        return line.toUtf8();
      },
      400);
  if (window->openFileWithMode(path, {})) return;
  DocumentTab* tab = window->currentTab();
  pumpEvents(800);  // the log index
  tab->stepToMessage(logs::Level::error, true);
  tab->stepToMessage(logs::Level::error, true);
  pumpEvents(200);
  shots.take(window, QStringLiteral("log-levels"));
  shotFilteredView(window, tab->view(), shots);
  tab->goToField()->activateTime();
  tab->goToField()->setText(QStringLiteral("09:14:30"));
  pumpEvents(100);
  shots.take(window, QStringLiteral("go-to-time"));
  tab->goToField()->go();
  QPalette dark;
  dark.setColor(QPalette::Window, QColor(0x2b, 0x2d, 0x31));
  dark.setColor(QPalette::WindowText, QColor(0xdf, 0xe1, 0xe5));
  dark.setColor(QPalette::Base, QColor(0x1e, 0x1f, 0x22));
  dark.setColor(QPalette::Text, QColor(0xdf, 0xe1, 0xe5));
  dark.setColor(QPalette::Button, QColor(0x2b, 0x2d, 0x31));
  dark.setColor(QPalette::ButtonText, QColor(0xdf, 0xe1, 0xe5));
  dark.setColor(QPalette::Highlight, QColor(0x2e, 0x5c, 0x9a));
  window->setPalette(dark);
  pumpEvents(200);
  shots.take(window, QStringLiteral("log-levels-dark"));
  window->setPalette(QPalette());
}

// The find bar, the go-to field, the Table view and the compare window.
void tourPanels(MainWindow* window, Shots& shots, const QTemporaryDir& dir) {
  window->tabs()->setCurrentIndex(0);
  DocumentTab* log = window->currentTab();
  log->findBar()->activate();
  log->findBar()->setQuery(QStringLiteral("Slow query"));
  pumpEvents(2500);
  log->findBar()->findNext();
  pumpEvents(500);
  shots.take(window, QStringLiteral("find-bar"));
  log->findBar()->close();
  log->goToField()->activate();
  log->goToField()->setText(QStringLiteral("r1234"));
  log->goToField()->go();
  pumpEvents(200);
  shots.take(window, QStringLiteral("go-to-field"));
  log->goToField()->close();

  const QString csvPath = writeFile(
      dir, QStringLiteral("orders.csv"),
      [](int i) {
        if (i == 0) return QByteArray("order_id,customer,city,items,total_eur,status\n");
        static const char* cities[] = {"Berlin", "São Paulo", "Kraków", "Mumbai", "Malmö", "Zürich"};
        return QStringLiteral("%1,customer-%2,\"%3\",%4,%5.%6,%7\n")
            .arg(100000 + i)
            .arg(i * 7919 % 5000)
            .arg(QString::fromUtf8(cities[i % 6]))
            .arg(i % 9 + 1)
            .arg(i * 37 % 900 + 10)
            .arg(i % 100, 2, 10, QLatin1Char('0'))
            .arg(i % 11 == 0 ? QStringLiteral("refunded") : QStringLiteral("shipped"))
            .toUtf8();
      },
      20000);
  if (!window->openFileWithMode(csvPath, {})) {
    window->currentTab()->setTableView(true);
    pumpEvents(1500);
    shots.take(window, QStringLiteral("csv-grid"));
  }

  auto version = [&dir](const QString& name, bool edited) {
    return writeFile(
        dir, name,
        [edited](int i) {
          QString line = QStringLiteral("2026-03-15T07:%1:%2Z INFO worker-%3 processed batch %4\n")
                             .arg(i / 60 % 60, 2, 10, QLatin1Char('0'))
                             .arg(i % 60, 2, 10, QLatin1Char('0'))
                             .arg(i % 4)
                             .arg(i);
          if (edited && i % 97 == 5) line.replace(QStringLiteral("INFO"), QStringLiteral("WARN"));
          if (edited && i % 211 == 7) line += QStringLiteral("2026-03-15T07:00:00Z INFO retry scheduled\n");
          return line.toUtf8();
        },
        3000);
  };
  const QString before = version(QStringLiteral("run-1.log"), false);
  const QString after = version(QStringLiteral("run-2.log"), true);
  if (!window->openFileWithMode(before, {})) {
    auto* compare = new CompareWindow(window->currentTab()->sharedDocument(), QStringLiteral("run-1.log"),
                                      window->mainQueue());
    compare->resize(1200, 700);
    compare->show();
    compare->compareWithFile(after);
    pumpEvents(2500);
    shots.take(compare, QStringLiteral("compare-window"));
    compare->close();
  }
  tourLogLevels(window, shots, dir);
  const auto shoot = [&shots](QWidget* widget, const QString& step) { shots.take(widget, step); };
  tourLogPictures(window, dir.path(), shoot);
  tourFilter(window, dir.path(), shoot);
  tourAnnotate(window, dir.path(), shoot);
  tourBookmarks(window, shoot);
}

// Pictures of what a newcomer meets: the window on the file, the large-file
// dialog, one of its validation alerts, and the prompt after an outside change.
void takeTour(MainWindow* window, Shots& shots) {
  TextView* view = window->currentTab()->view();
  view->setCaret(view->document().length() / 3);
  view->scrollByRows(-5);
  pumpEvents(300);
  shots.take(window, QStringLiteral("window"));

  const QFileInfo info(window->currentTab()->path());
  LargeFileController dialog(info.fileName(), info.size(), storage::kDefaultFastOpenThresholdBytes, window);
  dialog.selectMode(storage::LargeFileOpenMode::windowedSlice);
  dialog.sliceStartField()->setValue(512);
  dialog.sliceEndField()->setValue(256);
  dialog.show();
  pumpEvents(100);
  shots.take(&dialog, QStringLiteral("large-file-dialog"));
  answerNextAlert(shots, QStringLiteral("validation-alert"), QStringLiteral("OK"));
  dialog.openRequested();
  dialog.close();

  // An edited copy that changes on disk behind the editor's back.
  QTemporaryDir dir;
  const QString copy = dir.filePath(QStringLiteral("service.log"));
  QFile file(copy);
  if (!file.open(QIODevice::WriteOnly)) return;
  for (int i = 0; i < 200; ++i)
    file.write(QStringLiteral("2026-03-15T07:04:%1Z INFO request %2 served\n")
                   .arg(i % 60, 2, 10, QLatin1Char('0'))
                   .arg(i)
                   .toUtf8());
  file.close();
  if (window->openFileWithMode(copy, {})) return;
  TextView* edited = window->currentTab()->view();
  edited->setCaret(0);
  edited->insertText(QStringLiteral("my note: "));
  pumpEvents(200);
  answerNextAlert(shots, QStringLiteral("external-change"), QStringLiteral("Keep Mine"));
  if (file.open(QIODevice::Append)) {
    file.write("2026-03-15T07:05:00Z WARN appended by another program\n");
    file.close();
  }
  pumpEvents(1500);
  discardChanges(window);
  tourPanels(window, shots, dir);
}

}  // namespace

std::optional<BenchSuite> BenchSuite::fromEnvironment() {
  const QString suite = qEnvironmentVariable("QUORIN_BENCH_SUITE");
  if (suite.isEmpty()) return std::nullopt;
  BenchSuite bench;
  bench.suite_ = suite;
  bench.file_ = qEnvironmentVariable("QUORIN_BENCH_SESSION");
  bench.shotDir_ = qEnvironmentVariable("QUORIN_BENCH_SHOT_DIR");
  return bench;
}

int BenchSuite::run(dispatch::MainQueue& mainQueue) {
  if (suite_ != QLatin1String("open") && suite_ != QLatin1String("scroll") &&
      suite_ != QLatin1String("type") && suite_ != QLatin1String("tour") &&
      suite_ != QLatin1String("pictures")) {
    std::fprintf(stderr, "[Quorin] unknown QUORIN_BENCH_SUITE \"%s\" (open, scroll, type, tour, pictures)\n",
                 qPrintable(suite_));
    return 2;
  }
  if (file_.isEmpty() || !QFileInfo(file_).isFile()) {
    std::fprintf(stderr, "[Quorin] QUORIN_BENCH_SESSION must name a file to open\n");
    return 2;
  }
  Shots shots(shotDir_);
  auto* window = new MainWindow(mainQueue);
  window->resize(1280, 800);
  window->show();
  pumpEvents(50);

  QElapsedTimer opening;
  opening.start();
  if (const auto error = window->openFileWithMode(file_, {})) {
    std::fprintf(stderr, "[Quorin] %s\n", qPrintable(*error));
    return 2;
  }
  TextView* view = window->currentTab()->view();
  view->viewport()->repaint();
  figure("open_to_first_screen", static_cast<double>(opening.nsecsElapsed()) / 1e6, "ms");
  figure("file_size", static_cast<double>(QFileInfo(file_).size()) / (1 << 20), "MiB");
  shots.take(window, QStringLiteral("opened"));

  if (suite_ == QLatin1String("scroll")) {
    FrameTimes pages, jumps;
    // Page by page from the top, while the index is still being built.
    for (int i = 0; i < 300; ++i)
      pages.add(frame(view, [&] { view->scrollByRows(view->visibleRowCount() - 1); }));
    shots.take(window, QStringLiteral("paged"));
    // Jumps of the scroll bar's thumb across the whole file, as a drag makes them.
    std::mt19937 random(42);
    QScrollBar* bar = view->verticalScrollBar();
    for (int i = 0; i < 300; ++i) {
      const int to = std::uniform_int_distribution<int>(0, std::max(1, bar->maximum()))(random);
      jumps.add(frame(view, [&] { bar->setValue(to); }));
      if (i % 50 == 0) QCoreApplication::processEvents();
    }
    shots.take(window, QStringLiteral("dragged"));
    jumps.add(frame(view, [&] { view->setCaret(view->document().length()); }));
    shots.take(window, QStringLiteral("end"));
    report("scroll_page", pages);
    report("scroll_jump", jumps);
  } else if (suite_ == QLatin1String("type")) {
    // Fifty keys a second in the middle of the file: each key is an edit,
    // the line index's update, a fresh snapshot and a paint.
    view->setCaret(view->document().length() / 2);
    view->setFocus();
    FrameTimes keys;
    const QString text = QStringLiteral("The quick brown fox jumps over the lazy dog. ");
    QEventLoop loop;
    QTimer ticker;
    int typed = 0;
    ticker.setInterval(20);
    QObject::connect(&ticker, &QTimer::timeout, &loop, [&] {
      const QChar c = text.at(typed % text.size());
      keys.add(frame(view, [&] {
        QKeyEvent press(QEvent::KeyPress, 0, Qt::NoModifier, QString(c));
        QApplication::sendEvent(view, &press);
      }));
      if (++typed >= 500) loop.quit();
    });
    ticker.start();
    loop.exec();
    shots.take(window, QStringLiteral("typed"));
    report("type_key", keys);
  } else if (suite_ == QLatin1String("tour")) {
    takeTour(window, shots);
  } else if (suite_ == QLatin1String("pictures")) {
    benchPictures(window, figure);
    shots.take(window, QStringLiteral("pictures"));
  }
  discardChanges(window);
  window->close();
  return 0;
}

}  // namespace quorin::app
