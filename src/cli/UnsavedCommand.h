#pragma once

#include <ostream>

#include "Options.h"

namespace quorin::cli {

// quorin-cli recover --unsaved [--json] [--restore-to PATH JOURNAL]: the
// crash-recovery journals of unsaved edits.
int runUnsaved(const ParsedOptions& parsed, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
