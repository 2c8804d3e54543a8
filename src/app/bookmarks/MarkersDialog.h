#pragma once

#include <QDialog>
#include <vector>

#include "bookmarks/Markers.h"

class QTableWidget;

namespace quorin::app {

// Edits the highlight rules: pattern, regular expression, case, whole word,
// colour and a switch per rule; rows added and removed. The rules come back
// through rules() after the dialog is accepted.
class MarkersDialog : public QDialog {
  Q_OBJECT

 public:
  explicit MarkersDialog(const std::vector<bookmarks::MarkerRule>& rules, QWidget* parent = nullptr);
  std::vector<bookmarks::MarkerRule> rules() const;
  QTableWidget* table() const { return table_; }

 private:
  void addRow(const bookmarks::MarkerRule& rule);

  QTableWidget* table_;
};

}  // namespace quorin::app
