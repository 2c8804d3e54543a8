#include "logs/Severity.h"

#include <algorithm>
#include <array>
#include <bit>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace quorin::logs {
namespace {

// Longest word the rules know ("emergency").
constexpr size_t kMaxWord = 9;

// Per byte: whether it belongs to a word, and whether a word starting with
// it can be one the rules know (most words are rejected on this alone).
constexpr uint8_t kWordByte = 1, kCandidateStart = 2;
constexpr std::array<uint8_t, 256> kByteClass = [] {
  std::array<uint8_t, 256> table{};
  for (int c = 'a'; c <= 'z'; ++c) table[static_cast<size_t>(c)] = kWordByte;
  for (int c = 'A'; c <= 'Z'; ++c) table[static_cast<size_t>(c)] = kWordByte;
  for (int c = '0'; c <= '9'; ++c) table[static_cast<size_t>(c)] = kWordByte;
  table['_'] = kWordByte;
  for (const char c : std::string_view("acdefilnstvw")) {
    table[static_cast<unsigned char>(c)] |= kCandidateStart;
    table[static_cast<unsigned char>(c - 32)] |= kCandidateStart;
  }
  return table;
}();

bool isWord(char c) { return (kByteClass[static_cast<unsigned char>(c)] & kWordByte) != 0; }
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

// The level of a key whose `=` or `:` is at `at`, if the word before it
// (past blanks and a closing quote) is a key and a level follows.
Level keyLevelAt(std::string_view text, size_t at, size_t limit) {
  const char* s = text.data();
  size_t wordEnd = at;
  while (wordEnd > 0 && isBlank(s[wordEnd - 1])) --wordEnd;
  if (wordEnd > 0 && (s[wordEnd - 1] == '"' || s[wordEnd - 1] == '\'')) --wordEnd;
  // Every key ends in l or y: most separators are rejected here.
  if (wordEnd < 3 || ((s[wordEnd - 1] | 0x20) != 'l' && (s[wordEnd - 1] | 0x20) != 'y')) return Level::none;
  size_t wordStart = wordEnd;
  while (wordStart > 0 && wordEnd - wordStart <= kMaxWord && isWord(s[wordStart - 1])) --wordStart;
  const size_t length = wordEnd - wordStart;
  char folded[kMaxWord];
  if (length < 3 || length > kMaxWord || (wordStart > 0 && isWord(s[wordStart - 1])) ||
      !fold(text.substr(wordStart, length), folded, false) || !isKey({folded, length}))
    return Level::none;
  return keyValue(text, wordEnd, limit);
}

// The first key in the window with a level as its value. Separators are
// found sixteen bytes at a time: a structured line has many of them.
Level firstKeyLevel(std::string_view text, size_t limit) {
  const char* s = text.data();
  size_t i = 0;
#ifdef __SSE2__
  const __m128i equals = _mm_set1_epi8('='), colon = _mm_set1_epi8(':');
  for (; i + 16 <= limit; i += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + i));
    auto mask = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi8(block, equals), _mm_cmpeq_epi8(block, colon))));
    for (; mask != 0; mask &= mask - 1) {
      const Level level = keyLevelAt(text, i + static_cast<size_t>(std::countr_zero(mask)), limit);
      if (level != Level::none) return level;
    }
  }
#endif
  for (; i < limit; ++i) {
    if (s[i] != '=' && s[i] != ':') continue;
    const Level level = keyLevelAt(text, i, limit);
    if (level != Level::none) return level;
  }
  return Level::none;
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
  while (i < limit && firstWord == Level::none) {
    const uint8_t type = kByteClass[static_cast<unsigned char>(s[i])];
    if ((type & kWordByte) == 0) {
      ++i;
      continue;
    }
    size_t j = i + 1;
    while (j < limit && isWord(s[j])) ++j;
    if (j == limit && limit < text.size() && isWord(s[limit])) break;  // the word runs past the window
    const size_t length = j - i;
    char folded[kMaxWord];
    if ((type & kCandidateStart) != 0 && length >= 3 && length <= kMaxWord &&
        fold(text.substr(i, length), folded, false))
      firstWord = levelOfWord({folded, length});
    i = j;
  }
  const Level key = firstKeyLevel(text, limit);
  return key != Level::none ? key : firstWord;
}

Level detectLineLevel(std::string_view line, size_t timestampEnd) {
  const Level marker = markerLevel(line);
  if (marker != Level::none) return marker;
  return detectLevel(line.substr(std::min(timestampEnd, line.size())));
}

}  // namespace quorin::logs
