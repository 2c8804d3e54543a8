#include "Options.h"

#include <algorithm>

namespace quorin::cli {

std::optional<std::string> ParsedOptions::value(std::string_view name) const {
  const auto it = options.find(name);
  if (it == options.end()) return std::nullopt;
  return it->second;
}

std::expected<ParsedOptions, std::string> parseOptions(std::span<const std::string> args,
                                                       std::span<const OptionSpec> specs) {
  ParsedOptions parsed;
  bool optionsEnded = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
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
  }
  return parsed;
}

}  // namespace quorin::cli
