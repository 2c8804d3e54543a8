#include "app/RecoveryPrompts.h"

#include <QMessageBox>
#include <QPushButton>
#include <vector>

#include "base/Log.h"
#include "persistence/PatchJournal.h"

namespace quorin::app {

QString showRecoveryPrompt(const persistence::RecoveryPrompt& prompt, QWidget* parent) {
  QMessageBox box(QMessageBox::Warning, QStringLiteral("Quorin"), QString::fromStdString(prompt.title),
                  QMessageBox::NoButton, parent);
  box.setInformativeText(QString::fromStdString(prompt.text));
  std::vector<QAbstractButton*> buttons;
  for (const std::string& label : prompt.buttons) {
    buttons.push_back(box.addButton(QString::fromStdString(label), QMessageBox::AcceptRole));
  }
  if (prompt.defaultButton < buttons.size()) {
    box.setDefaultButton(static_cast<QPushButton*>(buttons[prompt.defaultButton]));
  }
  box.exec();
  for (size_t i = 0; i < buttons.size(); ++i) {
    if (box.clickedButton() == buttons[i]) return QString::fromStdString(prompt.buttons[i]);
  }
  // Closed without a choice: the least destructive button, which keeps the journal for next time.
  return {};
}

int examinePendingJournals(const std::function<QString(const persistence::RecoveryPrompt&)>& ask) {
  using persistence::PatchJournal;
  using persistence::PatchJournalRecovery;
  int examined = 0;
  for (const auto& path : PatchJournal::listPending()) {
    auto journal = PatchJournal::read(path);
    if (!journal) {
      // Unreadable: it cannot restore anything, and would be asked about forever.
      base::logLine("ignoring unreadable patch journal " + path.string() + ": " + journal.error().describe());
      continue;
    }
    ++examined;
    const auto prompt = PatchJournalRecovery::begin(*journal);
    if (!prompt) continue;
    const QString choice = ask(*prompt);
    if (choice.isEmpty()) continue;
    if (const auto failure = PatchJournalRecovery::respond(*journal, choice.toStdString())) ask(*failure);
  }
  return examined;
}

}  // namespace quorin::app
