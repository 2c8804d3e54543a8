#pragma once

#include <ostream>
#include <span>
#include <string>

namespace quorin::cli {

// Exit statuses shared by every subcommand.
inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 2;  // bad usage or a file that cannot be read

// Runs one command line. `args` excludes the program name: args[0] is the
// subcommand. Results go to `out`, diagnostics (prefixed "quorin-cli: ") and
// usage after a mistake go to `err`. Returns the process exit status.
int runCli(std::span<const std::string> args, std::ostream& out, std::ostream& err);

}  // namespace quorin::cli
