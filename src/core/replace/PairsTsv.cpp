#include "replace/PairsTsv.h"

#include "search/QueryText.h"

namespace quorin::replace {
namespace {

constexpr std::string_view kHeader = "find\treplace\tflags";

bool needsEscaping(std::string_view text) { return text.find_first_of("\t\r\n\\") != std::string_view::npos; }

std::string escaped(std::string_view text) {
  std::string out;
  for (char c : text) {
    switch (c) {
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      case '\n': out += "\\n"; break;
      case '\\': out += "\\\\"; break;
      default: out.push_back(c);
    }
  }
  return out;
}

// A regex or a template only needs its raw tabs and line feeds written out
// (their own backslashes already mean what they say). A raw CR can stay: the
// flags field always follows, so it never ends a line.
std::string withoutRawBreaks(std::string_view text) {
  std::string out;
  for (char c : text) {
    if (c == '\t') {
      out += "\\t";
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out.push_back(c);
    }
  }
  return out;
}

}  // namespace

std::expected<std::vector<BatchPair>, TsvError> readPairsTsv(std::string_view text) {
  std::vector<BatchPair> pairs;
  int64_t number = 0;
  size_t at = 0;
  while (at < text.size()) {
    size_t end = text.find('\n', at);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(at, end - at);
    at = end + 1;
    ++number;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || (number == 1 && line == kHeader)) continue;
    const size_t tab1 = line.find('\t');
    if (tab1 == std::string_view::npos) {
      return std::unexpected(TsvError{number, "expected find, replace and flags separated by tabs"});
    }
    const size_t tab2 = line.find('\t', tab1 + 1);
    if (tab2 != std::string_view::npos && line.find('\t', tab2 + 1) != std::string_view::npos) {
      return std::unexpected(TsvError{number, "more than three fields (find, replace and flags)"});
    }
    BatchPair pair;
    pair.find = std::string(line.substr(0, tab1));
    pair.replace = std::string(
        line.substr(tab1 + 1, tab2 == std::string_view::npos ? std::string_view::npos : tab2 - tab1 - 1));
    const std::string_view flags =
        tab2 == std::string_view::npos ? std::string_view() : line.substr(tab2 + 1);
    for (char f : flags) {
      switch (f) {
        case 'r': pair.regex = true; break;
        case 'i': pair.caseSensitive = false; break;
        case 'w': pair.wholeWord = true; break;
        case 'e': pair.escapes = true; break;
        case ' ': break;
        default:
          return std::unexpected(
              TsvError{number, "unknown flag '" + std::string(1, f) + "' (flags are r, i, w and e)"});
      }
    }
    if (pair.find.empty()) return std::unexpected(TsvError{number, "the find text is empty"});
    pairs.push_back(std::move(pair));
  }
  return pairs;
}

std::string writePairsTsv(std::span<const BatchPair> pairs) {
  std::string out(kHeader);
  out += '\n';
  for (const BatchPair& pair : pairs) {
    BatchPair written = pair;
    if (pair.regex) {
      written.find = withoutRawBreaks(pair.find);
      written.replace = withoutRawBreaks(pair.replace);
    } else if (pair.escapes || needsEscaping(pair.find) || needsEscaping(pair.replace)) {
      // Written as the texts they stand for, every special character escaped.
      const std::string find = pair.escapes ? search::expandEscapes(pair.find) : pair.find;
      const std::string replace = pair.escapes ? search::expandEscapes(pair.replace) : pair.replace;
      written.escapes = true;
      written.find = escaped(find);
      written.replace = escaped(replace);
    }
    out += written.find;
    out += '\t';
    out += written.replace;
    out += '\t';
    if (written.regex) out += 'r';
    if (!written.caseSensitive) out += 'i';
    if (written.wholeWord) out += 'w';
    if (written.escapes) out += 'e';
    out += '\n';
  }
  return out;
}

}  // namespace quorin::replace
