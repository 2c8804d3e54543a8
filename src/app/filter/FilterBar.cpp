#include "app/filter/FilterBar.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDateTime>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QShortcut>
#include <QSpinBox>
#include <QTimeZone>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/DocumentTab.h"
#include "app/LogTexts.h"
#include "app/find/FindBar.h"

namespace quorin::app {
namespace {

QString qt(const std::string& text) { return QString::fromStdString(text); }

constexpr auto kFirstLevel = static_cast<int>(logs::Level::trace);
constexpr auto kLastLevel = static_cast<int>(logs::Level::fatal);

// The index of the rule the level picker (or the window fields) stands for: the first of its kind that
// includes.
template <typename Condition>
std::optional<size_t> pickerRule(const filter::FilterOptions& options) {
  for (size_t i = 0; i < options.rules.size(); ++i) {
    const auto& rule = options.rules[i];
    if (rule.action == filter::RuleAction::include && std::holds_alternative<Condition>(rule.condition))
      return i;
  }
  return std::nullopt;
}

// A time of the log's wall clock as the Go to Time forms read it.
QString formatWallTime(qint64 micros) {
  const auto time = QDateTime::fromMSecsSinceEpoch(micros / 1000, QTimeZone::utc());
  return time.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss"));
}

QLabel* fieldLabel(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setContentsMargins(6, 0, 0, 0);
  return label;
}

}  // namespace

FilterBar::FilterBar(DocumentTab& tab, QWidget* parent) : QWidget(parent), tab_(tab) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(6, 3, 6, 3);
  column->setSpacing(3);
  auto* row = new QHBoxLayout;
  row->setSpacing(4);
  column->addLayout(row);

  master_ = new QCheckBox(tr("Filter"), this);
  master_->setToolTip(tr("Off shows every line again; on again comes back at once"));
  row->addWidget(master_);
  auto* include = new QPushButton(tr("Include"), this);
  include->setToolTip(tr("Show lines matching the find text"));
  auto* exclude = new QPushButton(tr("Exclude"), this);
  exclude->setToolTip(tr("Hide lines matching the find text"));
  row->addWidget(include);
  row->addWidget(exclude);
  auto* bookmarked = new QPushButton(tr("Bookmarked"), this);
  bookmarked->setToolTip(tr("Show the bookmarked lines"));
  row->addWidget(bookmarked);

  row->addWidget(fieldLabel(tr("Level"), this));
  level_ = new QComboBox(this);
  level_->addItem(tr("Any"));
  for (int level = kFirstLevel; level <= kLastLevel; ++level)
    level_->addItem(tr("≥ %1").arg(LogTexts::levelName(static_cast<logs::Level>(level))));
  row->addWidget(level_);

  row->addWidget(fieldLabel(tr("From"), this));
  from_ = new QLineEdit(this);
  to_ = new QLineEdit(this);
  from_->setPlaceholderText(tr("2026-03-20 12:00"));
  to_->setPlaceholderText(tr("12:30:00"));
  for (QLineEdit* field : {from_, to_}) {
    field->setToolTip(tr("A time in the Go to Time forms; drag over the timeline to fill both"));
    field->setClearButtonEnabled(true);
    field->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("2026-03-20 12:00:00")) + 30);
    connect(field, &QLineEdit::returnPressed, this, &FilterBar::applyWindowFields);
  }
  row->addWidget(from_);
  row->addWidget(fieldLabel(tr("To"), this));
  row->addWidget(to_);

  row->addWidget(fieldLabel(tr("Context"), this));
  before_ = new QSpinBox(this);
  after_ = new QSpinBox(this);
  before_->setSuffix(tr(" before"));
  after_->setSuffix(tr(" after"));
  before_->setToolTip(tr("Lines shown before each shown line"));
  after_->setToolTip(tr("Lines shown after each shown line"));
  for (QSpinBox* box : {before_, after_}) {
    box->setRange(0, static_cast<int>(filter::kMaxContextLines));
    box->setKeyboardTracking(false);
    row->addWidget(box);
  }
  messages_ = new QCheckBox(tr("Whole messages"), this);
  messages_->setToolTip(tr("Show or hide a message's continuation lines with its first line"));
  row->addWidget(messages_);
  row->addStretch(1);
  auto* closeButton = new QToolButton(this);
  closeButton->setText(QStringLiteral("×"));
  closeButton->setToolTip(tr("Hide the filter bar (the filter stays)"));
  closeButton->setAutoRaise(true);
  row->addWidget(closeButton);

  chips_ = new QWidget(this);
  chipsLayout_ = new QHBoxLayout(chips_);
  chipsLayout_->setContentsMargins(0, 0, 0, 0);
  chipsLayout_->setSpacing(4);
  column->addWidget(chips_);
  notice_ = new QLabel(this);
  notice_->setWordWrap(true);
  notice_->setStyleSheet(QStringLiteral("color: #b3261e;"));
  notice_->hide();
  column->addWidget(notice_);

  connect(master_, &QCheckBox::toggled, this, [this](bool on) {
    if (!updating_) tab_.setFilterEnabled(on);
  });
  connect(include, &QPushButton::clicked, this, [this] { addFindTextRule(filter::RuleAction::include); });
  connect(exclude, &QPushButton::clicked, this, [this] { addFindTextRule(filter::RuleAction::exclude); });
  connect(bookmarked, &QPushButton::clicked, this,
          [this] { addBookmarkedRule(filter::RuleAction::include); });
  connect(level_, &QComboBox::currentIndexChanged, this, [this](int index) {
    if (updating_) return;
    setMinimumLevel(index == 0 ? std::nullopt
                               : std::optional(static_cast<logs::Level>(kFirstLevel + index - 1)));
  });
  auto contextChanged = [this] {
    if (!updating_) setContext(before_->value(), after_->value());
  };
  connect(before_, &QSpinBox::valueChanged, this, contextChanged);
  connect(after_, &QSpinBox::valueChanged, this, contextChanged);
  connect(messages_, &QCheckBox::toggled, this, [this](bool on) {
    if (!updating_) setWholeMessages(on);
  });
  connect(closeButton, &QToolButton::clicked, this, &FilterBar::close);
  auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
  escape->setContext(Qt::WidgetWithChildrenShortcut);
  connect(escape, &QShortcut::activated, this, &FilterBar::close);
  connect(&tab_, &DocumentTab::filterChanged, this, &FilterBar::refresh);
  refresh();
}

