#pragma once

#include <expected>
#include <map>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorin::cli {

// One option a subcommand accepts, spelled with its dashes ("--json").
struct OptionSpec {
  std::string_view name;
  bool takesValue = false;  // "--name VALUE" or "--name=VALUE"
};

struct ParsedOptions {
  std::vector<std::string> positionals;
  std::map<std::string, std::string, std::less<>> options;   // a flag maps to ""; the last value wins
  std::vector<std::pair<std::string, std::string>> inOrder;  // every option as given, repeats included

  bool has(std::string_view name) const { return options.contains(name); }
  std::optional<std::string> value(std::string_view name) const;
  // Every value of an option that may be repeated ("-e A -e B"), in order.
  std::vector<std::string> values(std::string_view name) const;
};

// Splits a subcommand's arguments into options and positionals. Options may
// come anywhere; "--" ends them; a lone "-" (stdin by convention) and a dash
// followed by a digit ("-30s") are positionals. The error is a one-line
// message for the user.
std::expected<ParsedOptions, std::string> parseOptions(std::span<const std::string> args,
                                                       std::span<const OptionSpec> specs);

// parseOptions() for subcommand `command`, which takes between
// `minPositionals` and `maxPositionals` arguments besides its options. On a
// mistake, prints the message and the command's usage to `err` and returns
// nothing; the caller then exits with kExitFailure.
std::optional<ParsedOptions> parseCommandLine(std::string_view command, std::span<const std::string> args,
                                              std::span<const OptionSpec> specs, size_t minPositionals,
                                              size_t maxPositionals, std::ostream& err);

}  // namespace quorin::cli
