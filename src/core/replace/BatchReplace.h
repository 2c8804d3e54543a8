#pragma once

#include <cstdint>
#include <expected>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "replace/BatchPair.h"
#include "replace/CapturingRegex.h"
#include "replace/ReplaceTypes.h"
#include "replace/ReplacementTemplate.h"
#include "search/Matcher.h"

namespace quorin::replace {

class SiteCollector;

// A batch of pairs checked and compiled, ready to run over any number of
// windows. Compiling refuses the whole batch, naming the pair, for an empty
// find, a find holding a line break (matches are line by line), an invalid
// regex (PCRE2's message) or a template the regex cannot fill.
//
// Simultaneous runs scan with one many-literal matcher per set of literal
// options (its literals longest first, so its leftmost-first rule becomes
// leftmost-longest), one matcher per regex pair and per non-ASCII
// case-insensitive literal, and merge their streams: at each position the
// leftmost match wins, then the longest, then the pair listed first.
// Immutable after compile; share it across threads.
class Batch {
 public:
  static std::expected<Batch, ReplaceError> compile(const std::vector<BatchPair>& pairs, BatchMode mode);

  BatchMode mode() const { return mode_; }
  size_t pairCount() const { return pairs_.size(); }

  // One pair as it runs: escapes expanded, its matcher, its replacement.
  struct Pair {
    std::string find;
    bool regex = false;
    bool caseSensitive = true;
    std::shared_ptr<const search::Matcher> matcher;  // this pair alone
    std::optional<CapturingRegex> captures;          // regex pairs
    ReplacementTemplate replacement = ReplacementTemplate::literal("");
  };
  // Matchers of the simultaneous scan. A literal stream covers many pairs and
  // finds its pair by the matched text (ASCII-lowered when caseless).
  struct Stream {
    std::shared_ptr<const search::Matcher> matcher;
    int pair = -1;  // a single pair's stream
    bool literals = false;
    bool caseless = false;  // its scanner folds the window in place
    std::unordered_map<std::string, int> pairOf;
  };
  const std::vector<Pair>& pairs() const { return pairs_; }
  const std::vector<Stream>& streams() const { return streams_; }

 private:
  BatchMode mode_ = BatchMode::simultaneous;
  std::vector<Pair> pairs_;
  std::vector<Stream> streams_;
};

// Text handed to a batch: whole lines (or a piece of a line longer than the
// window), with the byte before them as context when there is one.
struct BatchWindow {
  std::string data;
  size_t begin = 0;  // data[begin] is the document byte docStart
  int64_t docStart = 0;
  uint8_t terminator = '\n';
  bool startsDocument = false;
  bool endsDocument = false;
};

// Runs a batch window by window on one thread (scanners and group readers
// are per thread). Counts go to `perPair`.
class BatchRunner {
 public:
  explicit BatchRunner(const Batch& batch);
  ~BatchRunner();
  BatchRunner(const BatchRunner&) = delete;
  BatchRunner& operator=(const BatchRunner&) = delete;

  // Adds the window's replacement sites (document offsets) to `sites`.
  void run(const BatchWindow& window, SiteCollector& sites, std::vector<int64_t>& perPair);

  // The window's text after the batch (its lines, without the context byte).
  std::string transform(const BatchWindow& window, std::vector<int64_t>& perPair);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace quorin::replace
