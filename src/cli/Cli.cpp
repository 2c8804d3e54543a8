#include "Cli.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "CompareCommand.h"
#include "CsvCommand.h"
#include "FollowCommand.h"
#include "GotoCommand.h"
#include "IndexCommand.h"
#include "InfoCommand.h"
#include "RecoverCommand.h"
#include "ReplaceCommand.h"
#include "SearchCommand.h"

namespace quorin::cli {
namespace {

using CommandFn = int (*)(std::span<const std::string>, std::ostream&, std::ostream&);

struct Command {
  std::string_view name;
  std::string_view synopsis;  // the arguments after the name
  std::string_view summary;
  CommandFn run;
};

constexpr std::array kCommands = {
    Command{"info", "FILE [--json]", "print the file's length, encoding and line ending", &runInfo},
    Command{"index", "FILE [--json]", "build the line index; print the line count, tier and timings", &runIndex},
    Command{"compare", "[--ignore-whitespace] [--ignore-case] [--report FILE] [--json] LEFT RIGHT",
            "compare two files line by line; print the changes, notices and a summary", &runCompare},
    Command{"follow", "[--from-start] FILE", "print what is appended to FILE as it arrives (like tail -F)", &runFollow},
    Command{"csv", "[--json] [--rows] [--delimiter D] FILE",
            "index FILE as a table; print its structure, or every row as a JSON array (--rows)", &runCsv},
    Command{"goto", "[--json] TEXT", "parse a go-to target (42, 50%, b1234, r1234, 12:34, +5m) or say why not",
            &runGoto},
    Command{"recover", "[--restore|--discard] [JOURNAL...]",
            "list the journals of interrupted saves; restore or discard them", &runRecover},
    Command{"replace", "[--regex] [-i] [-w] [--escapes] [--dry-run] PATTERN REPLACEMENT FILE",
            "replace every match as one edit and save (in place when lengths are kept)", &runReplace},
    Command{"search", "[--regex] [-i] [-w] [--escapes] [--count] [--json] PATTERN FILE",
            "print the matches of PATTERN (line, byte offset, line text) or their count", &runSearch},
};

bool isHelp(std::string_view arg) { return arg == "--help" || arg == "-h"; }

void printUsage(std::ostream& to) {
  to << "usage: quorin-cli COMMAND [ARGS...]\n\ncommands:\n";
  size_t width = 0;
  for (const Command& command : kCommands)
    width = std::max(width, command.name.size() + 1 + command.synopsis.size());
  for (const Command& command : kCommands) {
    const std::string head = std::string(command.name) + " " + std::string(command.synopsis);
    to << "  " << head << std::string(width - head.size() + 2, ' ') << command.summary << '\n';
  }
  to << "\nRun 'quorin-cli COMMAND --help' for one command.\n";
}

}  // namespace

int runCli(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  if (args.empty()) {
    err << "quorin-cli: no command given\n";
    printUsage(err);
    return kExitFailure;
  }
  if (isHelp(args.front())) {
    printUsage(out);
    return kExitOk;
  }
  const auto command = std::ranges::find(kCommands, args.front(), &Command::name);
  if (command == kCommands.end()) {
    err << "quorin-cli: unknown command '" << args.front() << "'\n";
    printUsage(err);
    return kExitFailure;
  }
  const auto rest = args.subspan(1);
  // "--" ends the options, so a file may still be called "--help" after it.
  const auto optionsEnd = std::ranges::find(rest, std::string_view("--"));
  if (std::any_of(rest.begin(), optionsEnd, isHelp)) {
    out << "usage: quorin-cli " << command->name << ' ' << command->synopsis << "\n  " << command->summary
        << '\n';
    return kExitOk;
  }
  return command->run(rest, out, err);
}

}  // namespace quorin::cli
