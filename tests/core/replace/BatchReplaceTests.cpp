#define PCRE2_CODE_UNIT_WIDTH 8
#include <gtest/gtest.h>
#include <pcre2.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "ReplaceTestSupport.h"
#include "search/ByteSearch.h"

namespace quorin::replace {
namespace {

BatchPair literal(std::string find, std::string replace) { return {.find = find, .replace = replace}; }
BatchPair regex(std::string find, std::string replace) {
  return {.find = find, .replace = replace, .regex = true};
}

std::string run(const std::string& text, const std::vector<BatchPair>& pairs, BatchMode mode,
                std::vector<int64_t>* counts = nullptr, const PlanLimits& limits = {}) {
  ReplaceDoc d(text);
  const ReplacePlan plan = d.batch(pairs, mode, limits);
  if (plan.error) return "(error) " + plan.error->describe();
  if (counts) *counts = plan.perPair;
  EXPECT_TRUE(d.apply(plan));
  return d.text();
}

TEST(BatchReplace, SimultaneousSwapsWhatSequentialMerges) {
  const std::vector<BatchPair> swap = {literal("cat", "dog"), literal("dog", "cat")};
  std::vector<int64_t> counts;
  EXPECT_EQ(run("cat dog\ndog cat cat\n", swap, BatchMode::simultaneous, &counts), "dog cat\ncat dog dog\n");
  EXPECT_EQ(counts, (std::vector<int64_t>{3, 2}));
  EXPECT_EQ(run("cat dog\ndog cat cat\n", swap, BatchMode::sequential, &counts), "cat cat\ncat cat cat\n");
  EXPECT_EQ(counts, (std::vector<int64_t>{3, 5}));
  // A regex swap with groups, and pairs of different kinds and options in one pass.
  EXPECT_EQ(
      run("Key=Value\nA=B", {regex("(\\w+)=(\\w+)", "$2=\\L$1"), literal("=", ":")}, BatchMode::simultaneous),
      "Value=key\nB=a");
}

TEST(BatchReplace, LeftmostThenLongestThenFirstListed) {
  // One literal stream: the longest at the leftmost position, duplicates to the first listed.
  EXPECT_EQ(
      run("abcd abx\n", {literal("ab", "1"), literal("abc", "2"), literal("bcd", "3"), literal("abc", "4")},
          BatchMode::simultaneous),
      "2d 1x\n");
  // Across streams (case-sensitive literal, regex, caseless literal): the chosen match overlaps
  // the others' next matches, which are found again after it.
  BatchPair caseless = literal("DE", "<de>");
  caseless.caseSensitive = false;
  EXPECT_EQ(run("abcdef\n", {literal("abc", "<abc>"), regex("bcdef", "<bcdef>"), caseless},
                BatchMode::simultaneous),
            "<abc><de>f\n");
  EXPECT_EQ(run("xbcdef\n", {literal("abc", "<abc>"), regex("bcdef", "<bcdef>"), caseless},
                BatchMode::simultaneous),
            "x<bcdef>\n");
  // An empty match loses to a longer one at its place; a pass never reads its own output.
  EXPECT_EQ(run("ab\ncd\n", {regex("^", "> "), literal("a", "aa")}, BatchMode::simultaneous), "aab\n> cd\n");
  EXPECT_EQ(run("aaa\n", {literal("a", "aa")}, BatchMode::sequential), "aaaaaa\n");
}

TEST(BatchReplace, RefusesTheWholeBatchNamingThePair) {
  EXPECT_EQ(run("x", {literal("a", "b"), literal("", "c")}, BatchMode::simultaneous),
            "(error) Pair 2: the find text is empty");
  EXPECT_EQ(run("x", {regex("a(", "b")}, BatchMode::sequential),
            "(error) Pair 1: Invalid regex: missing closing parenthesis");
  EXPECT_EQ(run("x", {literal("a", "b"), regex("(a)", "$2")}, BatchMode::simultaneous),
            "(error) Pair 2: Group 2 does not exist: the pattern has 1 group");
  BatchPair lineBreak = literal("a\\nb", "c");
  lineBreak.escapes = true;
  EXPECT_EQ(run("x", {lineBreak}, BatchMode::simultaneous),
            "(error) Pair 1: a find cannot hold a line break in a batch");
}

// ---- Random batches against a slow reference.

// The length of pair's match anchored at `at` of `line`, or -1.
int matchAt(const BatchPair& pair, const std::string& line, size_t at) {
  if (!pair.regex) {
    if (at + pair.find.size() > line.size()) return -1;
    for (size_t i = 0; i < pair.find.size(); ++i) {
      const char a = line[at + i], b = pair.find[i];
      if (a != b && (pair.caseSensitive ||
                     search::asciiLower(std::string(1, a)) != search::asciiLower(std::string(1, b))))
        return -1;
    }
    if (pair.wholeWord) {
      const size_t end = at + pair.find.size();
      if ((at > 0 && search::isWordByte(static_cast<uint8_t>(line[at - 1]))) ||
          (end < line.size() && search::isWordByte(static_cast<uint8_t>(line[end]))))
        return -1;
    }
    return static_cast<int>(pair.find.size());
  }
  int code = 0;
  PCRE2_SIZE offset = 0;
  const std::unique_ptr<pcre2_code, decltype(&pcre2_code_free)> re(
      pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pair.find.data()), pair.find.size(),
                    PCRE2_UTF | PCRE2_UCP | (pair.caseSensitive ? 0 : PCRE2_CASELESS), &code, &offset,
                    nullptr),
      pcre2_code_free);
  const std::unique_ptr<pcre2_match_data, decltype(&pcre2_match_data_free)> data(
      pcre2_match_data_create_from_pattern(re.get(), nullptr), pcre2_match_data_free);
  if (pcre2_match(re.get(), reinterpret_cast<PCRE2_SPTR>(line.data()), line.size(), at, PCRE2_ANCHORED,
                  data.get(), nullptr) < 0)
    return -1;
  const PCRE2_SIZE* v = pcre2_get_ovector_pointer(data.get());
  return static_cast<int>(v[1] - v[0]);
}

