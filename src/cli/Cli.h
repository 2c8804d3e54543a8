#pragma once

#include <ostream>
#include <span>
#include <string>
#include <string_view>

namespace quorin::cli {

// Exit statuses shared by every subcommand.
inline constexpr int kExitOk = 0;
// 0: found, equal or done; 1: not found or different (kExitNotFound); 2: an
// error of any kind; 130 after Ctrl+C (kExitInterrupted, Interrupt.h).
inline constexpr int kExitNotFound = 1;
inline constexpr int kExitFailure = 2;  // bad usage or a file that cannot be read

// Runs one command line. `args` excludes the program name: args[0] is the
// subcommand. Results go to `out`, diagnostics (prefixed "quorin-cli: ") and
// usage after a mistake go to `err`. Returns the process exit status.
int runCli(std::span<const std::string> args, std::ostream& out, std::ostream& err);

// Prints "quorin-cli: MESSAGE" and the usage of subcommand `command` to
// `err`, as every subcommand does after a mistake on its command line.
void printUsageError(std::ostream& err, std::string_view command, std::string_view message);

}  // namespace quorin::cli
