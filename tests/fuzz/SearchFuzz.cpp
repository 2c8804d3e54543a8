// A search over arbitrary document bytes, with windows, pieces, blocks and
// chunks shrunk to a few bytes so that every seam is crossed, checked
// against a naive left-to-right matcher. The same needle as an escaped
// regular expression (regex route: literal alternation or PCRE2 with its
// prefilter) must find the same matches; non-ASCII case folding, which the
// naive matcher does not model, must at least report sane matches.
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "search/ByteSearch.h"
#include "search/QueryText.h"
#include "search/SearchEngine.h"
#include "storage/InMemoryLineIndex.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"
#include "support/ManualExecutor.h"
#include "text/Decode.h"

using namespace quorin;
using namespace quorin::search;

namespace {

struct Found {
  int64_t start;
  int64_t length;
  bool operator==(const Found&) const = default;
};

std::vector<Found> naiveMatches(std::string_view text, std::string needle, bool foldAscii, bool wholeWord) {
  std::vector<Found> out;
  if (needle.empty()) return out;
  std::string haystack(text);
  if (foldAscii) {
    haystack = asciiLower(haystack);
    needle = asciiLower(needle);
  }
  for (size_t at = 0; at + needle.size() <= haystack.size();) {
    if (haystack.compare(at, needle.size(), needle) != 0) {
      ++at;
      continue;
    }
    const bool before = at > 0 && isWordByte(static_cast<uint8_t>(haystack[at - 1]));
    const size_t end = at + needle.size();
    const bool after = end < haystack.size() && isWordByte(static_cast<uint8_t>(haystack[end]));
    if (wholeWord && (before || after)) {
      ++at;
      continue;
    }
    out.push_back({static_cast<int64_t>(at), static_cast<int64_t>(needle.size())});
    at = end;
  }
  return out;
}

std::string regexEscape(std::string_view literal) {
  std::string out;
  for (const char c : literal) {
    const auto b = static_cast<unsigned char>(c);
    if (b < 0x80 && !std::isalnum(b)) out += '\\';
    out += c;
  }
  return out;
}

std::vector<Found> found(const SearchResult& result) {
  std::vector<Found> out;
  for (const SearchMatch& m : result.matches) out.push_back({m.matchByteStart, m.matchByteLength});
  return out;
}

void checkLines(const SearchResult& result, std::string_view text) {
  for (const SearchMatch& m : result.matches) {
    FUZZ_CHECK(m.lineByteStart <= m.matchByteStart);
    FUZZ_CHECK(m.matchByteStart + m.matchByteLength <= static_cast<int64_t>(text.size()));
    FUZZ_CHECK(m.lineByteStart == 0 || text[static_cast<size_t>(m.lineByteStart - 1)] == '\n');
    const std::string_view before = text.substr(0, static_cast<size_t>(m.matchByteStart));
    FUZZ_CHECK(m.line == std::count(before.begin(), before.end(), '\n'));
    FUZZ_CHECK(before.substr(static_cast<size_t>(m.lineByteStart)).find('\n') == std::string_view::npos);
  }
  for (size_t i = 1; i < result.matches.size(); ++i)
    FUZZ_CHECK(result.matches[i].matchByteStart >=
               result.matches[i - 1].matchByteStart + result.matches[i - 1].matchByteLength);
  FUZZ_CHECK(result.totalMatchCount == static_cast<int64_t>(result.matches.size()));
  FUZZ_CHECK(!result.cancelled && !result.timedOut && !result.truncated);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::InputReader input(data, size);
  SearchOptions options;
  options.caseSensitive = input.flag();
  options.wholeWord = input.flag();
  options.escapes = input.flag();
  const bool completeIndex = input.flag();
  SearchLimits limits;
  limits.workers = 1 + input.below(3);
  limits.minLinesPerChunk = 1 + static_cast<int64_t>(input.below(4));
  limits.windowBytes = 1 + static_cast<int64_t>(input.below(64));
  limits.maxWindowBytes = limits.windowBytes + static_cast<int64_t>(input.below(64));
  limits.blockBytes = 1 + static_cast<int64_t>(input.below(64));
  limits.unindexedChunkBytes = 1 + static_cast<int64_t>(input.below(64));
  limits.pieceOverlapBytes = 24;  // the longest query: a regex match crossing a cut is found whole
  options.query = std::string(input.chunk(24));
  const std::string text(input.rest());

  auto table = std::make_shared<storage::PieceTable>(storage::OriginalBuffer::untitled());
  if (!text.empty()) table->insert(text, 0);
  auto queue = std::make_shared<testing::ManualExecutor>();
  storage::LineIndexBuildOptions indexOptions;
  indexOptions.queue = queue;
  indexOptions.limits.firstPassLines = 2;
  indexOptions.limits.firstPassBytes = 16;
  indexOptions.limits.chunkBytes = 8;
  auto index = storage::InMemoryLineIndex::create(table, storage::LineIndexTier::inMemory(),
                                                  storage::LineIndexWindow::wholeDocument(), indexOptions);
  index->startBuild();
  if (completeIndex) queue->runAll();

  static dispatch::WorkerPool pool(2);
  const SearchEngine engine(limits, &pool);
  const auto run = [&](const SearchOptions& o) {
    SearchCancellation cancellation;
    return engine.search(kFindBarMatchCap, o, table->snapshot(), index->snapshot(), cancellation);
  };

  const SearchResult result = run(options);
  FUZZ_CHECK(!result.compileError.has_value());
  checkLines(result, text);
  const std::string needle = options.escapes ? expandEscapes(options.query) : options.query;
  const bool folding = !options.caseSensitive;
  if (folding && !isAscii(needle)) return 0;  // Unicode folding: sanity only
  const auto expected = naiveMatches(text, needle, folding, options.wholeWord);
  FUZZ_CHECK(found(result) == expected);

  // The regex route, where it means the same: case-sensitive, one line and
  // valid UTF-8, also across the cuts of lines longer than the largest window.
  const bool validUtf8 = text::decodeUtf8Lossy(fuzz::bytesOf(needle)) == needle;
  if (!options.wholeWord && !folding && !needle.empty() && validUtf8 &&
      needle.find('\n') == std::string::npos) {
    SearchOptions regex;
    regex.query = regexEscape(needle);
    regex.regex = true;
    const SearchResult viaRegex = run(regex);
    FUZZ_CHECK(!viaRegex.compileError.has_value());
    checkLines(viaRegex, text);
    FUZZ_CHECK(found(viaRegex) == expected);
  }
  return 0;
}
