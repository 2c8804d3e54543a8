#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <random>
#include <regex>
#include <thread>

#include "dispatch/ManualMainQueue.h"
#include "search/QueryText.h"
#include "search/SearchTestSupport.h"

namespace quorin::search {
namespace {

struct Hit {
  int64_t line, start, length;
  bool operator==(const Hit&) const = default;
  friend void PrintTo(const Hit& h, std::ostream* os) { *os << h.line << '@' << h.start << '+' << h.length; }
};

std::vector<Hit> hits(const SearchResult& result) {
  std::vector<Hit> out;
  for (const SearchMatch& m : result.matches) out.push_back({m.line, m.matchByteStart, m.matchByteLength});
  return out;
}

bool wordByte(char c) {
  const auto b = static_cast<unsigned char>(c);
  return b >= 0x80 || std::isalnum(b) || b == '_';
}

char lower(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : c; }

int64_t lineOf(std::string_view text, size_t at) {
  return std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(at), '\n');
}

// The obvious matcher: at every position the first listed literal that
// matches there, leftmost first, without overlap.
std::vector<Hit> referenceLiterals(std::string_view text, const std::vector<std::string>& literals, bool fold,
                                   bool wholeWord) {
  std::vector<Hit> out;
  size_t at = 0;
  while (at < text.size()) {
    bool found = false;
    for (const std::string& literal : literals) {
      if (at + literal.size() > text.size()) continue;
      bool equal = true;
      for (size_t k = 0; k < literal.size() && equal; ++k)
        equal = fold ? lower(text[at + k]) == lower(literal[k]) : text[at + k] == literal[k];
      if (!equal) continue;
      if (wholeWord && ((at > 0 && wordByte(text[at - 1])) ||
                        (at + literal.size() < text.size() && wordByte(text[at + literal.size()])))) {
        continue;
      }
      out.push_back({lineOf(text, at), static_cast<int64_t>(at), static_cast<int64_t>(literal.size())});
      at += literal.size();
      found = true;
      break;
    }
    if (!found) ++at;
  }
  return out;
}

// std::regex over each line without its break, for patterns whose meaning
// is the same in ECMAScript and PCRE2 (on ASCII text, for patterns that can
// match empty). Nothing after the last line break is no line.
std::vector<Hit> referenceRegex(std::string_view text, const std::string& pattern, bool caseSensitive) {
  const std::regex re(pattern,
                      caseSensitive ? std::regex::ECMAScript : std::regex::ECMAScript | std::regex::icase);
  std::vector<Hit> out;
  size_t start = 0;
  int64_t line = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    size_t contentEnd = end;
    if (contentEnd > start && text[contentEnd - 1] == '\r') --contentEnd;
    const std::string content(text.substr(start, contentEnd - start));
    for (std::sregex_iterator it(content.begin(), content.end(), re), last; it != last; ++it)
      out.push_back({line, static_cast<int64_t>(start + it->position()), static_cast<int64_t>(it->length())});
    if (end == text.size()) break;
    start = end + 1;
    ++line;
  }
  return out;
}

// With `invalid`, some bytes that are not UTF-8 (a stray lead byte, 0xFF).
std::string randomText(std::mt19937& rng, size_t length, bool invalid) {
  static constexpr std::string_view kPieces[] = {"a",  "b", "c",  "A",    "B",   "ab", "abc",
                                                 "ca", " ", "_",  "x1",   "\n",  "\n", "\r\n",
                                                 "é",  "-", "ba", "\xC3", "\xFF"};
  const size_t kinds = std::size(kPieces) - (invalid ? 0 : 2);
  std::string text;
  while (text.size() < length) text += kPieces[rng() % kinds];
  return text;
}

// Small windows, chunks and blocks, so that a short text crosses many of
// every kind of seam (including lines cut into pieces for literal queries).
SearchLimits tinyLimits(std::mt19937& rng, bool pieces) {
  SearchLimits limits;
  limits.minLinesPerChunk = 1 + static_cast<int64_t>(rng() % 5);
  limits.windowBytes = 4 + static_cast<int64_t>(rng() % 40);
  limits.maxWindowBytes = pieces ? limits.windowBytes * 2 : 1 << 20;
  limits.blockBytes = 3 + static_cast<int64_t>(rng() % 30);
  limits.workers = 1 + rng() % 4;
  limits.unindexedChunkBytes = 5 + static_cast<int64_t>(rng() % 50);
  return limits;
}

