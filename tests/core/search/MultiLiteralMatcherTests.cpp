#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "search/ByteSearch.h"
#include "search/MultiLiteralMatcher.h"

namespace quorin::search {
namespace {

using Found = std::vector<std::pair<size_t, size_t>>;  // (start, length)

struct Collect final : MatchCollector {
  Found found;
  bool add(size_t start, size_t length) override {
    found.emplace_back(start, length);
    return true;
  }
  bool keepGoing() override { return true; }
};

Found scanAll(const MultiLiteralMatcher& matcher, std::string text) {
  ScanWindow window{reinterpret_cast<uint8_t*>(text.data()), text.size(), 0, text.size()};
  Collect collect;
  matcher.makeScanner()->scan(window, collect);
  return collect.found;
}

// The contract, spelled out slowly: leftmost start, first listed on a tie,
// no overlap.
Found reference(std::string text, std::vector<std::string> literals, bool fold, bool wholeWord) {
  if (fold) {
    text = asciiLower(text);
    for (auto& literal : literals) literal = asciiLower(literal);
  }
  Found found;
  for (size_t at = 0; at < text.size();) {
    size_t length = 0;
    for (const auto& literal : literals) {
      if (literal.empty() || text.compare(at, literal.size(), literal) != 0) continue;
      const bool bounded = (at == 0 || !isWordByte(static_cast<uint8_t>(text[at - 1]))) &&
                           (at + literal.size() >= text.size() ||
                            !isWordByte(static_cast<uint8_t>(text[at + literal.size()])));
      if (wholeWord && !bounded) continue;
      length = literal.size();
      break;
    }
    if (length == 0) {
      ++at;
    } else {
      found.emplace_back(at, length);
      at += length;
    }
  }
  return found;
}

TEST(MultiLiteralMatcher, AgreesWithTheReferenceOnRandomTextsAndSets) {
  std::mt19937 random(20261123);
  const std::string alphabet = "abAB _\n";
  for (int round = 0; round < 2000; ++round) {
    std::string text(random() % 200, ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    std::vector<std::string> literals(1 + random() % (round % 10 == 0 ? 300 : 6));
    for (auto& literal : literals) {
      literal.resize(random() % 6);  // empty ones are dropped
      for (char& c : literal) c = alphabet[random() % 4];
    }
    const bool fold = random() % 2, wholeWord = random() % 3 == 0;
    const MultiLiteralMatcher matcher(literals, fold, wholeWord);
    ASSERT_EQ(scanAll(matcher, text), reference(text, literals, fold, wholeWord))
        << "round " << round << " text \"" << text << "\"";
  }
}

TEST(MultiLiteralMatcher, TenThousandLiteralsFindTheirOwn) {
  std::vector<std::string> literals;
  std::string text;
  for (int i = 0; i < 10'000; ++i) {
    literals.push_back("user" + std::to_string(i * 7919) + "@host");
    if (i % 1000 == 0) text += "login " + literals.back() + " ok\n";
  }
  text += "login user12@host ok\n";  // not in the set
  const MultiLiteralMatcher matcher(literals, false, true);
  const Found found = scanAll(matcher, text);
  ASSERT_EQ(found.size(), 10u);
  EXPECT_EQ(text.substr(found[3].first, found[3].second), literals[3000]);
}

}  // namespace
}  // namespace quorin::search
