#include "Options.h"

#include <algorithm>

#include "Cli.h"

namespace quorin::cli {

std::optional<std::string> ParsedOptions::value(std::string_view name) const {
  const auto it = options.find(name);
  if (it == options.end()) return std::nullopt;
  return it->second;
}

std::vector<std::string> ParsedOptions::values(std::string_view name) const {
  std::vector<std::string> found;
  for (const auto& [option, value] : inOrder) {
    if (option == name) found.push_back(value);
  }
  return found;
}

std::expected<ParsedOptions, std::string> parseOptions(std::span<const std::string> args,
                                                       std::span<const OptionSpec> specs) {
  ParsedOptions parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    // A dash followed by a digit is a value, not an option: "-30s" is a
    // go-to target and "-1" a search pattern, and no option starts so.
    const bool negativeNumber = arg.size() >= 2 && arg[0] == '-' && arg[1] >= '0' && arg[1] <= '9';
    if (optionsEnded || arg.size() < 2 || arg[0] != '-' || negativeNumber) {
      parsed.positionals.push_back(arg);
      continue;
    }
    if (arg == "--") {
      optionsEnded = true;
      continue;
    }
    const size_t equals = arg.find('=');
    const std::string_view name = std::string_view(arg).substr(0, equals);
    const auto spec = std::ranges::find(specs, name, &OptionSpec::name);
    if (spec == specs.end()) return std::unexpected("unknown option '" + std::string(name) + "'");
    if (!spec->takesValue) {
      if (equals != std::string::npos)
        return std::unexpected("option '" + std::string(name) + "' takes no value");
      parsed.options[std::string(name)] = "";
    } else if (equals != std::string::npos) {
      parsed.options[std::string(name)] = arg.substr(equals + 1);
    } else if (i + 1 < args.size()) {
      parsed.options[std::string(name)] = args[++i];
    } else {
      return std::unexpected("option '" + std::string(name) + "' needs a value");
    }
    parsed.inOrder.emplace_back(name, parsed.options[std::string(name)]);
  }
  return parsed;
}

std::optional<ParsedOptions> parseCommandLine(std::string_view command, std::span<const std::string> args,
                                              std::span<const OptionSpec> specs, size_t minPositionals,
                                              size_t maxPositionals, std::ostream& err) {
  auto parsed = parseOptions(args, specs);
  if (!parsed) {
    printUsageError(err, command, parsed.error());
    return std::nullopt;
  }
  const size_t count = parsed->positionals.size();
  if (count < minPositionals || count > maxPositionals) {
    printUsageError(err, command, count < minPositionals ? "missing arguments" : "too many arguments");
    return std::nullopt;
  }
  return std::move(*parsed);
}

}  // namespace quorin::cli