void FilterBar::activate() {
  show();
  master_->setFocus();
}

void FilterBar::close() {
  hide();
  emit closed();
}

bool FilterBar::apply(const filter::FilterOptions& options) {
  const auto applied = tab_.setFilterOptions(options);
  setNotice(applied ? QString() : applied.error());
  refresh();
  return applied.has_value();
}

void FilterBar::addFindTextRule(filter::RuleAction action) {
  search::SearchOptions query = tab_.findBar()->options();
  if (query.query.empty()) {
    setNotice(tr("Type the text to filter by in the find bar first"));
    tab_.findBar()->activate();
    return;
  }
  auto options = tab_.filterOptions();
  options.rules.push_back({.enabled = true, .action = action, .condition = filter::PatternCondition{query}});
  if (apply(options) && !tab_.isFilterEnabled()) tab_.setFilterEnabled(true);
}

void FilterBar::addBookmarkedRule(filter::RuleAction action) {
  auto options = tab_.filterOptions();
  options.rules.push_back({.enabled = true, .action = action, .condition = filter::BookmarkedCondition{}});
  if (apply(options) && !tab_.isFilterEnabled()) tab_.setFilterEnabled(true);
}

void FilterBar::setRuleEnabled(int index, bool on) {
  auto options = tab_.filterOptions();
  if (index < 0 || static_cast<size_t>(index) >= options.rules.size()) return;
  options.rules[static_cast<size_t>(index)].enabled = on;
  apply(options);
}

void FilterBar::removeRule(int index) {
  auto options = tab_.filterOptions();
  if (index < 0 || static_cast<size_t>(index) >= options.rules.size()) return;
  options.rules.erase(options.rules.begin() + index);
  apply(options);
}

void FilterBar::setMinimumLevel(std::optional<logs::Level> level) {
  auto options = tab_.filterOptions();
  const auto at = pickerRule<filter::LevelCondition>(options);
  if (!level) {
    if (at) options.rules.erase(options.rules.begin() + static_cast<std::ptrdiff_t>(*at));
  } else if (at) {
    options.rules[*at].condition = filter::LevelCondition{*level};
    options.rules[*at].enabled = true;
  } else {
    options.rules.push_back({.condition = filter::LevelCondition{*level}});
  }
  apply(options);
}

void FilterBar::setTimeWindow(const QString& from, const QString& to) {
  from_->setText(from);
  to_->setText(to);
  applyWindowFields();
}

void FilterBar::setTimeRange(qint64 startMicros, qint64 endMicros) {
  // The range ends before endMicros; the To field covers its whole second.
  setTimeWindow(formatWallTime(startMicros), formatWallTime(std::max(startMicros, endMicros - 1)));
}

void FilterBar::applyWindowFields() {
  auto options = tab_.filterOptions();
  const auto at = pickerRule<filter::TimeWindowCondition>(options);
  const filter::TimeWindowCondition window{from_->text().trimmed().toStdString(),
                                           to_->text().trimmed().toStdString()};
  if (window.from.empty() && window.to.empty()) {
    if (at) options.rules.erase(options.rules.begin() + static_cast<std::ptrdiff_t>(*at));
  } else if (at) {
    options.rules[*at].condition = window;
    options.rules[*at].enabled = true;
  } else {
    options.rules.push_back({.condition = window});
  }
  apply(options);
}

void FilterBar::setContext(int before, int after) {
  auto options = tab_.filterOptions();
  options.contextBefore = before;
  options.contextAfter = after;
  apply(options);
}

void FilterBar::setWholeMessages(bool on) {
  auto options = tab_.filterOptions();
  options.wholeMessages = on;
  apply(options);
}

