#include "replace/BatchReplace.h"

#include <algorithm>
#include <map>

#include "search/MultiLiteralMatcher.h"
#include "search/QueryText.h"
#include "search/SearchEngine.h"

namespace quorin::replace {
namespace {

std::string asciiLowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  return out;
}

ReplaceError pairError(ReplaceError::Kind kind, size_t index, std::string detail = {}) {
  return {kind, static_cast<int>(index) + 1, std::move(detail)};
}

search::SearchOptions optionsOf(const std::string& find, const BatchPair& given) {
  return {.query = find,
          .caseSensitive = given.caseSensitive,
          .wholeWord = given.wholeWord && !given.regex,
          .regex = given.regex,
          .escapes = false};
}

}  // namespace

std::expected<Batch, ReplaceError> Batch::compile(const std::vector<BatchPair>& pairs, BatchMode mode) {
  Batch batch;
  batch.mode_ = mode;
  batch.pairs_.reserve(pairs.size());
  for (size_t i = 0; i < pairs.size(); ++i) {
    const BatchPair& given = pairs[i];
    Pair pair;
    pair.regex = given.regex;
    pair.caseSensitive = given.caseSensitive;
    const bool expand = given.escapes && !given.regex;
    pair.find = expand ? search::expandEscapes(given.find) : given.find;
    if (pair.find.empty()) return std::unexpected(pairError(ReplaceError::Kind::emptyFind, i));
    if (pair.find.find_first_of("\r\n") != std::string::npos) {
      return std::unexpected(pairError(ReplaceError::Kind::lineBreakInFind, i));
    }
    if (given.regex) {
      search::PreparedQuery prepared = search::prepareQuery(optionsOf(pair.find, given));
      if (prepared.error) {
        return std::unexpected(pairError(ReplaceError::Kind::invalidRegex, i, *prepared.error));
      }
      pair.matcher = std::move(prepared.matcher);
    }
    if (given.regex) {
      auto regex = CapturingRegex::compile(pair.find, given.caseSensitive);
      if (!regex) return std::unexpected(pairError(ReplaceError::Kind::invalidRegex, i, regex.error()));
      auto parsed = ReplacementTemplate::parse(given.replace, regex->groups());
      if (!parsed) {
        return std::unexpected(pairError(ReplaceError::Kind::badTemplate, i, parsed.error().describe()));
      }
      pair.replacement = std::move(*parsed);
      pair.captures = std::move(*regex);
    } else {
      pair.replacement =
          ReplacementTemplate::literal(expand ? search::expandEscapes(given.replace) : given.replace);
    }
    batch.pairs_.push_back(std::move(pair));
  }
  // A literal pair's own matcher, made only where it runs alone: a million
  // pairs in one many-literal scan need none.
  auto ownMatcher = [&](size_t i) {
    Pair& pair = batch.pairs_[i];
    if (!pair.matcher) pair.matcher = search::prepareQuery(optionsOf(pair.find, pairs[i])).matcher;
    return pair.matcher;
  };
  if (mode == BatchMode::sequential) {
    for (size_t i = 0; i < pairs.size(); ++i) ownMatcher(i);
    return batch;
  }

  // Literal pairs that ASCII folding serves share a many-literal matcher per
  // set of options; everything else is a stream of its own.
  std::map<std::pair<bool, bool>, std::vector<size_t>> groups;
  for (size_t i = 0; i < pairs.size(); ++i) {
    const Pair& pair = batch.pairs_[i];
    if (!pair.regex && (pair.caseSensitive || search::isAscii(pair.find))) {
      groups[{!pair.caseSensitive, pairs[i].wholeWord}].push_back(i);
    } else {
      batch.streams_.push_back({ownMatcher(i), static_cast<int>(i), false, !pair.caseSensitive, {}});
    }
  }
  for (auto& [options, members] : groups) {
    const auto [caseless, wholeWord] = options;
    if (members.size() == 1) {
      const int only = static_cast<int>(members.front());
      batch.streams_.push_back({ownMatcher(members.front()), only, false, caseless, {}});
      continue;
    }
    // Longest first: the matcher's "first listed wins at one position" then
    // picks the longest literal there, and the stable sort keeps listing
    // order among literals of one length.
    std::stable_sort(members.begin(), members.end(), [&](size_t a, size_t b) {
      return batch.pairs_[a].find.size() > batch.pairs_[b].find.size();
    });
    Stream stream;
    stream.literals = true;
    stream.caseless = caseless;
    std::vector<std::string> literals;
    literals.reserve(members.size());
    for (const size_t m : members) {
      std::string key = caseless ? asciiLowered(batch.pairs_[m].find) : batch.pairs_[m].find;
      // The first listed of equal finds wins.
      auto [at, added] = stream.pairOf.emplace(key, static_cast<int>(m));
      if (!added) at->second = std::min(at->second, static_cast<int>(m));
      literals.push_back(batch.pairs_[m].find);
    }
    stream.matcher = std::make_shared<search::MultiLiteralMatcher>(std::move(literals), caseless, wholeWord);
    batch.streams_.push_back(std::move(stream));
  }
  return batch;
}

}  // namespace quorin::replace