TEST(SearchEngineTest, MatchesAReferenceMatcherOverRandomTextsAndSplits) {
  std::mt19937 rng(7);
  dispatch::WorkerPool pool(3);
  for (int round = 0; round < 60; ++round) {
    const bool invalid = round % 2 == 0;
    const std::string text = randomText(rng, 50 + rng() % 600, invalid);
    const SearchDoc doc(text, round % 3 != 0);
    const SearchLimits limits = tinyLimits(rng, invalid);
    const auto check = [&](const SearchOptions& options, const std::vector<Hit>& expected) {
      const SearchResult result = doc.search(options, kFindBarMatchCap, limits, &pool);
      EXPECT_EQ(hits(result), expected) << "round " << round << " query " << options.query;
      EXPECT_EQ(result.totalMatchCount, static_cast<int64_t>(expected.size()));
      EXPECT_FALSE(result.truncated || result.timedOut || result.cancelled);
    };
    check(plain("ab"), referenceLiterals(text, {"ab"}, false, false));
    check({.query = "aB", .caseSensitive = false}, referenceLiterals(text, {"ab"}, true, false));
    check({.query = "ab", .wholeWord = true}, referenceLiterals(text, {"ab"}, false, true));
    check({.query = "b", .caseSensitive = false, .wholeWord = true},
          referenceLiterals(text, {"b"}, true, true));
    check(regex("ca|ab|a"), referenceLiterals(text, {"ca", "ab", "a"}, false, false));
    check({.query = "Ab|BA", .caseSensitive = false, .regex = true},
          referenceLiterals(text, {"ab", "ba"}, true, false));
    // Line breaks take the serial block scan.
    check({.query = "b\\nc", .escapes = true}, referenceLiterals(text, {"b\nc"}, false, false));
    check({.query = "\\r\\na", .caseSensitive = false, .escapes = true},
          referenceLiterals(text, {"\r\na"}, true, false));
  }
}

// Regexes against std::regex line by line, with and without the prefilter
// (inner literals, caseless too, and required bytes), over ASCII documents
// cut into several windows per chunk, into chunks past an unfinished line
// index, and into pieces of lines longer than the largest window: empty
// matches, anchors and repeated classes included.
TEST(SearchEngineTest, RegexMatchesALineByLineReferenceAcrossEverySeam) {
  static constexpr std::string_view kPieces[] = {
      "a",    "b",  "c",  "ab",    " ",  "x1",  "_",       "-",   "\n", "\n\n",
      "\r\n", "cc", "k",  "2006 ", "<d", "a.b", "nglin@n", "@",   "A",  "B",
      "x",    "yw", "zw", "colo",  "u",  "r",   " ERROR",  "eRr", "1"};
  const std::vector<std::pair<std::string, bool>> patterns{
      {"^$", true},         {"^", true},
      {"$", true},          {"b*", true},
      {"^a*", true},        {"[ab]+c", true},
      {"<[a-z.]+@", true},  {"(ab|c)+$", true},
      {"\\bx1\\b", true},   {"[^ ]*$", true},
      {"c{2,}|k", true},    {"[a-c]{1,3}[ac][ab]*", true},
      {"^[abc ]*$", false}, {"(?:b|-)\\w?", false},
      {"a\\.B+", false},    {"\\d+ ERROR", true},
      {"a.c", true},        {"x(y|z)w", true},
      {"(?i)err", true},    {"colou?r", true},
      {"ab*c", true},       {"1 erRor", false},
      {"x[yz]W", false}};
  std::mt19937 rng(19);
  dispatch::WorkerPool pool(3);
  for (int round = 0; round < 16; ++round) {
    std::string text;
    const size_t length = 300 + rng() % 2500;
    while (text.size() < length) text += kPieces[rng() % std::size(kPieces)];
    const SearchDoc doc(text, round % 4 != 0);
    SearchLimits limits;
    limits.minLinesPerChunk = 5 + static_cast<int64_t>(rng() % 40);
    limits.windowBytes = 8 + static_cast<int64_t>(rng() % 40);
    limits.maxWindowBytes = round % 2 == 0 ? limits.windowBytes : 1 << 20;  // even rounds cut lines
    limits.workers = 1 + rng() % 4;
    limits.unindexedChunkBytes = 20 + static_cast<int64_t>(rng() % 200);
    for (const auto& [pattern, caseSensitive] : patterns) {
      // std::regex has no inline options.
      const bool inlineCaseless = pattern.starts_with("(?i)");
      const std::vector<Hit> expected =
          referenceRegex(text, pattern.substr(inlineCaseless ? 4 : 0), caseSensitive && !inlineCaseless);
      for (const bool prefilter : {true, false}) {
        limits.regexPrefilter = prefilter;
        const SearchResult result =
            doc.search({.query = pattern, .caseSensitive = caseSensitive, .regex = true}, kFindBarMatchCap,
                       limits, &pool);
        ASSERT_EQ(hits(result), expected) << "round " << round << " pattern " << pattern << " prefilter "
                                          << prefilter << " window " << limits.windowBytes;
        EXPECT_EQ(result.totalMatchCount, static_cast<int64_t>(expected.size()));
      }
    }
  }
}

