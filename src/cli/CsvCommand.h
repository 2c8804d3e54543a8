#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// `csv [--json] [--delimiter D] FILE`: indexes FILE's records as the table
// view does and prints the delimiter, the row count, the expected column
// count, the malformed rows (count, longest run, the first few as 1-based
// record numbers) and the graded parse state.
//
// `csv --rows [--delimiter D] FILE`: prints every record's cell values, as
// the grid shows them, as one JSON array of strings per line.
//
// The delimiter is detected unless given (a single ASCII character or one
// of the names comma, tab, pipe, semicolon). Files in encodings other than
// UTF-8 are read through a UTF-8 working copy, as the editor reads them.
int runCsv(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
