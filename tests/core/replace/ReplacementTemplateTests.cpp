#include <gtest/gtest.h>
#include <unicode/uchar.h>

#include <random>
#include <string>
#include <vector>

#include "replace/CapturingRegex.h"
#include "replace/ReplacePlanner.h"
#include "replace/ReplacementTemplate.h"
#include "text/Utf8.h"

namespace quorin::replace {
namespace {

PatternGroups groupsOf(const std::string& pattern) {
  return CapturingRegex::compile(pattern, true)->groups();
}

std::string errorOf(std::string_view text, const std::string& pattern) {
  const auto parsed = ReplacementTemplate::parse(text, groupsOf(pattern));
  return parsed ? std::string("(parsed)") : parsed.error().describe();
}

// The replacement of the first match of `pattern` in `subject`.
std::string replaced(const std::string& pattern, std::string_view tmpl, const std::string& subject) {
  const auto prepared = prepareReplacement({.query = pattern, .regex = true}, tmpl);
  if (!prepared) return "(error) " + prepared.error().describe();
  std::vector<std::string_view> groups;
  GroupReader reader(*prepared->captures);
  for (size_t at = 0; at <= subject.size(); ++at) {
    for (size_t length = subject.size() - at + 1; length-- > 0;) {
      if (reader.read(subject, at, length, false, false, groups)) {
        return replacementForMatch(*prepared, subject, at, length);
      }
    }
  }
  return "(no match)";
}

TEST(ReplacementTemplate, RefusesReferencesAndEscapesThePatternCannotFill) {
  EXPECT_EQ(errorOf("$3", "(a)(b)"), "Group 3 does not exist: the pattern has 2 groups");
  EXPECT_EQ(errorOf("${2}", "(a)"), "Group 2 does not exist: the pattern has 1 group");
  EXPECT_EQ(errorOf("x$1", "abc"), "Group 1 does not exist: the pattern has no groups");
  EXPECT_EQ(errorOf("$10", "(a)(b)"), "Group 10 does not exist: the pattern has 2 groups");
  EXPECT_EQ(errorOf("${year}", "(?<month>\\d+)"),
            "Group \"year\" does not exist: the pattern has no group of that name");
  EXPECT_EQ(errorOf("é\\q", "a"), "An unknown escape \\q at column 2");
  EXPECT_EQ(errorOf("ab\\1", "(a)"), "An unknown escape \\1 (groups are written $1) at column 3");
  EXPECT_EQ(errorOf("abc\\", "a"), "A lone backslash ends the template at column 4");
  EXPECT_EQ(errorOf("a${1", "(a)"), "An unclosed ${ at column 2");
  EXPECT_EQ(errorOf("${1a}", "(a)"), "A bad group \"1a\" at column 1");
  EXPECT_EQ(errorOf("${-}", "(a)"), "A bad group name \"-\" at column 1");
  EXPECT_EQ(errorOf("\\xZ1", "a"), "A bad \\x (two hex digits, or \\x{…}) at column 1");
  EXPECT_EQ(errorOf("\\x{D800}", "a"),
            "A bad \\x{…} (one to six hex digits of a Unicode character) at column 1");
  EXPECT_EQ(errorOf("$0$&${0}$$ $x", "a"), "(parsed)");
}

TEST(ReplacementTemplate, ExpandsGroupsDollarsAndEscapes) {
  EXPECT_EQ(replaced("(\\w+)@(\\w+)", "$2 at $1 ($0|$&)", "mail bob@example now"),
            "example at bob (bob@example|bob@example)");
  EXPECT_EQ(replaced("(?<y>\\d{4})-(?<m>\\d\\d)", "${m}/${y} ${1}0", "on 2024-05"), "05/2024 20240");
  // Two digits at most after a bare $: $123 is group 12, then "3".
  EXPECT_EQ(replaced("(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)(k)(l)", "$123", "abcdefghijkl"), "l3");
  EXPECT_EQ(replaced("(x)?y", "[$1]$$5 $ \\t\\n\\\\\\x41\\x{1F600}\\xE9", "y"), "[]$5 $ \t\n\\A😀é");
  // A literal query's replacement is constant text, whatever it looks like.
  const auto literal = prepareReplacement({.query = "a"}, "$1\\U$$");
  ASSERT_TRUE(literal);
  EXPECT_EQ(replacementForMatch(*literal, "a", 0, 1), "$1\\U$$");
}

TEST(ReplacementTemplate, ChangesCaseWithUnicodeMappings) {
  EXPECT_EQ(replaced("(\\w+) (\\w+)", "\\U$1\\E $2", "straße ok"), "STRASSE ok");
  EXPECT_EQ(replaced("(\\w+)", "\\L$1", "ΟΔΟΣ"),
            "\u03bf\u03b4\u03bf\u03c2");  // a final sigma where a word ends
  EXPECT_EQ(replaced("(\\w+)", "\\u\\L$1", "éCOLE"), "École");
  EXPECT_EQ(replaced("(\\w+)", "\\L\\u$1", "éCOLE"), "École");
  EXPECT_EQ(replaced("(\\w+)(x)?", "\\l$2$1", "ŽUPA"), "žUPA");  // the empty group passes \l on
  EXPECT_EQ(replaced("(\\w+)", "\\Ua$1\\Eb", "дом"), "AДОМb");
  // Bytes that are not UTF-8 stay as they were inside a case change.
  EXPECT_EQ(replaced("a(.)(.)b", "\\U$1$2",
                     "xa\xFF\xC3\xA9"
                     "b"),
            "\xFF\xC3\x89");
}

// ---- The reference: a template written as tokens whose meaning is known, expanded character by character.

struct Token {
  enum Kind { text, groupRef, upper, lower, end, nextUpper, nextLower } kind;
  std::string value;     // text (as written in the template), or a group's spelling
  std::string produces;  // text: the bytes it stands for
  int group = 0;
};

// Characters whose full and simple case mappings agree, so a per-character expander is a fair reference.
const std::vector<std::string> kAlphabet = {"a", "b", "Z", "é", "É", "ж", "Ж", "ü", "Ü", "1", " ", "-"};

std::string referenceExpand(const std::vector<Token>& tokens, const std::vector<std::string>& groups) {
  std::string out;
  int mode = 0, next = 0;  // 0 none, 1 upper, 2 lower
  auto put = [&](const std::string& bytes) {
    const std::span<const uint8_t> data(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    for (size_t i = 0; i < data.size();) {
      const auto step = text::readUtf8(data, i);
      auto c = static_cast<UChar32>(step.codePoint);
      if (next != 0) {
        c = next == 1 ? u_totitle(c) : u_tolower(c);
        next = 0;
      } else if (mode != 0) {
        c = mode == 1 ? u_toupper(c) : u_tolower(c);
      }
      appendUtf8(static_cast<char32_t>(c), out);
      i += step.length;
    }
  };
  for (const Token& t : tokens) {
    switch (t.kind) {
      case Token::text: put(t.produces); break;
      case Token::groupRef: put(groups[static_cast<size_t>(t.group)]); break;
      case Token::upper: mode = 1; break;
      case Token::lower: mode = 2; break;
      case Token::end: mode = 0; break;
      case Token::nextUpper: next = 1; break;
      case Token::nextLower: next = 2; break;
    }
  }
  return out;
}

TEST(ReplacementTemplate, MatchesAReferenceExpanderOnRandomPatternsAndSubjects) {
  std::mt19937 rng(20261123);
  auto pick = [&](size_t n) { return static_cast<size_t>(rng() % n); };
  for (int round = 0; round < 300; ++round) {
    // A pattern of 1…4 groups (some named, some optional) between literal characters.
    const int groupCount = 1 + static_cast<int>(pick(4));
    std::string pattern;
    std::vector<std::string> names(static_cast<size_t>(groupCount) + 1);
    std::string subject;
    for (int g = 1; g <= groupCount; ++g) {
      if (pick(4) == 0) {
        pattern += "(q)?";
        if (pick(2) == 0) subject += "q";
      } else {
        if (pick(3) == 0) names[static_cast<size_t>(g)] = "n" + std::to_string(g);
        const std::string& name = names[static_cast<size_t>(g)];
        pattern += name.empty() ? "([^-]+?)" : "(?<" + name + ">[^-]+?)";
        // Every character but "-", the separator.
        for (size_t n = 1 + pick(5); n > 0; --n) subject += kAlphabet[pick(kAlphabet.size() - 1)];
      }
      pattern += "-";
      subject += "-";
    }

    std::vector<Token> tokens;
    std::string tmpl;
    for (size_t n = pick(8); n > 0; --n) {
      const size_t kind = pick(9);
      if (kind < 3) {
        const std::string c = kAlphabet[pick(kAlphabet.size())];
        const bool escaped = pick(4) == 0;
        tokens.push_back({Token::text, escaped ? "\\t" : c, escaped ? "\t" : c});
      } else if (kind < 6) {
        const int g = static_cast<int>(pick(static_cast<size_t>(groupCount) + 1));
        const bool named = !names[static_cast<size_t>(g)].empty() && pick(2) == 0;
        const std::string spelled =
            named ? "${" + names[static_cast<size_t>(g)] + "}" : "${" + std::to_string(g) + "}";
        tokens.push_back({Token::groupRef, spelled, {}, g});
      } else {
        static const char* kCase[] = {"\\U", "\\L", "\\E", "\\u", "\\l"};
        const size_t c = pick(5);
        tokens.push_back({static_cast<Token::Kind>(Token::upper + c), kCase[c], {}});
      }
      tmpl += tokens.back().value;
    }

    const auto prepared = prepareReplacement({.query = pattern, .regex = true}, tmpl);
    ASSERT_TRUE(prepared) << pattern << " " << tmpl;
    std::vector<std::string_view> views;
    GroupReader reader(*prepared->captures);
    ASSERT_TRUE(reader.read(subject, 0, subject.size(), false, false, views)) << pattern << " on " << subject;
    const std::vector<std::string> groups(views.begin(), views.end());
    EXPECT_EQ(replacementForMatch(*prepared, subject, 0, subject.size()), referenceExpand(tokens, groups))
        << "pattern " << pattern << " template " << tmpl << " subject " << subject;
  }
}

}  // namespace
}  // namespace quorin::replace
