// The main window's Go menu: go to a line or a time, and step through a
// log's messages by level with single keys.
#include <QActionGroup>
#include <QMenuBar>
#include <QSettings>

#include "app/DocumentTab.h"
#include "app/LogTexts.h"
#include "app/MainWindow.h"
#include "app/goto/GoToField.h"

namespace quorin::app {
namespace {

logs::Level storedStepLevel() {
  const QString stored = QSettings().value(MainWindow::kStepLevelKey).toString();
  for (auto level = logs::Level::trace; level <= logs::Level::fatal;
       level = static_cast<logs::Level>(static_cast<uint8_t>(level) + 1)) {
    if (stored == LogTexts::levelName(level)) return level;
  }
  return logs::Level::info;
}

}  // namespace

void MainWindow::createGoMenu() {
  QMenu* go = menuBar()->addMenu(tr("&Go"));
  auto onTab = [this](auto method) {
    return [this, method] {
      if (DocumentTab* tab = currentTab()) method(tab);
    };
  };
  go->addAction(tr("&Go To…"), QKeySequence(tr("Ctrl+L")), this,
                onTab([](DocumentTab* t) { t->goToField()->activate(); }));
  go->addAction(tr("Go to &Time…"), QKeySequence(tr("Ctrl+Shift+L")), this,
                onTab([](DocumentTab* t) { t->goToField()->activateTime(); }));
  go->addSeparator();
  auto step = [&](const QString& text, const QKeySequence& keys, logs::Level level, bool forward) {
    return go->addAction(text, keys, this,
                         onTab([level, forward](DocumentTab* t) { t->stepToMessage(level, forward); }));
  };
  step(tr("Next &Error"), QKeySequence(Qt::Key_F8), logs::Level::error, true);
  step(tr("Previous E&rror"), QKeySequence(Qt::SHIFT | Qt::Key_F8), logs::Level::error, false);
  step(tr("Next &Warning"), QKeySequence(Qt::Key_F7), logs::Level::warning, true);
  step(tr("Previous W&arning"), QKeySequence(Qt::SHIFT | Qt::Key_F7), logs::Level::warning, false);
  go->addSeparator();
  nextAtLevelAction_ = go->addAction(QString(), QKeySequence(Qt::Key_F6), this,
                                     onTab([this](DocumentTab* t) { t->stepToMessage(stepLevel_, true); }));
  previousAtLevelAction_ =
      go->addAction(QString(), QKeySequence(Qt::SHIFT | Qt::Key_F6), this,
                    onTab([this](DocumentTab* t) { t->stepToMessage(stepLevel_, false); }));
  QMenu* levels = go->addMenu(tr("Step &Level"));
  auto* group = new QActionGroup(levels);
  const logs::Level stored = storedStepLevel();
  for (auto level = logs::Level::trace; level <= logs::Level::fatal;
       level = static_cast<logs::Level>(static_cast<uint8_t>(level) + 1)) {
    QAction* choice = levels->addAction(LogTexts::levelName(level), this, [this, level] {
      QSettings().setValue(kStepLevelKey, LogTexts::levelName(level));
      setStepLevel(level);
    });
    choice->setCheckable(true);
    choice->setChecked(level == stored);
    group->addAction(choice);
  }
  setStepLevel(stored);
}

void MainWindow::setStepLevel(logs::Level level) {
  stepLevel_ = level;
  const QString name = LogTexts::levelName(level);
  nextAtLevelAction_->setText(tr("Next Message at %1 or Above").arg(name));
  previousAtLevelAction_->setText(tr("Previous Message at %1 or Above").arg(name));
}

}  // namespace quorin::app
