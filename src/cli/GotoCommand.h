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
//
// `goto --file FILE [--at LINE] [--json] TEXT...`: resolves the target in
// FILE as the editor would and prints the 1-based line it lands on (`line`
// in JSON). Clock times alone and offsets count from the caret line given
// by --at (line 1 by default); records count from the row under the header
// row, as the table view numbers them. A target past the end lands on the
// last line with a notice (stderr; `notice` in JSON).
int runGoto(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
