#include "search/RegexLiteral.h"

#include <algorithm>
#include <cstdint>

namespace quorin::search {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
bool isAlnum(char c) { return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Option letters that leave literals meaning themselves ("x" does not: it
// makes spaces and "#" comments syntax).
bool isHarmlessOption(char c) {
  return c == 'i' || c == 'm' || c == 'n' || c == 's' || c == 'U' || c == 'J' || c == '-' || c == '^';
}

// Escapes of one letter that match a class, a position or a control
// character: never part of a run, and they take no argument.
bool isPlainLetterEscape(char c) {
  for (const char e : std::string_view("dDwWsSbBhHvVRXAzZGKntrfea"))
    if (c == e) return true;
  return false;
}

size_t utf8Length(uint8_t lead) { return lead < 0xC0 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4; }

class Reader {
 public:
  Reader(std::string_view pattern, bool caseSensitive) : p_(pattern), caseless_(!caseSensitive) {}

  std::optional<InnerLiteral> read() {
    leadingOptions();
    while (ok_ && i_ < p_.size()) step();
    endRun();
    if (!ok_ || best_.empty()) return std::nullopt;
    return InnerLiteral{best_, caseless_};
  }

 private:
  bool at(size_t offset, std::string_view text) const { return p_.substr(i_ + offset, text.size()) == text; }
  char peek(size_t offset = 0) const { return i_ + offset < p_.size() ? p_[i_ + offset] : '\0'; }
  void fail() { ok_ = false; }

  // Settings such as (?i) before anything else apply to the whole pattern.
  void leadingOptions() {
    while (at(0, "(?")) {
      size_t j = i_ + 2;
      bool on = true, ignoreCase = caseless_;
      for (; j < p_.size() && p_[j] != ')'; ++j) {
        if (!isHarmlessOption(p_[j])) return;  // a group, or an option read elsewhere
        if (p_[j] == '-') on = false;
        if (p_[j] == '^') ignoreCase = false;
        if (p_[j] == 'i') ignoreCase = on;
      }
      if (j == p_.size()) return;
      caseless_ = ignoreCase;
      i_ = j + 1;
    }
  }

  void step() {
    const char c = p_[i_];
    switch (c) {
      case '|':
      case ')': return fail();
      case '(':
        if (at(0, "(?#")) return skipComment();
        skipGroup();
        return other();
      case '[': skipClass(); return other();
      case '\\': return escape();
      case '*':
      case '+':
      case '?': ++i_; return quantified();
      case '{':
        if (braceQuantifier()) return quantified();
        ++i_;
        return other();
      case '.':
      case '^':
      case '$': ++i_; return other();
      default: return character();
    }
  }

  // A plain character (a whole UTF-8 sequence) at i_.
  void character() {
    const auto lead = static_cast<uint8_t>(p_[i_]);
    const size_t length = std::min(utf8Length(lead), p_.size() - i_);
    const char lower = (lead >= 'A' && lead <= 'Z') ? static_cast<char>(lead + 32) : static_cast<char>(lead);
    const bool control = lead < 0x20 || lead == 0x7F;
    if (control || (caseless_ && (lead >= 0x80 || lower == 'k' || lower == 's'))) {
      i_ += length;
      return other();
    }
    run_.append(caseless_ ? std::string_view(&lower, 1) : p_.substr(i_, length));
    lastCharBytes_ = caseless_ ? 1 : length;
    i_ += length;
  }

  // An atom that is no plain character: the run ends before it.
  void other() {
    endRun();
    lastCharBytes_ = 0;
  }

  // The quantifier just read applies to the atom before it: a character
  // leaves the run, which ends there.
  void quantified() {
    if (peek() == '?' || peek() == '+') ++i_;  // lazy or possessive
    run_.resize(run_.size() - lastCharBytes_);
    other();
  }

  void endRun() {
    if (run_.size() > best_.size()) best_ = run_;
    run_.clear();
  }

  // {n}, {n,}, {n,m} (and {,m}, spaces allowed, as newer PCRE2 reads them):
  // consumed when it is one. Reading a literal "{" as a quantifier only
  // drops characters, which is safe.
  bool braceQuantifier() {
    size_t j = i_ + 1;
    bool digits = false;
    while (j < p_.size() && (isDigit(p_[j]) || p_[j] == ',' || p_[j] == ' ')) digits |= isDigit(p_[j++]);
    if (!digits || j == p_.size() || p_[j] != '}') return false;
    i_ = j + 1;
    return true;
  }

  void escape() {
    const char e = peek(1);
    if (e == 'Q') {  // literal up to \E
      i_ += 2;
      while (ok_ && i_ < p_.size() && !at(0, "\\E")) character();
      if (i_ < p_.size()) i_ += 2;
      return;
    }
    if (e == 'E') {  // a stray \E is ignored
      i_ += 2;
      return;
    }
    if (e != '\0' && static_cast<uint8_t>(e) < 0x80 && !isAlnum(e)) {  // "\." and the like
      ++i_;
      return character();
    }
    if (isPlainLetterEscape(e)) {
      i_ += 2;
      return other();
    }
    if (e == 'x' || e == 'p' || e == 'P') {  // \xHH, \x{H..}, \pL, \p{Name}
      i_ += 2;
      if (peek() == '{') {
        const size_t close = p_.find('}', i_);
        if (close == std::string_view::npos) return fail();
        i_ = close + 1;
      } else if (e == 'x') {
        for (int k = 0; k < 2 && isHex(peek()); ++k) ++i_;
      } else {
        ++i_;
      }
      return other();
    }
    fail();  // back-references, octal, \c, \g, \k, \N and whatever else
  }

  // (?#...): no part of the pattern, so the run goes on across it.
  void skipComment() {
    const size_t close = p_.find(')', i_);
    if (close == std::string_view::npos) return fail();
    i_ = close + 1;
  }

  // Past the group opening at i_, nested groups and classes included.
  // Scoped options ((?i:...)) stay inside; an unscoped one at the top
  // level changes what follows, so it ends the reading.
  void skipGroup() {
    int depth = 0;
    do {
      if (!ok_ || i_ >= p_.size()) return fail();
      const char c = p_[i_];
      if (c == '\\') {
        skipEscape();
      } else if (c == '[') {
        skipClass();
      } else if (c == '(') {
        if (at(0, "(?#")) {
          skipComment();
          continue;
        }
        if (peek(1) == '*') return fail();  // (*ACCEPT) and other verbs
        if (peek(1) == '?') groupOptions(depth == 0);
        ++depth;
        ++i_;
      } else {
        if (c == ')') --depth;
        ++i_;
      }
    } while (depth > 0);
  }

  // The options of "(?" at i_, if it sets any.
  void groupOptions(bool topLevel) {
    size_t j = i_ + 2;
    if (j >= p_.size() || !(isHarmlessOption(p_[j]) || p_[j] == 'x')) return;
    for (; j < p_.size() && p_[j] != ')' && p_[j] != ':'; ++j)
      if (!isHarmlessOption(p_[j])) return fail();  // (?x) and options not known here
    if (j == p_.size() || (p_[j] == ')' && topLevel)) fail();
  }

  // Past the escape at i_, inside a group or class: \Q..\E whole, and \c
  // with the character it names (which may be a parenthesis).
  void skipEscape() {
    if (peek(1) == 'Q') {
      const size_t end = p_.find("\\E", i_ + 2);
      i_ = end == std::string_view::npos ? p_.size() : end + 2;
    } else {
      i_ += peek(1) == 'c' ? 3 : 2;
    }
  }

  // Past the class opening at i_.
  void skipClass() {
    ++i_;
    if (peek() == '^') ++i_;
    if (peek() == ']') ++i_;  // a leading "]" is a member
    while (ok_ && i_ < p_.size()) {
      const char c = p_[i_];
      if (c == '\\') {
        skipEscape();
      } else if (at(0, "[:")) {
        size_t j = i_ + 2;
        while (j < p_.size() && ((p_[j] >= 'a' && p_[j] <= 'z') || p_[j] == '^')) ++j;
        i_ = p_.substr(j, 2) == ":]" ? j + 2 : i_ + 1;
      } else if (c == ']') {
        ++i_;
        return;
      } else {
        ++i_;
      }
    }
    fail();
  }

  std::string_view p_;
  size_t i_ = 0;
  bool caseless_;
  bool ok_ = true;
  std::string run_, best_;
  size_t lastCharBytes_ = 0;  // of the run's last character, 0 when the last atom was something else
};

}  // namespace

std::optional<InnerLiteral> innerLiteral(std::string_view pattern, bool caseSensitive) {
  return Reader(pattern, caseSensitive).read();
}

}  // namespace quorin::search
