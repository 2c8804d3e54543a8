#pragma once

#include <expected>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::cli {

// One option a subcommand accepts, spelled with its dashes ("--json").
struct OptionSpec {
  std::string_view name;
  bool takesValue = false;  // "--name VALUE" or "--name=VALUE"
};

struct ParsedOptions {
  std::vector<std::string> positionals;
  std::map<std::string, std::string, std::less<>> options;  // a flag maps to ""

  bool has(std::string_view name) const { return options.contains(name); }
  std::optional<std::string> value(std::string_view name) const;
};

// Splits a subcommand's arguments into options and positionals. Options may
// come anywhere; "--" ends them and a lone "-" is a positional (stdin by
// convention). The error is a one-line message for the user.
std::expected<ParsedOptions, std::string> parseOptions(std::span<const std::string> args,
                                                       std::span<const OptionSpec> specs);

}  // namespace quorin::cli
