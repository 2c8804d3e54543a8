#pragma once

#include "logs/LogIndex.h"

namespace quorin::logs::detail {

// Folds an edit into `data`, a complete index of the text before it:
// the blocks holding the edited lines are read again from `after` (merged
// with a neighbour when they shrank far below kLogBlockLines, split when
// they grew far beyond it), the blocks after them move by the change in
// lines, their alert lines with them, and the level a leading continuation
// line takes is carried forward to the next block with a head line. False
// when the edit cannot be folded in (an index or line index that is not
// complete, a snapshot that disagrees): the caller builds again.
bool foldEdit(LogIndexData& data, const storage::EditResult& edit, const LogSource& after,
              const SeverityRules& rules);

// Extends `data` to the lines `after` covers beyond it (a followed file
// grew, or the line index found more lines): the last block is read again
// with the new lines, cut into blocks of kLogBlockLines. False when `after`
// covers fewer lines than `data` (the file shrank) or a line cannot be read.
bool foldAppend(LogIndexData& data, const LogSource& after, const SeverityRules& rules);

}  // namespace quorin::logs::detail
