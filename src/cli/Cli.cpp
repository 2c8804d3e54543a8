#include "Cli.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "BookmarksCommand.h"
#include "CompareCommand.h"
#include "CsvCommand.h"
#include "FilterCommand.h"
#include "FollowCommand.h"
#include "GotoCommand.h"
#include "IndexCommand.h"
#include "InfoCommand.h"
#include "LogsCommand.h"
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
  std::string_view details;  // the options and the exit statuses, for --help
  CommandFn run;
};

constexpr std::array kCommands = {
    Command{"info", "[--json] FILE", "print the file's length, encoding and line ending",
            "  --json  one JSON object\n"
            "exit status: 0 done, 2 error\n",
            &runInfo},
    Command{"index", "[--json] FILE", "build the line index; print the line count, tier and timings",
            "  --json  one JSON object\n"
            "exit status: 0 done, 2 error, 130 interrupted\n",
            &runIndex},
    Command{
        "search", "[--regex] [-i] [-w] [--escapes] [--count] [--json] PATTERN FILE",
        "print the matches of PATTERN (line, byte offset, line text) or their count",
        "  --regex    PATTERN is a regular expression (PCRE2 syntax)\n"
        "  -i         ignore case\n"
        "  -w         whole words only\n"
        "  --escapes  expand \\n, \\t, \\xHH ... in PATTERN (a line break may be searched)\n"
        "  --count    print only the number of matches\n"
        "  --json     one JSON object with the matches (or only the totals with --count)\n"
        "exit status: 0 a match was found, 1 none, 2 error (also a search that timed out), 130 interrupted\n",
        &runSearch},
    Command{"replace",
            "[--regex] [-i] [-w] [--escapes] [--dry-run] [--json] PATTERN REPLACEMENT FILE\n"
            "       quorin-cli replace --batch PAIRS.tsv [--sequential] [--dry-run] [--json] FILE",
            "replace every match as one edit and save (in place when lengths are kept)",
            "  --regex         PATTERN is a regular expression (PCRE2 syntax); REPLACEMENT is a\n"
            "                  template: $1 ${name} $0 $$, \\U \\L \\E \\u \\l, \\n \\t \\xHH\n"
            "  -i              ignore case\n"
            "  -w              whole words only\n"
            "  --escapes       expand \\n, \\t, \\xHH ... in PATTERN and REPLACEMENT\n"
            "  --batch PAIRS   run the pairs of a TSV file: find, replace, flags (r regex, i ignore\n"
            "                  case, w whole word, e escapes), all in one pass (a swap swaps)\n"
            "  --sequential    with --batch: each pair runs on the result of the one before\n"
            "  --dry-run       count the matches; change nothing\n"
            "  --json          one JSON object\n"
            "exit status: 0 replaced, 1 nothing matched, 2 error, 130 interrupted (the file is untouched)\n",
            &runReplace},
    Command{"compare", "[--ignore-whitespace] [--ignore-case] [--report FILE] [--json] LEFT RIGHT",
            "compare two files line by line; print the changes, notices and a summary",
            "  --ignore-whitespace  lines that differ only in spaces and tabs are equal\n"
            "  --ignore-case        lines that differ only in case are equal\n"
            "  --report FILE        also save the plain-text report (a directory gets compare-report.txt)\n"
            "  --json               one JSON object\n"
            "exit status: 0 equal, 1 different, 2 error, 130 interrupted\n",
            &runCompare},
    Command{"csv", "[--json] [--rows] [--delimiter D] FILE",
            "index FILE as a table; print its structure, or every row as a JSON array (--rows)",
            "  --delimiter D  comma, tab, pipe, semicolon or one ASCII character (default: detected)\n"
            "  --rows         every record's cell values, one JSON array per line\n"
            "  --json         the structure as one JSON object\n"
            "exit status: 0 done, 2 error (also a file that cannot be parsed as a table), 130 interrupted\n",
            &runCsv},
    Command{"goto", "[--file FILE [--at LINE]] [--json] TEXT...",
            "parse a go-to target (42, 50%, b1234, r1234, 12:34, +5m); with --file, the line it lands on",
            "  --file FILE  resolve the target in FILE and print the 1-based line it lands on\n"
            "  --at LINE    the caret line (1-based, default 1) that clock times and offsets count from\n"
            "  --json       one JSON object (a failure too, on stdout)\n"
            "Words are joined with spaces; -30s and other negative offsets are targets, not options.\n"
            "exit status: 0 a target (resolved), 2 not a target, not resolvable in FILE, or a usage error,\n"
            "130 interrupted\n",
            &runGoto},
    Command{"logs", "[--histogram N] [--json] FILE",
            "read FILE as a log: timestamp format, first and last time, messages per level",
            "  --histogram N  also messages over time in at most N buckets of a round width, by level\n"
            "  --json         one JSON object\n"
            "exit status: 0 done, 2 error, 130 interrupted\n",
            &runLogs},
    Command{"filter",
            "[-e PATTERN]... [-v PATTERN]... [--regex] [-i] [-w] [--level LEVEL] [--from TIME] [--to TIME] "
            "[-B N] [-A N] [--messages] [--count|--json] FILE",
            "print the lines a filter shows, with their original line numbers",
            "  -e PATTERN     show lines matching PATTERN (repeatable; any of them)\n"
            "  -v PATTERN     hide lines matching PATTERN (repeatable)\n"
            "  --regex        patterns are regular expressions (PCRE2 syntax)\n"
            "  -i             ignore case\n"
            "  -w             whole words only\n"
            "  --level LEVEL  only messages at LEVEL or above (trace … fatal)\n"
            "  --from TIME    only messages at or after TIME (the Go to Time forms)\n"
            "  --to TIME      only messages at or before TIME (a minute or a day given whole)\n"
            "  -B N, -A N     also N lines before / after each shown line\n"
            "  --messages     show whole messages (a line and its continuation lines)\n"
            "  --count        print only the number of lines shown\n"
            "  --json         one JSON object with the shown lines\n"
            "exit status: 0 a line is shown, 1 none, 2 error, 130 interrupted\n",
            &runFilter},
    Command{
        "bookmarks", "[--add LINE]... [--note TEXT] [--remove LINE]... [--json] FILE",
        "list a file's bookmarks, or add and remove some, in the sidecar the editor reads",
        "  --add LINE     bookmark LINE (1-based; repeatable)\n"
        "  --note TEXT    the note of the lines added\n"
        "  --remove LINE  remove the bookmark of LINE (repeatable)\n"
        "  --json         one JSON object\n"
        "Sidecars live under $XDG_DATA_HOME/Quorin/sidecars; bookmarks of a changed file follow their text.\n"
        "exit status: 0 done, 2 error, 130 interrupted\n",
        &runBookmarks},
    Command{"report", "[-o OUT] [--html] [--context N] FILE",
            "write the incident report of FILE: its notes, bookmarks, their times and lines",
            "  -o OUT         write to OUT (atomically) instead of standard output\n"
            "  --html         one HTML page (also when OUT ends in .html); Markdown otherwise\n"
            "  --context N    also N lines before and after each bookmark (0 to 50)\n"
            "exit status: 0 done, 2 error, 130 interrupted\n",
            &runReport},
    Command{"follow", "[--from-start] [--json] FILE",
            "print what is appended to FILE as it arrives (like tail -F)",
            "  --from-start  print the file's present content first\n"
            "  --json        one JSON object per line: {\"line\":TEXT}\n"
            "Truncation, rotation and deletion are told on stderr; deletion ends the command.\n"
            "exit status: 0 the file was deleted, 2 error, 130 interrupted (Ctrl+C is the usual way out)\n",
            &runFollow},
    Command{"recover", "[--restore|--discard] [--unsaved [--restore-to PATH]] [--json] [JOURNAL...]",
            "list the journals of interrupted saves and of unsaved edits; restore or discard them",
            "  --restore          write the bytes from before the interrupted save back\n"
            "  --discard          delete the journal, leaving the file as it is\n"
            "  --unsaved          list the journals of unsaved edits a crash left instead\n"
            "  --restore-to PATH  write the text a journal of unsaved edits rebuilds to the new file PATH\n"
            "                     (the edited file itself is never touched)\n"
            "  --json             one JSON object\n"
            "Without JOURNAL: every pending journal in the scratch directory.\n"
            "exit status: 0 done, 2 a journal could not be read or restored\n",
            &runRecover},
};

