#include "logs/Severity.h"

#include <algorithm>
#include <array>

namespace quorin::logs {
namespace {

// Longest word the rules know ("emergency").
constexpr size_t kMaxWord = 9;

constexpr std::array<bool, 256> kWordByte = [] {
  std::array<bool, 256> table{};
  for (int c = 'a'; c <= 'z'; ++c) table[static_cast<size_t>(c)] = true;
  for (int c = 'A'; c <= 'Z'; ++c) table[static_cast<size_t>(c)] = true;
  for (int c = '0'; c <= '9'; ++c) table[static_cast<size_t>(c)] = true;
  table['_'] = true;
  return table;
}();

bool isWord(char c) { return kWordByte[static_cast<unsigned char>(c)]; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\t'; }

// Lower-cases `word` (at most kMaxWord bytes) into `out`. Unless `anyCase`,
// only the spellings people write are taken: lower, upper, capitalised
// ("Error", but not "eRRor", which is more likely an identifier).
bool fold(std::string_view word, char* out, bool anyCase) {
  int upper = 0;
  for (size_t i = 0; i < word.size(); ++i) {
    char c = word[i];
    if (c >= 'A' && c <= 'Z') {
      ++upper;
      c = static_cast<char>(c + 32);
    }
    out[i] = c;
  }
  if (anyCase || upper == 0) return true;
  const bool firstUpper = word[0] >= 'A' && word[0] <= 'Z';
  return upper == static_cast<int>(word.size()) || (upper == 1 && firstUpper);
}

// The level a lower-cased word names.
Level levelOfWord(std::string_view w) {
  switch (w[0]) {
    case 'a': return w == "alert" ? Level::fatal : Level::none;
    case 'c': return w == "crit" || w == "critical" ? Level::critical : Level::none;
    case 'd': return w == "debug" ? Level::debug : Level::none;
    case 'e':
      if (w == "err" || w == "error") return Level::error;
      return w == "emerg" || w == "emergency" ? Level::fatal : Level::none;
    case 'f': return w == "fatal" ? Level::fatal : Level::none;
    case 'i': return w == "info" ? Level::info : Level::none;
    case 'n': return w == "notice" ? Level::notice : Level::none;
    case 's': return w == "severe" ? Level::error : Level::none;
    case 't': return w == "trace" ? Level::trace : Level::none;
    case 'v': return w == "verbose" ? Level::trace : Level::none;
    case 'w': return w == "warn" || w == "warning" ? Level::warning : Level::none;
    default: return Level::none;
  }
}

bool isKey(std::string_view w) { return w == "level" || w == "lvl" || w == "severity"; }

// The numeric levels of bunyan and pino ("level":30 is info).
Level numericLevel(std::string_view digits) {
  if (digits.size() != 2 || digits[1] != '0') return Level::none;
  switch (digits[0]) {
    case '1': return Level::trace;
    case '2': return Level::debug;
    case '3': return Level::info;
    case '4': return Level::warning;
    case '5': return Level::error;
    case '6': return Level::fatal;
    default: return Level::none;
  }
}

// The value after a key word ending at `at`: an optional closing quote (a
// JSON key), `=` or `:` with blanks around it, an optional opening quote,
// then a level word in any case. Everything within `limit`.
Level keyValue(std::string_view text, size_t at, size_t limit) {
  const char* s = text.data();
  size_t k = at;
  if (k < limit && (s[k] == '"' || s[k] == '\'')) ++k;
  while (k < limit && isBlank(s[k])) ++k;
  if (k >= limit || (s[k] != '=' && s[k] != ':')) return Level::none;
  ++k;
  while (k < limit && isBlank(s[k])) ++k;
  if (k < limit && (s[k] == '"' || s[k] == '\'')) ++k;
  const size_t from = k;
  while (k < limit && isWord(s[k])) ++k;
  if (k == limit && limit < text.size() && isWord(s[limit])) return Level::none;  // runs past the window
  const std::string_view value = text.substr(from, k - from);
  if (value.empty() || value.size() > kMaxWord) return Level::none;
  if (isDigit(value[0])) return numericLevel(value);
  char folded[kMaxWord];
  fold(value, folded, true);
  return levelOfWord({folded, value.size()});
}

// The level a format states at the very start of a line: a syslog
// priority `<N>` (N up to 191), a glog letter with the month and day
// (`E1123 `), or an Android letter before the tag (`E/Tag`).
Level markerLevel(std::string_view line) {
  if (line.size() < 3) return Level::none;
  const char c = line[0];
  if (c == '<') {
    int priority = 0;
    size_t i = 1;
    while (i < line.size() && i <= 3 && isDigit(line[i])) priority = priority * 10 + (line[i++] - '0');
    if (i == 1 || i >= line.size() || line[i] != '>' || priority > 191) return Level::none;
    return syslogLevel(priority);
  }
  if (line[1] == '/') {
    if (isBlank(line[2]) || line[2] == '/') return Level::none;
    switch (c) {
      case 'V': return Level::trace;
      case 'D': return Level::debug;
      case 'I': return Level::info;
      case 'W': return Level::warning;
      case 'E': return Level::error;
      case 'F':
      case 'A': return Level::fatal;
      default: return Level::none;
    }
  }
  if (line.size() < 6 || line[5] != ' ' || !std::all_of(line.begin() + 1, line.begin() + 5, isDigit))
    return Level::none;
  const int month = (line[1] - '0') * 10 + (line[2] - '0');
  const int day = (line[3] - '0') * 10 + (line[4] - '0');
  if (month < 1 || month > 12 || day < 1 || day > 31) return Level::none;
  switch (c) {
    case 'I': return Level::info;
    case 'W': return Level::warning;
    case 'E': return Level::error;
    case 'F': return Level::fatal;
    default: return Level::none;
  }
}

}  // namespace

std::string_view name(Level level) {
  switch (level) {
    case Level::none: return "";
    case Level::trace: return "trace";
    case Level::debug: return "debug";
    case Level::info: return "info";
    case Level::notice: return "notice";
    case Level::warning: return "warning";
    case Level::error: return "error";
    case Level::critical: return "critical";
    case Level::fatal: return "fatal";
  }
  return "";
}

Level syslogLevel(int priority) {
  if (priority < 0) return Level::none;
  constexpr Level kBySeverity[] = {Level::fatal,   Level::fatal,  Level::critical, Level::error,
                                   Level::warning, Level::notice, Level::info,     Level::debug};
  return kBySeverity[priority % 8];
}

Level detectLevel(std::string_view text) {
  const size_t limit = std::min(text.size(), kLevelWindowBytes);
  const char* s = text.data();
  Level firstWord = Level::none;
  size_t i = 0;
  while (i < limit) {
    if (!isWord(s[i])) {
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < limit && isWord(s[j])) ++j;
    if (j == limit && limit < text.size() && isWord(s[limit])) break;  // the word runs past the window
    const size_t length = j - i;
    char folded[kMaxWord];
    if (length >= 3 && length <= kMaxWord && fold(text.substr(i, length), folded, false)) {
      const std::string_view word(folded, length);
      if (isKey(word)) {
        const Level value = keyValue(text, j, limit);
        if (value != Level::none) return value;
      } else if (firstWord == Level::none) {
        firstWord = levelOfWord(word);
      }
    }
    i = j;
  }
  return firstWord;
}

Level detectLineLevel(std::string_view line, size_t timestampEnd) {
  const Level marker = markerLevel(line);
  if (marker != Level::none) return marker;
  return detectLevel(line.substr(std::min(timestampEnd, line.size())));
}

}  // namespace quorin::logs