// The random regex pairs' replacements are constant, so the reference needs no templates.
std::string referenceBatch(const std::string& text, const std::vector<BatchPair>& pairs, BatchMode mode,
                           std::vector<int64_t>& counts) {
  counts.assign(pairs.size(), 0);
  std::vector<std::string> lines;
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  auto pass = [&](const std::string& line, size_t from, size_t to) {
    std::string out;
    for (size_t at = 0; at < line.size();) {
      int best = -1, length = 0;
      for (size_t p = from; p < to; ++p) {
        const int n = matchAt(pairs[p], line, at);
        if (n > length) best = static_cast<int>(p), length = n;
      }
      if (best < 0) {
        out += line[at++];
        continue;
      }
      out += pairs[static_cast<size_t>(best)].replace;
      ++counts[static_cast<size_t>(best)];
      at += static_cast<size_t>(length);
    }
    return out;
  };
  std::string out;
  for (size_t i = 0; i < lines.size(); ++i) {
    std::string line = lines[i];
    if (mode == BatchMode::simultaneous) {
      line = pass(line, 0, pairs.size());
    } else {
      for (size_t p = 0; p < pairs.size(); ++p) line = pass(line, p, p + 1);
    }
    out += line;
    if (i + 1 < lines.size()) out += '\n';
  }
  return out;
}

TEST(BatchReplace, RandomBatchesMatchASlowReference) {
  std::mt19937 rng(7);
  auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
  const std::string alphabet = "abcAB _";
  const std::vector<std::string> regexes = {"a+b", "[bc]a", "c.?a", "B[ab]*", "(?i)ab"};
  const std::vector<std::string> replacements = {"", "x", "YY", "a", "_b"};
  for (int round = 0; round < 120; ++round) {
    std::vector<BatchPair> pairs;
    for (size_t n = 1 + pick(6); n > 0; --n) {
      BatchPair pair;
      if (pick(4) == 0) {
        pair.regex = true;
        pair.find = regexes[pick(regexes.size())];
      } else {
        for (size_t k = 1 + pick(3); k > 0; --k) pair.find += alphabet[pick(alphabet.size())];
        pair.wholeWord = pick(5) == 0;
      }
      pair.caseSensitive = pick(3) != 0;
      pair.replace = replacements[pick(replacements.size())];
      pairs.push_back(pair);
    }
    std::string text;
    for (size_t lines = pick(8); lines > 0; --lines) {
      for (size_t k = pick(14); k > 0; --k) text += alphabet[pick(alphabet.size())];
      if (lines > 1 || pick(2) == 0) text += '\n';
    }
    for (const BatchMode mode : {BatchMode::simultaneous, BatchMode::sequential}) {
      std::vector<int64_t> expectedCounts, counts;
      const std::string expected = referenceBatch(text, pairs, mode, expectedCounts);
      // Windows of a few bytes: many windows, lines longer than a window.
      EXPECT_EQ(run(text, pairs, mode, &counts, {.windowBytes = 6}), expected)
          << "round " << round << " mode " << static_cast<int>(mode);
      EXPECT_EQ(counts, expectedCounts) << "round " << round;
    }
  }
}

}  // namespace
}  // namespace quorin::replace
