#include "app/find/FindBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QSettings>
#include <QShortcut>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/find/FindSummary.h"
#include "dispatch/Clock.h"
#include "search/QueryText.h"

namespace quorin::app {
namespace {

constexpr const char* kHistoryKey = "QuorinFindQueryHistory";
constexpr uint64_t kProgressRepaintNs = 100'000'000;  // the label changes at most ten times a second
constexpr int64_t kLongestSelectionAsQuery = 256;

storage::ByteRange ordered(EditorSurface::Selection s) {
  return {std::min(s.begin, s.end), std::max(s.begin, s.end)};
}

QCheckBox* option(const QString& text, const QString& tip, QWidget* parent) {
  auto* box = new QCheckBox(text, parent);
  box->setToolTip(tip);
  box->setFocusPolicy(Qt::TabFocus);
  return box;
}

}  // namespace

FindBar::FindBar(std::shared_ptr<document::Document> document, EditorSurface& surface,
                 dispatch::MainQueue& mainQueue, QWidget* parent, FindBarConfig config)
    : QWidget(parent),
      document_(std::move(document)),
      surface_(surface),
      mainQueue_(mainQueue),
      config_(config),
      engine_(config.searchLimits),
      finder_(config.findNextLimits),
      alive_(std::make_shared<FindBar*>(this)),
      highlights_(std::make_shared<MatchSet>()),
      matches_(*highlights_) {
  setObjectName("findBar");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(6, 4, 6, 4);
  layout->setSpacing(3);

  auto* findRow = new QHBoxLayout;
  queryBox_ = new QComboBox(this);
  queryBox_->setObjectName("findQuery");
  queryBox_->setEditable(true);
  queryBox_->setInsertPolicy(QComboBox::NoInsert);
  // History is offered in the drop-down, never typed in for the user: an
  // inline completion turned "Thread" into "Thread starvation" under Enter.
  queryBox_->setCompleter(nullptr);
  queryBox_->setMinimumWidth(260);
  queryBox_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  queryBox_->lineEdit()->setPlaceholderText(tr("Find"));
  // The editable box keeps the focus and hands keys to its line edit
  // directly, past any filter on the line edit: Enter is caught on the box.
  queryBox_->installEventFilter(this);
  queryBox_->lineEdit()->installEventFilter(this);
  auto* previous = new QToolButton(this);
  previous->setText("↑");
  previous->setToolTip(tr("Previous match (Shift+Enter, Shift+F3)"));
  auto* next = new QToolButton(this);
  next->setText("↓");
  next->setToolTip(tr("Next match (Enter, F3)"));
  summary_ = new QLabel(this);
  summary_->setObjectName("findSummary");
  summary_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  notice_ = new QLabel(this);
  notice_->setObjectName("findNotice");
  notice_->setStyleSheet("color: #b05000");
  auto* closeButton = new QToolButton(this);
  closeButton->setText("×");
  closeButton->setToolTip(tr("Close (Esc)"));
  closeButton->setAutoRaise(true);
  findRow->addWidget(queryBox_, 3);
  findRow->addWidget(previous);
  findRow->addWidget(next);
  findRow->addWidget(summary_, 2);
  findRow->addWidget(notice_, 2);
  findRow->addWidget(closeButton);
  layout->addLayout(findRow);

  auto* optionRow = new QHBoxLayout;
  caseBox_ = option(tr("Case sensitive"), tr("Match upper and lower case exactly"), this);
  wordBox_ = option(tr("Match whole word (ignored in regex mode)"),
                    tr("Only matches with no letter, digit or _ on either side"), this);
  regexBox_ = option(tr("Regular expression"), tr("PCRE syntax; each line is matched on its own"), this);
  escapesBox_ = option(tr("Extended (\\n, \\t, \\xHH, \\uHHHH)"),
                       tr("Read escapes in a plain query (and its replacement)"), this);
  for (QCheckBox* box : {caseBox_, wordBox_, regexBox_, escapesBox_}) optionRow->addWidget(box);
  optionRow->addStretch(1);
  layout->addLayout(optionRow);

  replaceRow_ = new QWidget(this);
  auto* replaceLayout = new QHBoxLayout(replaceRow_);
  replaceLayout->setContentsMargins(0, 0, 0, 0);
  replacementEdit_ = new QLineEdit(replaceRow_);
  replacementEdit_->setObjectName("findReplacement");
  replacementEdit_->setPlaceholderText(tr("Replace with"));
  replacementEdit_->installEventFilter(this);
  auto* replaceButton = new QPushButton(tr("Replace"), replaceRow_);
  replaceAllButton_ = new QPushButton(tr("Replace All"), replaceRow_);
  replaceProgress_ = new QLabel(replaceRow_);
  replaceProgress_->setObjectName("replaceProgress");
  cancelButton_ = new QPushButton(tr("Cancel"), replaceRow_);
  cancelButton_->hide();
  replaceLayout->addWidget(replacementEdit_, 3);
  replaceLayout->addWidget(replaceButton);
  replaceLayout->addWidget(replaceAllButton_);
  replaceLayout->addWidget(replaceProgress_, 2);
  replaceLayout->addWidget(cancelButton_);
  layout->addWidget(replaceRow_);
  replaceRow_->hide();

  countTimer_ = new QTimer(this);
  countTimer_->setSingleShot(true);
  countTimer_->setInterval(config_.countDelayMs);
  recountTimer_ = new QTimer(this);
  recountTimer_->setSingleShot(true);
  recountTimer_->setInterval(config_.recountDelayMs);
  connect(countTimer_, &QTimer::timeout, this, &FindBar::startCount);
  connect(recountTimer_, &QTimer::timeout, this, [this] {
    if (isVisible()) startCount();
  });

  connect(queryBox_, &QComboBox::currentTextChanged, this, &FindBar::queryChanged);
  for (QCheckBox* box : {caseBox_, wordBox_, regexBox_, escapesBox_})
    connect(box, &QCheckBox::toggled, this, &FindBar::queryChanged);
  connect(previous, &QToolButton::clicked, this, &FindBar::findPrevious);
  connect(next, &QToolButton::clicked, this, &FindBar::findNext);
  connect(closeButton, &QToolButton::clicked, this, &FindBar::close);
  connect(replaceButton, &QPushButton::clicked, this, &FindBar::replaceCurrent);
  connect(replaceAllButton_, &QPushButton::clicked, this, &FindBar::replaceAll);
  connect(replacementEdit_, &QLineEdit::textChanged, this, &FindBar::updateReplacePreview);
  connect(cancelButton_, &QPushButton::clicked, this, &FindBar::cancelReplaceAll);
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape->setContext(Qt::WidgetWithChildrenShortcut);
  connect(escape, &QShortcut::activated, this, &FindBar::close);

  const QStringList history = QSettings().value(kHistoryKey).toStringList();
  queryBox_->blockSignals(true);
  queryBox_->addItems(history);
  queryBox_->setEditText({});
  queryBox_->blockSignals(false);

  changeListener_ = document_->addChangeListener(
      [this](const document::DocumentChange& change) { documentChanged(change); });
  hide();  // until Ctrl+F
}

FindBar::~FindBar() {
  countHandle_.cancel();
  stepHandle_.cancel();
  replaceAllHandle_.cancel();
  document_->removeChangeListener(changeListener_);
  // The surface is not touched here: the tab may already have destroyed the
  // view. The provider it may still hold reads only the shared match set.
}

void FindBar::installShortcuts(QWidget* scope) {
  const auto add = [&](QKeySequence keys, void (FindBar::*slot)()) {
    auto* shortcut = new QShortcut(keys, scope);
    shortcut->setContext(Qt::WidgetWithChildrenShortcut);
    connect(shortcut, &QShortcut::activated, this, slot);
  };
  add(QKeySequence(Qt::CTRL | Qt::Key_F), &FindBar::activate);
  add(QKeySequence(Qt::CTRL | Qt::Key_H), &FindBar::activateReplace);
  add(QKeySequence(Qt::Key_F3), &FindBar::findNext);
  add(QKeySequence(Qt::SHIFT | Qt::Key_F3), &FindBar::findPrevious);
}

void FindBar::activate() {
  show();
  // A short one-line selection becomes the query, as in most editors.
  const storage::ByteRange selected = ordered(surface_.selection());
  if (selected.length() > 0 && selected.length() <= kLongestSelectionAsQuery) {
    if (auto bytes = document_->snapshot().text.readBytes(selected);
        bytes && bytes->find_first_of("\r\n") == std::string::npos) {
      QString text = QString::fromStdString(*bytes);
      if (regexBox_->isChecked()) text = QRegularExpression::escape(text);
      setQuery(text);
    }
  }
  surface_.setHighlightProvider(
      [set = highlights_](storage::ByteRange visible) { return set->rangesIn(visible); });
  surface_.refreshHighlights();
  emit highlightsChanged();
  queryBox_->setFocus(Qt::ShortcutFocusReason);
  queryBox_->lineEdit()->selectAll();
  if (!query().isEmpty() && (!haveResult_ || matches_.isStale()) && !isCounting()) startCount();
}

void FindBar::activateReplace() {
  replaceRow_->show();
  activate();
  updateReplacePreview();
}

void FindBar::close() {
  stopCount();
  countTimer_->stop();
  recountTimer_->stop();
  stepHandle_.cancel();
  stepHandle_ = {};
  surface_.setHighlightProvider(nullptr);
  surface_.refreshHighlights();
  emit highlightsChanged();
  replaceRow_->hide();
  hide();
  emit closed();
}

QString FindBar::query() const { return queryBox_->currentText(); }

void FindBar::setQuery(const QString& text) { queryBox_->setEditText(text); }

search::SearchOptions FindBar::options() const {
  search::SearchOptions o;
  o.query = query().toStdString();
  o.caseSensitive = caseBox_->isChecked();
  o.wholeWord = wordBox_->isChecked() && !regexBox_->isChecked();
  o.regex = regexBox_->isChecked();
  o.escapes = escapesBox_->isChecked() && !regexBox_->isChecked();
  return o;
}

QString FindBar::summaryText() const { return summary_->text(); }
QString FindBar::noticeText() const { return notice_->text(); }

void FindBar::queryChanged() {
  // The old matches belong to another query: drop them at once rather than
  // leave wrong highlights up while the new count runs.
  stopCount();
  stepHandle_.cancel();
  stepHandle_ = {};
  *highlights_ = MatchSet();
  haveResult_ = false;
  summary_->clear();
  setNotice({});
  surface_.refreshHighlights();
  emit highlightsChanged();
  if (query().isEmpty()) return;
  if (config_.countDelayMs <= 0) {
    startCount();
  } else {
    countTimer_->start();
  }
}

void FindBar::startCount() {
  stopCount();
  recountTimer_->stop();
  const search::SearchOptions opts = options();
  if (opts.query.empty()) return;
  const uint64_t generation = ++generation_;
  summary_->setText(countingSummary({}));
  const document::DocumentSnapshot snapshot = document_->snapshot();
  std::weak_ptr<FindBar*> alive = alive_;
  auto lastRepaint = std::make_shared<uint64_t>(0);
  search::SearchHooks hooks;
  hooks.onProgress = [alive, generation, lastRepaint](const search::SearchProgress& progress) {
    const auto bar = alive.lock();
    if (!bar || (*bar)->generation_ != generation || !(*bar)->isCounting()) return;
    const uint64_t now = dispatch::monotonicNanos();
    if (now - *lastRepaint < kProgressRepaintNs) return;
    *lastRepaint = now;
    (*bar)->summary_->setText(countingSummary(progress));
  };
  countHandle_ = engine_.start(
      config_.matchCap, opts, snapshot.text, snapshot.lines,
      [alive, generation](search::SearchResult result) {
        if (const auto bar = alive.lock()) (*bar)->countFinished(generation, std::move(result));
      },
      &mainQueue_, std::move(hooks));
}

void FindBar::stopCount() {
  countHandle_.cancel();
  countHandle_ = {};
  ++generation_;
}

void FindBar::countFinished(uint64_t generation, search::SearchResult result) {
  if (generation != generation_) return;  // a newer query or text took over
  countHandle_ = {};
  if (result.cancelled) return;
  if (result.snapshotVersion != document_->version()) {
    recountTimer_->start();
    return;
  }
  const bool complete = !result.timedOut && !result.truncated && !result.compileError;
  *highlights_ = MatchSet(std::move(result.matches), result.snapshotVersion, complete);
  result.matches = {};
  lastResult_ = std::move(result);
  haveResult_ = true;
  showSummary();
  surface_.refreshHighlights();
  emit highlightsChanged();
}

void FindBar::documentChanged(const document::DocumentChange& change) {
  using Kind = document::DocumentChange::Kind;
  if (change.kind == Kind::reload) {
    *highlights_ = MatchSet();
    highlights_->markStale();
  } else if (change.kind == Kind::append) {
    highlights_->markStale();  // the old matches stand; the new bytes are not counted yet
  } else {
    highlights_->applyEdit(change.edit);
  }
  const bool wasCounting = isCounting();
  stopCount();
  if (query().isEmpty()) return;
  if (haveResult_ || wasCounting) {
    if (!haveResult_) summary_->clear();
    showSummary();
    surface_.refreshHighlights();
    emit highlightsChanged();
    recountTimer_->start();
  }
}

void FindBar::showSummary() {
  if (!haveResult_) return;
  std::optional<int64_t> current;
  if (!matches_.isStale()) current = matches_.indexOf(ordered(surface_.selection()));
  QString text = resultSummary(lastResult_, static_cast<int64_t>(matches_.size()), config_.matchCap, current);
  if (matches_.isStale()) text += staleSuffix();
  summary_->setText(text);
  if (notice_->text() == text) notice_->clear();
  summary_->setToolTip(matches_.isStale() ? staleToolTip() : QString());
  updateReplacePreview();
}

// The summary already shows a count's failure (an invalid regex): the
// notice never repeats it.
void FindBar::setNotice(const QString& text) {
  notice_->setText(text == summary_->text() ? QString() : text);
}

void FindBar::rememberQuery() {
  const QString text = query();
  if (text.isEmpty()) return;
  QSettings settings;
  QStringList history = settings.value(kHistoryKey).toStringList();
  history.removeAll(text);
  history.prepend(text);
  while (history.size() > config_.historyLimit) history.removeLast();
  settings.setValue(kHistoryKey, history);
  queryBox_->blockSignals(true);
  queryBox_->clear();
  queryBox_->addItems(history);
  queryBox_->setEditText(text);
  queryBox_->blockSignals(false);
}

bool FindBar::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::KeyPress) {
    const auto* key = static_cast<QKeyEvent*>(event);
    const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (enter && (watched == queryBox_ || watched == queryBox_->lineEdit())) {
      (key->modifiers() & Qt::ShiftModifier) ? findPrevious() : findNext();
      return true;
    }
    if (enter && watched == replacementEdit_) {
      replaceCurrent();
      return true;
    }
    if (key->key() == Qt::Key_Escape) {
      close();
      return true;
    }
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace quorin::app
