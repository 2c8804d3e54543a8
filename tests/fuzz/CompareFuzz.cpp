// The compare engine over arbitrary line lists. The diff must turn the left
// side into the right one, be a shortest script when not capped (checked
// against a plain LCS table), and the side-by-side alignment must show every
// line of each side exactly once, in order, unchanged rows pairing equal lines.
// Line keys must ignore exactly what their options say.
#include <algorithm>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "compare/DiffAlignment.h"
#include "compare/LineDiff.h"
#include "compare/LineKeys.h"

using namespace quorin::compare;

namespace {

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') {
      lines.push_back(text.substr(start, i - start));
      start = i + 1;
    }
  }
  if (start < text.size()) lines.push_back(text.substr(start));
  return lines;
}

// The line as the options see it: without ignoreWhitespace no CR or LF;
// with it, no leading blanks, no trailing blanks or line breaks, and one
// space for each run of blanks.
std::string normalise(std::string_view line, LineKeyOptions options) {
  std::string out;
  std::string pending;  // blanks and line breaks that count if something follows
  for (const char raw : line) {
    char c = raw;
    if (options.ignoreCase && c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    const bool lineBreak = c == '\r' || c == '\n';
    if (!options.ignoreWhitespace) {
      if (!lineBreak) out += c;
      continue;
    }
    if (c == ' ' || c == '\t') {
      if ((!out.empty() || !pending.empty()) && (pending.empty() || pending.back() != ' ')) pending += ' ';
      continue;
    }
    pending += c;
    if (lineBreak) continue;
    out += pending;
    pending.clear();
  }
  return out;
}

uint64_t fnv(std::string_view bytes) {
  uint64_t hash = kFnvOffsetBasis;
  for (const char c : bytes) hash = (hash ^ static_cast<uint8_t>(c)) * kFnvPrime;
  return hash;
}

int64_t shortestScript(const std::vector<uint64_t>& a, const std::vector<uint64_t>& b) {
  std::vector<std::vector<int32_t>> lcs(a.size() + 1, std::vector<int32_t>(b.size() + 1, 0));
  for (size_t i = a.size(); i-- > 0;)
    for (size_t j = b.size(); j-- > 0;)
      lcs[i][j] = a[i] == b[j] ? lcs[i + 1][j + 1] + 1 : std::max(lcs[i + 1][j], lcs[i][j + 1]);
  return static_cast<int64_t>(a.size() + b.size()) - 2 * lcs[0][0];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  LineKeyOptions options;
  options.ignoreWhitespace = input.flag();
  options.ignoreCase = input.flag();
  const int budget = static_cast<int>(input.below(70));
  const size_t splitAt = input.below(65536);
  const std::string_view rest = input.rest();
  const size_t split = splitAt % (rest.size() + 1);
  const auto leftLines = splitLines(rest.substr(0, split));
  const auto rightLines = splitLines(rest.substr(split));

  // Keys: pieces build the same key as the whole line, and options act as
  // normalisation would.
  for (const auto& line : leftLines) {
    const uint64_t key = lineKey(line, options);
    FUZZ_CHECK(key == fnv(normalise(line, options)));
    LineKeyBuilder builder(options);
    for (size_t at = 0; at < line.size(); at += 3) builder.add(line.substr(at, 3));
    FUZZ_CHECK(builder.finish() == key);
  }

  const auto left = lineKeys(leftLines, options);
  const auto right = lineKeys(rightLines, options);
  const DiffResult diff = diffLines(left, right, budget);

  // Unchanged stretches pair equal keys; blocks are ascending, non-empty and
  // in range, and both sides advance through them in step.
  int64_t li = 0, ri = 0, edits = 0;
  auto skipEqual = [&](int64_t untilLeft, int64_t untilRight) {
    FUZZ_CHECK(untilLeft - li == untilRight - ri);
    for (; li < untilLeft; ++li, ++ri)
      FUZZ_CHECK(left[static_cast<size_t>(li)] == right[static_cast<size_t>(ri)]);
  };
  for (const DiffChange& change : diff.changes) {
    FUZZ_CHECK(change.leftCount >= 0 && change.rightCount >= 0 && change.leftCount + change.rightCount > 0);
    FUZZ_CHECK(change.leftStart >= li && change.rightStart >= ri);
    skipEqual(change.leftStart, change.rightStart);
    li += change.leftCount;
    ri += change.rightCount;
    edits += change.leftCount + change.rightCount;
  }
  FUZZ_CHECK(li <= static_cast<int64_t>(left.size()) && ri <= static_cast<int64_t>(right.size()));
  skipEqual(static_cast<int64_t>(left.size()), static_cast<int64_t>(right.size()));
  if (!diff.capped && left.size() * right.size() <= 40'000) FUZZ_CHECK(edits == shortestScript(left, right));

  const DiffAlignment alignment =
      alignDiff(static_cast<int64_t>(left.size()), static_cast<int64_t>(right.size()), diff.changes);
  FUZZ_CHECK(alignment.rightLines.size() == alignment.leftLines.size());
  FUZZ_CHECK(alignment.changed.size() == alignment.leftLines.size());
  int32_t nextLeft = 0, nextRight = 0;
  for (int64_t row = 0; row < alignment.rowCount(); ++row) {
    const int32_t l = alignment.leftLines[static_cast<size_t>(row)];
    const int32_t r = alignment.rightLines[static_cast<size_t>(row)];
    FUZZ_CHECK(l != kFillerRow || r != kFillerRow);
    if (l != kFillerRow) FUZZ_CHECK(l == nextLeft++);
    if (r != kFillerRow) FUZZ_CHECK(r == nextRight++);
    if (!alignment.changed[static_cast<size_t>(row)]) {
      FUZZ_CHECK(l != kFillerRow && r != kFillerRow);
      FUZZ_CHECK(left[static_cast<size_t>(l)] == right[static_cast<size_t>(r)]);
    }
  }
  FUZZ_CHECK(nextLeft == static_cast<int32_t>(left.size()) &&
             nextRight == static_cast<int32_t>(right.size()));
  FUZZ_CHECK(alignment.blocks.size() == diff.changes.size());
  int64_t rowsInBlocks = 0, previousEnd = 0;
  for (const RowRange& block : alignment.blocks) {
    FUZZ_CHECK(block.count > 0 && block.start >= previousEnd &&
               block.start + block.count <= alignment.rowCount());
    for (int64_t row = block.start; row < block.start + block.count; ++row)
      FUZZ_CHECK(alignment.changed[static_cast<size_t>(row)]);
    rowsInBlocks += block.count;
    previousEnd = block.start + block.count;
  }
  FUZZ_CHECK(rowsInBlocks ==
             static_cast<int64_t>(std::count(alignment.changed.begin(), alignment.changed.end(), true)));
  return 0;
}
