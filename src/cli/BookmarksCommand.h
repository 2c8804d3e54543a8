#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// quorin-cli bookmarks FILE [--add LINE]... [--note TEXT] [--remove LINE]... [--json]
// Lists, adds and removes a file's bookmarks in the sidecar the editor reads.
int runBookmarks(std::span<const std::string> args, std::ostream& out, std::ostream& err);

// quorin-cli report FILE [-o OUT] [--html] [--context N]
// Writes the incident report of a file's bookmarks and notes.
int runReport(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
