#pragma once

#include <QString>
#include <functional>

#include "persistence/PatchJournalRecovery.h"

class QWidget;

namespace quorin::app {

// Shows a recovery prompt as an alert: its title in bold, its text below, its
// buttons in order with the default one marked. Returns the chosen button.
QString showRecoveryPrompt(const persistence::RecoveryPrompt& prompt, QWidget* parent);

// Looks at the patch journals an interrupted in-place save left behind and
// asks about each one that needs a decision; the answer is carried out.
// `ask` shows a prompt and returns the chosen button (tests answer directly).
// Returns how many journals were looked at.
int examinePendingJournals(const std::function<QString(const persistence::RecoveryPrompt&)>& ask);

}  // namespace quorin::app
