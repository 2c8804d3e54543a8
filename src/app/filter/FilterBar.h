#pragma once

#include <QWidget>
#include <optional>

#include "filter/FilterOptions.h"

class QCheckBox;
class QComboBox;
class QHBoxLayout;
class QLabel;
class QLineEdit;
class QSpinBox;

namespace quorin::app {

class DocumentTab;

// The filter bar of one document tab, under the find bar: the rules as
// chips (each with its switch, its remove button and its error), include
// and exclude from the find bar's text and options, the minimum level, the
// time window (filled by a drag on the timeline), context before and after,
// whole messages, and the master switch. Every change is applied to the tab
// at once; a refusal is shown under the fields and changes nothing.
// Thread-safety: GUI thread only. Lifetime: a child of its tab.
class FilterBar final : public QWidget {
  Q_OBJECT

 public:
  FilterBar(DocumentTab& tab, QWidget* parent = nullptr);

  // Shows the bar and focuses it; close() hides it (the filter stays).
  void activate();
  void close();

  // An include or exclude rule with the find bar's text and options; says why not when it is empty.
  void addFindTextRule(filter::RuleAction action);
  // A rule for the tab's bookmarked lines (shown, or hidden with exclude).
  void addBookmarkedRule(filter::RuleAction action);
  void setRuleEnabled(int index, bool on);
  void removeRule(int index);
  // The level picker: none is any level.
  void setMinimumLevel(std::optional<logs::Level> level);
  // The time window fields, applied at once (as Enter in them does).
  void setTimeWindow(const QString& from, const QString& to);
  // A drag over the timeline: [startMicros, endMicros) of the log's wall time.
  void setTimeRange(qint64 startMicros, qint64 endMicros);
  void setContext(int before, int after);
  void setWholeMessages(bool on);
  // Applies `options` (a named filter, a change of a field); false when refused (the reason is shown).
  bool apply(const filter::FilterOptions& options);

  // For the window and for tests.
  QString noticeText() const;
  // Each rule's chip text and error, in order.
  QStringList ruleTexts() const;
  QStringList ruleErrors() const;
  // A rule as its chip says it: "+ ERROR", "− DEBUG (regex)", "Level ≥ warning", "Time 12:00 – 13:00".
  static QString describeRule(const filter::FilterRule& rule);

 signals:
  void closed();

 private:
  void applyWindowFields();
  // The widgets from the tab's options and status.
  void refresh();
  void rebuildChips();
  void setNotice(const QString& text);

  DocumentTab& tab_;
  QCheckBox* master_ = nullptr;
  QComboBox* level_ = nullptr;
  QLineEdit* from_ = nullptr;
  QLineEdit* to_ = nullptr;
  QSpinBox* before_ = nullptr;
  QSpinBox* after_ = nullptr;
  QCheckBox* messages_ = nullptr;
  QWidget* chips_ = nullptr;
  QHBoxLayout* chipsLayout_ = nullptr;
  QLabel* notice_ = nullptr;
  filter::FilterOptions shownOptions_;  // what the chips show
  std::vector<std::string> shownErrors_;
  bool updating_ = false;  // the widgets are being set from the options
};

}  // namespace quorin::app