void FilterBar::setNotice(const QString& text) {
  notice_->setText(text);
  notice_->setVisible(!text.isEmpty());
}

QString FilterBar::noticeText() const { return notice_->text(); }

QString FilterBar::describeRule(const filter::FilterRule& rule) {
  const bool include = rule.action == filter::RuleAction::include;
  if (const auto* pattern = std::get_if<filter::PatternCondition>(&rule.condition)) {
    QStringList flags;
    if (pattern->query.regex) flags << tr("regex");
    if (!pattern->query.caseSensitive) flags << tr("any case");
    if (pattern->query.wholeWord && !pattern->query.regex) flags << tr("word");
    QString text = QStringLiteral("%1 %2").arg(include ? QStringLiteral("+") : QStringLiteral("−"),
                                               qt(pattern->query.query));
    return flags.isEmpty() ? text : tr("%1 (%2)").arg(text, flags.join(QStringLiteral(", ")));
  }
  if (const auto* level = std::get_if<filter::LevelCondition>(&rule.condition))
    return include ? tr("Level ≥ %1").arg(LogTexts::levelName(level->level))
                   : tr("Level < %1").arg(LogTexts::levelName(level->level));
  if (const auto* window = std::get_if<filter::TimeWindowCondition>(&rule.condition)) {
    const QString range = tr("%1 – %2").arg(window->from.empty() ? tr("start") : qt(window->from),
                                            window->to.empty() ? tr("end") : qt(window->to));
    return include ? tr("Time %1").arg(range) : tr("Not %1").arg(range);
  }
  return include ? tr("+ Bookmarked") : tr("− Bookmarked");
}

QStringList FilterBar::ruleTexts() const {
  QStringList texts;
  for (const auto& rule : shownOptions_.rules) texts << describeRule(rule);
  return texts;
}

QStringList FilterBar::ruleErrors() const {
  QStringList errors;
  for (size_t i = 0; i < shownOptions_.rules.size(); ++i)
    errors << (i < shownErrors_.size() ? qt(shownErrors_[i]) : QString());
  return errors;
}

void FilterBar::refresh() {
  updating_ = true;
  const auto& options = tab_.filterOptions();
  master_->setChecked(tab_.isFilterEnabled());
  const auto level = pickerRule<filter::LevelCondition>(options);
  level_->setCurrentIndex(
      level ? static_cast<int>(std::get<filter::LevelCondition>(options.rules[*level].condition).level) -
                  kFirstLevel + 1
            : 0);
  if (const auto window = pickerRule<filter::TimeWindowCondition>(options)) {
    const auto& edges = std::get<filter::TimeWindowCondition>(options.rules[*window].condition);
    from_->setText(qt(edges.from));
    to_->setText(qt(edges.to));
  }
  before_->setValue(static_cast<int>(options.contextBefore));
  after_->setValue(static_cast<int>(options.contextAfter));
  messages_->setChecked(options.wholeMessages);
  if (options != shownOptions_ || tab_.filterRuleErrors() != shownErrors_) {
    shownOptions_ = options;
    shownErrors_ = tab_.filterRuleErrors();
    rebuildChips();
  }
  const QString timedOut = tab_.filterNotice();
  if (!timedOut.isEmpty()) setNotice(timedOut);
  updating_ = false;
}

void FilterBar::rebuildChips() {
  while (QLayoutItem* item = chipsLayout_->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  for (size_t i = 0; i < shownOptions_.rules.size(); ++i) {
    const auto& rule = shownOptions_.rules[i];
    const int index = static_cast<int>(i);
    auto* chip = new QFrame(chips_);
    chip->setFrameShape(QFrame::StyledPanel);
    auto* layout = new QHBoxLayout(chip);
    layout->setContentsMargins(4, 0, 0, 0);
    layout->setSpacing(2);
    auto* on = new QCheckBox(describeRule(rule), chip);
    on->setChecked(rule.enabled);
    on->setToolTip(tr("Switch this rule off or on"));
    // Queued: the chips are rebuilt when the rule changes, this box with them.
    connect(
        on, &QCheckBox::toggled, this, [this, index](bool checked) { setRuleEnabled(index, checked); },
        Qt::QueuedConnection);
    layout->addWidget(on);
    const QString error = i < shownErrors_.size() ? qt(shownErrors_[i]) : QString();
    if (!error.isEmpty()) {
      auto* label = new QLabel(error, chip);
      label->setStyleSheet(QStringLiteral("color: #b3261e;"));
      layout->addWidget(label);
    }
    auto* remove = new QToolButton(chip);
    remove->setText(QStringLiteral("×"));
    remove->setAutoRaise(true);
    remove->setToolTip(tr("Remove this rule"));
    connect(
        remove, &QToolButton::clicked, this, [this, index] { removeRule(index); }, Qt::QueuedConnection);
    layout->addWidget(remove);
    chipsLayout_->addWidget(chip);
  }
  chipsLayout_->addStretch(1);
  chips_->setVisible(!shownOptions_.rules.empty());
}

}  // namespace quorin::app
