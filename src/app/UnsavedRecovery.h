#pragma once

#include <QString>
#include <functional>

#include "persistence/PatchJournalRecovery.h"

namespace quorin::app {

class MainWindow;

// Offers the journals of unsaved edits that a run which did not end left
// behind (their lock is free), one prompt each, and carries out the answer:
//   base unchanged: "Quorin quit before “app.log” was saved." / "Restore its
//     12 unsaved edits?" — Restore (opens the file in `window` and applies
//     them as one undo step, the document modified), Discard, Later;
//   base changed or gone: "“app.log” changed after Quorin quit with 12
//     unsaved edits." — Keep (for `quorin-cli recover --unsaved
//     --restore-to`), Discard;
//   unreadable: set aside in "corrupt/" and named.
// A journal whose restore was begun twice without finishing (the editor
// crashed restoring it) is set aside instead of being offered a third time.
// Returns how many journals were offered.
int examineUnsavedJournals(MainWindow* window,
                           const std::function<QString(const persistence::RecoveryPrompt&)>& ask);

}  // namespace quorin::app
