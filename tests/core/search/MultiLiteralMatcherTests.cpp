#include <gtest/gtest.h>

#include <algorithm>
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

Found scanAll(const MultiLiteralMatcher& matcher, std::string text, size_t begin = 0,
              size_t end = std::string::npos) {
  end = std::min(end, text.size());
  ScanWindow window{reinterpret_cast<uint8_t*>(text.data()), text.size(), begin, end};
  Collect collect;
  matcher.makeScanner()->scan(window, collect);
  return collect.found;
}

// The contract, spelled out slowly: leftmost start, first listed on a tie,
// no overlap; starts in [begin, end), matches free to run past end.
Found reference(std::string text, std::vector<std::string> literals, bool fold, bool wholeWord,
                size_t begin = 0, size_t end = std::string::npos) {
  if (fold) {
    text = asciiLower(text);
    for (auto& literal : literals) literal = asciiLower(literal);
  }
  Found found;
  for (size_t at = begin; at < std::min(end, text.size());) {
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

std::string randomText(std::mt19937& random, size_t size, const std::string& alphabet) {
  std::string text(size, ' ');
  for (char& c : text) c = alphabet[random() % alphabet.size()];
  return text;
}

// Literal sets of the shapes that take different paths: bytes of one or two
// (one-byte buckets), literals inside and overlapping one another, a long
// shared prefix (few buckets, long verification), and varied long ones (the
// shift table once there are many).
std::vector<std::string> randomSet(std::mt19937& random, size_t count, int shape) {
  std::vector<std::string> set;
  const std::string alnum = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";
  while (set.size() < count) {
    switch (shape) {
      case 0: set.push_back(randomText(random, 1 + random() % 2, "abAB_-\xc3")); break;
      case 1: {
        const std::string base = randomText(random, 1 + random() % 6, "abAB_-");
        const size_t from = random() % base.size();
        set.push_back(base);
        set.push_back(base.substr(from, 1 + random() % (base.size() - from)));
        break;
      }
      case 2: set.push_back("user" + std::to_string(random() % 100'000) + (random() % 2 ? "@h" : "")); break;
      default: set.push_back(randomText(random, 4 + random() % 9, alnum)); break;
    }
  }
  set.resize(count);
  return set;
}

TEST(MultiLiteralMatcher, AgreesWithTheReferenceOverSetsOfEverySize) {
  std::mt19937 random(4242);
  for (const size_t count : {1, 3, 70, 10'000}) {
    for (int round = 0; round < (count > 100 ? 8 : 100); ++round) {
      const int shape = round % 4;
      const std::vector<std::string> literals = randomSet(random, count, shape);
      const bool fold = random() % 2, wholeWord = random() % 3 == 0;
      const MultiLiteralMatcher matcher(literals, fold, wholeWord);
      for (int t = 0; t < 4; ++t) {
        const std::string alphabet = shape == 3   ? "abcdeABCDE01 _\n"
                                     : shape == 2 ? "user0123456789@h \n"
                                                  : "abAB_- \n\xc3";
        std::string text = randomText(random, random() % 300, alphabet);
        // Plant literals here and there, one right at each end of the text.
        for (int k = 0; k < 6; ++k) {
          const std::string& literal = literals[random() % literals.size()];
          text.insert(k == 0 ? 0 : random() % (text.size() + 1), literal);
        }
        text += literals[random() % literals.size()];
        const size_t end = random() % 4 == 0 ? random() % (text.size() + 1) : text.size();
        const size_t begin = random() % 4 == 0 ? random() % (end + 1) : 0;
        ASSERT_EQ(scanAll(matcher, text, begin, end), reference(text, literals, fold, wholeWord, begin, end))
            << count << " literals, shape " << shape << ", round " << round << ", text \"" << text << "\"";
      }
    }
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