bool isHelp(std::string_view arg) { return arg == "--help" || arg == "-h"; }

void printUsage(std::ostream& to) {
  to << "usage: quorin-cli COMMAND [ARGS...]\n\ncommands:\n";
  size_t width = 0;
  for (const Command& command : kCommands) width = std::max(width, command.name.size());
  for (const Command& command : kCommands) {
    to << "  " << command.name << std::string(width - command.name.size() + 2, ' ') << command.summary
       << '\n';
  }
  to << "\nEvery command takes --help and --json. Exit status: 0 found, equal or done; 1 not found or\n"
        "different; 2 error; 130 interrupted by Ctrl+C. Progress is shown on stderr for long work when\n"
        "stderr is a terminal.\nRun 'quorin-cli COMMAND --help' for one command; see also quorin-cli(1).\n";
}

}  // namespace

void printUsageError(std::ostream& err, std::string_view command, std::string_view message) {
  err << "quorin-cli: " << message << '\n';
  const auto found = std::ranges::find(kCommands, command, &Command::name);
  if (found == kCommands.end()) return;
  err << "usage: quorin-cli " << found->name << ' ' << found->synopsis << "\nRun 'quorin-cli " << found->name
      << " --help' for its options.\n";
}

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
  if (args.front() == "--version") {
    out << "quorin-cli " << QUORIN_VERSION << '\n';
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
    out << "usage: quorin-cli " << command->name << ' ' << command->synopsis << "\n"
        << command->summary << "\n\noptions:\n"
        << command->details;
    return kExitOk;
  }
  return command->run(rest, out, err);
}

}  // namespace quorin::cli