TEST(SearchEngineTest, RegexFindsEveryMatchOfTheIssueReproductions) {
  // Every seventh of 20,000 lines holds an address; all 2,857 are found
  // however the lines are cut into chunks.
  std::string text;
  for (int nr = 1; nr <= 20000; ++nr)
    text += nr % 7 == 0 ? "2006 <dave.anglin@nrc.ca>\n" : "plain line number " + std::to_string(nr) + "\n";
  const SearchDoc doc(text);
  for (const size_t workers : {1, 2, 3, 4}) {
    SearchLimits limits;
    limits.workers = workers;
    const SearchResult result = doc.search(regex("<[a-z.]+@"), kFindBarMatchCap, limits);
    ASSERT_EQ(result.totalMatchCount, 2857) << workers;
    for (size_t i = 0; i < result.matches.size(); ++i)
      EXPECT_EQ(result.matches[i].line, static_cast<int64_t>(7 * i + 6));
  }
  // Empty matches at line starts, with and without the prefilter.
  const SearchDoc blanks("abc\n\nxx\n\n\nyy\n");
  const SearchDoc bare("abc");
  for (const bool prefilter : {true, false}) {
    SearchLimits limits;
    limits.regexPrefilter = prefilter;
    EXPECT_EQ(hits(blanks.search(regex("^$"), kFindBarMatchCap, limits)),
              (std::vector<Hit>{{1, 4, 0}, {3, 8, 0}, {4, 9, 0}}));
    EXPECT_EQ(hits(bare.search(regex("^"), kFindBarMatchCap, limits)), (std::vector<Hit>{{0, 0, 0}}));
    EXPECT_EQ(hits(bare.search(regex("$"), kFindBarMatchCap, limits)), (std::vector<Hit>{{0, 3, 0}}));
  }
}

// A line longer than the largest window is searched in pieces that overlap
// by the longest match allowed past a cut; anchors and word boundaries still
// see the line, not the piece.
TEST(SearchEngineTest, RegexMatchesCrossTheCutOfAVeryLongLine) {
  std::string line(200, 'a');
  line.replace(63, 2, "XY");    // straddles the first cut, at 64
  line.replace(127, 3, "Zab");  // a word that begins just before the second cut, at 128
  const SearchDoc doc(line + "\nab\n");
  for (const bool prefilter : {true, false}) {
    SearchLimits limits;
    limits.windowBytes = 16;
    limits.maxWindowBytes = 64;
    limits.pieceOverlapBytes = 8;
    limits.regexPrefilter = prefilter;
    const auto find = [&](const char* pattern) { return hits(doc.search(regex(pattern), 100, limits)); };
    EXPECT_EQ(find("X[Y]"), (std::vector<Hit>{{0, 63, 2}}));
    EXPECT_EQ(find("Y?a{3}$"), (std::vector<Hit>{{0, 197, 3}}));
    EXPECT_EQ(find("^a{2}"), (std::vector<Hit>{{0, 0, 2}}));
    EXPECT_EQ(find("(?<=Z)ab"), (std::vector<Hit>{{0, 128, 2}}));
    EXPECT_EQ(find("\\bab"), (std::vector<Hit>{{1, 201, 2}}));
    EXPECT_EQ(doc.search(regex("a+"), 100, limits).matches.front().matchByteLength, 63);
  }
}

TEST(SearchEngineTest, RegexWithAndWithoutPrefilterAgreeOnValidText) {
  std::mt19937 rng(11);
  std::string text;
  for (int i = 0; i < 400; ++i) {
    text += "2026-03-14T16:52:" + std::to_string(10 + rng() % 50) + "." + std::to_string(rng() % 1000) + "Z ";
    text += (rng() % 5 == 0) ? "ERROR" : "INFO";
    text += (rng() % 3 == 0) ? " straße Été\r\n" : " disk_full café\n";
  }
  const SearchDoc doc(text);
  for (const char* pattern :
       {"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d+Z ERROR", "\\bcaf\\w\\b", "(?i)été$", "(\\w)\\1",
        "(?<=\\s)Été", "\\s\\S+$", "^\\d+", "\\A\\d{4}", "é\\z", "\\bdisk_full\\b"}) {
    for (const bool caseSensitive : {true, false}) {
      SearchLimits with, without;
      without.regexPrefilter = false;
      const SearchOptions options{.query = pattern, .caseSensitive = caseSensitive, .regex = true};
      const SearchResult a = doc.search(options, kFindBarMatchCap, with);
      const SearchResult b = doc.search(options, kFindBarMatchCap, without);
      EXPECT_EQ(hits(a), hits(b)) << pattern;
      EXPECT_GT(a.totalMatchCount, 0) << pattern;
    }
  }
  // "k" and "s" fold to non-ASCII signs when case is ignored: no byte for the prefilter then.
  const SearchDoc kelvin("a\u212A\n");
  EXPECT_EQ(kelvin.search({.query = "\\wk", .caseSensitive = false, .regex = true}).totalMatchCount, 1);
}

