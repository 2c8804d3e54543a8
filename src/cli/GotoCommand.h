#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `goto [--json] TEXT...`: parses TEXT as the editor's go-to field does and
// prints the target (line, percent, byte, record, time or time offset) or
// the message the field would show. Words are joined with single spaces, so
// "goto 2026-09-04 12:34" needs no quotes; arguments like "-30s" are
// targets, not options.
int runGoto(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
