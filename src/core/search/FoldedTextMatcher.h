#pragma once

#include <string>
#include <string_view>

#include "search/ByteSearch.h"
#include "search/Matcher.h"

namespace quorin::search {

// Case-insensitive search for a query with non-ASCII letters ("straße",
// "ÉTÉ"). Each window is decoded (bytes that are not valid UTF-8 read as
// U+FFFD), folded character by character with Unicode simple case folding,
// and searched for the folded query; positions map back to the document's
// bytes. wholeWord rejects a match with a letter or a number right before or
// after it. Simple folding keeps one character per character, so "ß" does
// not match "ss".
class FoldedTextMatcher final : public Matcher {
 public:
  FoldedTextMatcher(std::string_view query, bool wholeWord);

  std::unique_ptr<WindowScanner> makeScanner() const override;
  size_t contextBefore() const override { return 4; }
  size_t overlapAfter() const override { return overlap_; }

  const ByteFinder& finder() const { return finder_; }
  bool wholeWord() const { return wholeWord_; }

 private:
  ByteFinder finder_;
  bool wholeWord_;
  size_t overlap_;
};

// Simple case folding of UTF-8 text (invalid bytes become U+FFFD).
std::string foldCase(std::string_view text);

}  // namespace quorin::search