TEST(SearchEngineTest, RegexOffsetsNameTheDocumentsBytesAroundInvalidUtf8) {
  // Invalid bytes before a match, inside one, and a line break after a lone lead byte.
  const std::string text =
      "\xC0\xFF ERROR one\nx a\xFF"
      "b y\n\xC3\nÉ\x80z ERR\n";
  const SearchDoc doc(text);
  for (const bool prefilter : {true, false}) {
    SearchLimits limits;
    limits.regexPrefilter = prefilter;
    EXPECT_EQ(hits(doc.search(regex("ERR\\w*"), kFindBarMatchCap, limits)),
              (std::vector<Hit>{{0, 3, 5}, {3, 28, 3}}));
    EXPECT_EQ(hits(doc.search(regex("a.b"), kFindBarMatchCap, limits)), (std::vector<Hit>{{1, 15, 3}}));
    EXPECT_EQ(hits(doc.search(regex("^.$"), kFindBarMatchCap, limits)), (std::vector<Hit>{{2, 21, 1}}));
    EXPECT_EQ(hits(doc.search(regex("É.z"), kFindBarMatchCap, limits)), (std::vector<Hit>{{3, 23, 4}}));
  }
}

TEST(SearchEngineTest, QueryKindsFromTheFindBar) {
  const SearchDoc doc("ERROR x\nWARN y\nerror logé log\nabc a.b axb\nÉTÉ été Été\n");
  EXPECT_EQ(doc.search(plain("")).totalMatchCount, 0);
  EXPECT_FALSE(doc.search(plain("")).compileError);
  // Non-ASCII case-insensitive: Unicode folding, and whole words tested on characters.
  EXPECT_EQ(doc.search({.query = "été", .caseSensitive = false}).totalMatchCount, 3);
  EXPECT_EQ(doc.search({.query = "ÉT", .caseSensitive = false, .wholeWord = true}).totalMatchCount, 0);
  EXPECT_EQ(doc.search({.query = "LOGÉ", .caseSensitive = false, .wholeWord = true}).totalMatchCount, 1);
  // With a line break the same query matches byte for byte only.
  EXPECT_EQ(doc.search({.query = "b\\nété", .caseSensitive = false, .escapes = true}).totalMatchCount, 0);
  EXPECT_EQ(doc.search({.query = "b\\nÉTÉ", .caseSensitive = false, .escapes = true}).totalMatchCount, 1);

  const SearchResult bad = doc.search(regex("a(b"));
  EXPECT_EQ(bad.compileError, "missing closing parenthesis");
  EXPECT_TRUE(bad.matches.empty());
}

// Past the cap the stored matches are the first ones in the document, the
// same on every run, whichever chunks the workers finish first.
TEST(SearchEngineTest, StoresTheFirstMatchesUpToTheCapAndCountsAll) {
  std::string text;
  std::string line;
  for (int i = 0; i < 50; ++i) line += "x ";
  for (int i = 0; i < 6000; ++i) text += line + "\n";
  const int64_t hitsTotal = 6000 * 50;
  dispatch::WorkerPool pool(4);
  SearchLimits limits;
  limits.minLinesPerChunk = 50;
  limits.windowBytes = 512;
  limits.unindexedChunkBytes = 20000;
  for (const bool completeIndex : {true, false}) {
    const SearchDoc doc(text, completeIndex);
    const std::vector<Hit> all = hits(doc.search(plain("x"), hitsTotal, limits, &pool));
    ASSERT_EQ(static_cast<int64_t>(all.size()), hitsTotal);
    for (const int64_t cap : std::vector<int64_t>{0, 1, 5000, 270000, hitsTotal, hitsTotal + 1}) {
      const SearchResult result = doc.search(plain("x"), cap, limits, &pool);
      const auto stored = static_cast<std::ptrdiff_t>(std::min(cap, hitsTotal));
      EXPECT_EQ(hits(result), std::vector<Hit>(all.begin(), all.begin() + stored)) << cap;
      EXPECT_EQ(result.totalMatchCount, hitsTotal);
      EXPECT_EQ(result.truncated, cap < hitsTotal);
    }
  }
}

