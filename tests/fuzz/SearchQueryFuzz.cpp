// Query preparation over anything typed. Escape expansion is checked
// against a plain reading of the escapes; a regular expression read as an
// alternation of literals must match exactly where PCRE2 matches the
// pattern itself (leftmost, first alternative on a tie, no overlap), since
// the search then skips the regex engine.
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cctype>
#include <string>
#include <utility>
#include <vector>

#include "FuzzSupport.h"
#include "search/QueryText.h"

using namespace quorin::search;

namespace {

void appendScalar(std::string& out, uint32_t scalar) {
  if (scalar < 0x80) {
    out += static_cast<char>(scalar);
  } else if (scalar < 0x800) {
    out += {static_cast<char>(0xC0 | (scalar >> 6)), static_cast<char>(0x80 | (scalar & 0x3F))};
  } else if (scalar < 0x10000) {
    out += {static_cast<char>(0xE0 | (scalar >> 12)), static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)),
            static_cast<char>(0x80 | (scalar & 0x3F))};
  } else {
    out += {static_cast<char>(0xF0 | (scalar >> 18)), static_cast<char>(0x80 | ((scalar >> 12) & 0x3F)),
            static_cast<char>(0x80 | ((scalar >> 6) & 0x3F)), static_cast<char>(0x80 | (scalar & 0x3F))};
  }
}

std::string plainExpand(std::string_view q) {
  std::string out;
  for (size_t i = 0; i < q.size(); ++i) {
    if (q[i] != '\\' || i + 1 == q.size()) {
      out += q[i];
      continue;
    }
    const char kind = q[i + 1];
    const std::pair<char, char> simple[] = {{'0', '\0'}, {'\\', '\\'}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}};
    bool done = false;
    for (const auto& [name, value] : simple) {
      if (kind == name) {
        out += value;
        ++i;
        done = true;
      }
    }
    if (done) continue;
    const size_t digits = kind == 'x' ? 2 : kind == 'u' ? 4 : 0;
    if (digits > 0 && i + 2 + digits <= q.size()) {
      const std::string_view hex = q.substr(i + 2, digits);
      bool allHex = true;
      for (const char c : hex) allHex &= std::isxdigit(static_cast<unsigned char>(c)) != 0;
      if (allHex) {
        const auto scalar = static_cast<uint32_t>(std::stoul(std::string(hex), nullptr, 16));
        if (scalar < 0xD800 || scalar > 0xDFFF) {
          appendScalar(out, scalar);
          i += 1 + digits;
          continue;
        }
      }
    }
    out += '\\';  // the character after it is copied by the next turn
  }
  return out;
}

using Matches = std::vector<std::pair<size_t, size_t>>;

Matches literalMatches(const std::vector<std::string>& literals, std::string_view subject) {
  Matches out;
  for (size_t at = 0; at < subject.size();) {
    bool found = false;
    for (const std::string& literal : literals) {
      if (subject.substr(at).starts_with(literal)) {
        out.emplace_back(at, literal.size());
        at += literal.size();
        found = true;
        break;
      }
    }
    if (!found) ++at;
  }
  return out;
}

Matches pcreMatches(std::string_view pattern, std::string_view subject) {
  int error = 0;
  PCRE2_SIZE offset = 0;
  pcre2_code* code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern.data()), pattern.size(), 0, &error,
                                   &offset, nullptr);
  FUZZ_CHECK(code != nullptr);  // a pattern of literals always compiles
  pcre2_match_data* match = pcre2_match_data_create_from_pattern(code, nullptr);
  Matches out;
  for (size_t at = 0; at <= subject.size();) {
    const int rc = pcre2_match(code, reinterpret_cast<PCRE2_SPTR>(subject.data()), subject.size(), at, 0,
                               match, nullptr);
    if (rc < 0) break;
    const PCRE2_SIZE* ovector = pcre2_get_ovector_pointer(match);
    FUZZ_CHECK(ovector[1] > ovector[0]);  // no alternative is empty
    out.emplace_back(ovector[0], ovector[1] - ovector[0]);
    at = ovector[1];
  }
  pcre2_match_data_free(match);
  pcre2_code_free(code);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  quorin::fuzz::InputReader input(data, size);
  const std::string_view query = input.chunk(256);
  const std::string_view subject = input.rest();

  const std::string expanded = expandEscapes(query);
  FUZZ_CHECK(expanded == plainExpand(query));
  FUZZ_CHECK(expanded.size() <= query.size());

  if (const auto literals = literalAlternatives(query)) {
    FUZZ_CHECK(!literals->empty());
    for (const std::string& literal : *literals) FUZZ_CHECK(!literal.empty());
    FUZZ_CHECK(literalMatches(*literals, subject) == pcreMatches(query, subject));
  }
  return 0;
}
