#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `recover [--restore|--discard] [JOURNAL...]`: the rollback journals that
// interrupted in-place saves left behind. Without an action, lists each with
// its target, its regions and what recovery would do. --restore writes the
// pre-save bytes back; --discard deletes the journal and leaves the file as
// it is. Without JOURNAL, the action applies to every pending journal that
// needs a decision (those that need none are disposed of, as at launch).
int runRecover(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