TEST(SearchEngineTest, CancellationAndTimeOutReturnPartialResultsPromptly) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "some line with a hit\n";
  const SearchDoc doc(text);
  SearchLimits limits;
  limits.windowBytes = 4096;
  limits.minLinesPerChunk = 100;

  SearchCancellation cancellation;
  SearchHooks hooks;
  hooks.onProgress = [&](const SearchProgress& progress) {
    EXPECT_LE(progress.linesScanned, progress.totalLines);
    cancellation.cancel();
  };
  const SearchResult cancelled = SearchEngine(limits).search(
      kFindBarMatchCap, plain("hit"), doc.table->snapshot(), doc.index->snapshot(), cancellation, hooks);
  EXPECT_TRUE(cancelled.cancelled);
  EXPECT_FALSE(cancelled.timedOut);
  EXPECT_LT(cancelled.totalMatchCount, 20000);
  EXPECT_EQ(cancelled.totalMatchCount, static_cast<int64_t>(cancelled.matches.size()));

  limits.timeBudgetSeconds = 0;
  const SearchResult late = doc.search(regex("h.t"), kFindBarMatchCap, limits);
  EXPECT_TRUE(late.timedOut);
  EXPECT_FALSE(late.cancelled);
  EXPECT_LT(late.totalMatchCount, 20000);
  EXPECT_LT(late.elapsedSeconds, 5.0);
}

// The main queue lives as long as the application: a worker may still be
// returning from post() when the completion it posted has already run.
dispatch::ManualMainQueue& mainQueue() {
  static auto* queue = new dispatch::ManualMainQueue;
  return *queue;
}

TEST(SearchEngineTest, SearchRacingEditsKeepsItsSnapshotAndIsMarkedStale) {
  std::string text;
  for (int i = 0; i < 3000; ++i) text += "alpha beta " + std::to_string(i) + "\n";
  const SearchDoc doc(text);
  const auto before = doc.table->snapshot();
  const auto lines = doc.index->snapshot();
  const SearchResult expected = doc.search(plain("beta"));

  std::optional<SearchResult> result;
  SearchHooks hooks;
  hooks.currentVersion = [table = doc.table] { return table->version(); };
  std::atomic<bool> editing = true;
  std::thread editor([&] {
    for (int i = 0; i < 200 && editing; ++i) doc.table->insert("beta ", 0);
  });
  while (doc.table->version() == 0) std::this_thread::yield();  // edits go on while it searches
  SearchEngine().start(
      kFindBarMatchCap, plain("beta"), before, lines, [&](SearchResult r) { result = std::move(r); },
      &mainQueue(), hooks);
  while (!result) mainQueue().waitAndRun(std::chrono::milliseconds(100));
  editing = false;
  editor.join();
  EXPECT_EQ(hits(*result), hits(expected));
  EXPECT_EQ(result->snapshotVersion, 0);
  EXPECT_TRUE(result->stale);

  // After the edits, a search of the new snapshot is current.
  SearchCancellation cancellation;
  const SearchResult fresh = SearchEngine().search(kFindBarMatchCap, plain("beta"), doc.table->snapshot(),
                                                   doc.index->snapshot(), cancellation, hooks);
  EXPECT_FALSE(fresh.stale);
}

TEST(SearchEngineTest, AsynchronousStartCanBeCancelled) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += "needle in a haystack\n";
  const SearchDoc doc(text);
  SearchLimits limits;
  limits.windowBytes = 256;
  // The first progress report waits until the caller has cancelled.
  std::promise<void> cancelledByCaller;
  std::shared_future<void> cancelled = cancelledByCaller.get_future().share();
  SearchHooks hooks;
  hooks.onProgress = [cancelled](const SearchProgress&) { cancelled.wait(); };
  std::promise<SearchResult> done;
  const SearchHandle handle = SearchEngine(limits).start(
      kFindBarMatchCap, plain("needle"), doc.table->snapshot(), doc.index->snapshot(),
      [&](SearchResult r) { done.set_value(std::move(r)); }, nullptr, hooks);
  handle.cancel();
  cancelledByCaller.set_value();
  const SearchResult result = done.get_future().get();
  EXPECT_TRUE(result.cancelled);
  EXPECT_LT(result.totalMatchCount, 5000);
}

}  // namespace
}  // namespace quorin::search
