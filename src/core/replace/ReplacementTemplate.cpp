#include "replace/ReplacementTemplate.h"

#include <charconv>

namespace quorin::replace {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isNameStart(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool isNameChar(char c) { return isNameStart(c) || isDigit(c); }

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The 1-based character column of byte `offset` (continuation bytes do not count).
int64_t columnOf(std::string_view text, size_t offset) {
  int64_t column = 1;
  for (size_t i = 0; i < offset && i < text.size(); ++i) {
    if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++column;
  }
  return column;
}

// The character (whole UTF-8 sequence) at `offset`, for messages.
std::string_view characterAt(std::string_view text, size_t offset) {
  size_t end = offset + 1;
  while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80 && end - offset < 4)
    ++end;
  return text.substr(offset, end - offset);
}

std::string groupsPhrase(int count) {
  if (count == 0) return "no groups";
  if (count == 1) return "1 group";
  return std::to_string(count) + " groups";
}

// Expansion with case changes: text produced under \U or \L is gathered into
// runs mapped as a whole (a final sigma needs its neighbours).
class CaseWriter {
 public:
  explicit CaseWriter(std::string& out) : out_(out) {}
  void append(std::string_view text) {
    if (text.empty()) return;
    if (next_ != CaseChange::none) {
      flush();
      text.remove_prefix(appendFirstCharacterMapped(text, next_, out_));
      next_ = CaseChange::none;
    }
    if (mode_ == CaseChange::none) {
      out_.append(text);
    } else {
      run_.append(text);
    }
  }
  void setMode(CaseChange mode) {
    flush();
    mode_ = mode;
  }
  void setNext(CaseChange change) { next_ = change; }
  void flush() {
    if (run_.empty()) return;
    appendCaseMapped(run_, mode_, out_);
    run_.clear();
  }

 private:
  std::string& out_;
  std::string run_;
  CaseChange mode_ = CaseChange::none;
  CaseChange next_ = CaseChange::none;
};

}  // namespace

std::optional<int> PatternGroups::numberOf(std::string_view name) const {
  for (const auto& [groupName, number] : names) {
    if (groupName == name) return number;
  }
  return std::nullopt;
}

std::string TemplateError::describe() const {
  switch (kind) {
    case Kind::missingGroup:
      return "Group " + std::to_string(group) + " does not exist: the pattern has " +
             groupsPhrase(groupCount);
    case Kind::missingName:
      return "Group \"" + name + "\" does not exist: the pattern has no group of that name";
    case Kind::malformed: break;
  }
  return detail + " at column " + std::to_string(column);
}

ReplacementTemplate ReplacementTemplate::literal(std::string_view text) {
  ReplacementTemplate t;
  t.parts_.push_back({Part::Kind::text, std::string(text), 0, CaseChange::none});
  t.constant_ = std::string(text);
  return t;
}

std::expected<ReplacementTemplate, TemplateError> ReplacementTemplate::parse(std::string_view text,
                                                                             const PatternGroups& groups) {
  ReplacementTemplate t;
  std::string pending;  // literal bytes not yet made a part
  bool caseChanges = false;
  auto malformed = [&](std::string detail, size_t at) {
    return std::unexpected(TemplateError{
        .kind = TemplateError::Kind::malformed, .detail = std::move(detail), .column = columnOf(text, at)});
  };
  auto addPart = [&](Part part) {
    if (!pending.empty()) t.parts_.push_back({Part::Kind::text, std::move(pending), 0, CaseChange::none});
    pending.clear();
    t.parts_.push_back(std::move(part));
  };
  auto addGroup = [&](int number) -> std::optional<TemplateError> {
    if (number > groups.count) {
      return TemplateError{
          .kind = TemplateError::Kind::missingGroup, .group = number, .groupCount = groups.count};
    }
    t.highestGroup_ = std::max(t.highestGroup_, number);
    addPart({Part::Kind::group, {}, number, CaseChange::none});
    return std::nullopt;
  };

  size_t i = 0;
  while (i < text.size()) {
    const char c = text[i];
    if (c == '$') {
      const char d = i + 1 < text.size() ? text[i + 1] : '\0';
      if (d == '$') {
        pending.push_back('$');
        i += 2;
      } else if (d == '&') {
        addGroup(0);
        i += 2;
      } else if (isDigit(d)) {
        int number = d - '0';
        i += 2;
        if (i < text.size() && isDigit(text[i])) number = number * 10 + (text[i++] - '0');
        if (auto error = addGroup(number)) return std::unexpected(*error);
      } else if (d == '{') {
        const size_t close = text.find('}', i + 2);
        if (close == std::string_view::npos) return malformed("An unclosed ${", i);
        const std::string_view inside = text.substr(i + 2, close - i - 2);
        if (!inside.empty() && isDigit(inside[0])) {
          int number = 0;
          const auto [end, ec] = std::from_chars(inside.data(), inside.data() + inside.size(), number);
          if (ec != std::errc() || end != inside.data() + inside.size()) {
            return malformed("A bad group \"" + std::string(inside) + "\"", i);
          }
          if (auto error = addGroup(number)) return std::unexpected(*error);
        } else {
          bool valid = !inside.empty() && isNameStart(inside[0]);
          for (char n : inside) valid = valid && isNameChar(n);
          if (!valid) return malformed("A bad group name \"" + std::string(inside) + "\"", i);
          const auto number = groups.numberOf(inside);
          if (!number) {
            return std::unexpected(
                TemplateError{.kind = TemplateError::Kind::missingName, .name = std::string(inside)});
          }
          addGroup(*number);
        }
        i = close + 1;
      } else {
        pending.push_back('$');
        ++i;
      }
      continue;
    }
    if (c != '\\') {
      pending.push_back(c);
      ++i;
      continue;
    }
    if (i + 1 == text.size()) return malformed("A lone backslash ends the template", i);
    const char e = text[i + 1];
    switch (e) {
      case 'n': pending.push_back('\n'); break;
      case 'r': pending.push_back('\r'); break;
      case 't': pending.push_back('\t'); break;
      case '\\': pending.push_back('\\'); break;
      case 'U':
      case 'L':
      case 'E':
        caseChanges = true;
        addPart({Part::Kind::mode,
                 {},
                 0,
                 e == 'U'   ? CaseChange::upper
                 : e == 'L' ? CaseChange::lower
                            : CaseChange::none});
        break;
      case 'u':
      case 'l':
        caseChanges = true;
        addPart({Part::Kind::next, {}, 0, e == 'u' ? CaseChange::upper : CaseChange::lower});
        break;
      case 'x': {
        if (i + 2 < text.size() && text[i + 2] == '{') {
          const size_t close = text.find('}', i + 3);
          const std::string_view digits =
              close == std::string_view::npos ? std::string_view() : text.substr(i + 3, close - i - 3);
          uint32_t value = 0;
          bool valid = !digits.empty() && digits.size() <= 6;
          for (char h : digits) {
            valid = valid && hexValue(h) >= 0;
            if (valid) value = value * 16 + static_cast<uint32_t>(hexValue(h));
          }
          valid = valid && value <= 0x10FFFF && !(value >= 0xD800 && value <= 0xDFFF);
          if (!valid) return malformed("A bad \\x{…} (one to six hex digits of a Unicode character)", i);
          appendUtf8(static_cast<char32_t>(value), pending);
          i = close + 1;
          continue;
        }
        const int high = i + 2 < text.size() ? hexValue(text[i + 2]) : -1;
        const int low = i + 3 < text.size() ? hexValue(text[i + 3]) : -1;
        if (high < 0 || low < 0) return malformed("A bad \\x (two hex digits, or \\x{…})", i);
        appendUtf8(static_cast<char32_t>(high * 16 + low), pending);
        i += 4;
        continue;
      }
      default: {
        const std::string escape = "\\" + std::string(characterAt(text, i + 1));
        if (isDigit(e))
          return malformed("An unknown escape " + escape + " (groups are written $" + e + ")", i);
        return malformed("An unknown escape " + escape, i);
      }
    }
    i += 2;
  }
  if (!pending.empty()) t.parts_.push_back({Part::Kind::text, std::move(pending), 0, CaseChange::none});
  if (t.highestGroup_ == 0 && !caseChanges) {
    bool usesMatch = false;
    std::string constant;
    for (const Part& part : t.parts_) {
      usesMatch = usesMatch || part.kind == Part::Kind::group;
      constant += part.text;
    }
    if (!usesMatch) t.constant_ = std::move(constant);
  }
  return t;
}

void ReplacementTemplate::expand(std::span<const std::string_view> groups, std::string& out) const {
  if (constant_) {
    out.append(*constant_);
    return;
  }
  auto groupText = [&](int n) {
    return static_cast<size_t>(n) < groups.size() ? groups[static_cast<size_t>(n)] : std::string_view();
  };
  CaseWriter writer(out);
  for (const Part& part : parts_) {
    switch (part.kind) {
      case Part::Kind::text: writer.append(part.text); break;
      case Part::Kind::group: writer.append(groupText(part.group)); break;
      case Part::Kind::mode: writer.setMode(part.change); break;
      case Part::Kind::next: writer.setNext(part.change); break;
    }
  }
  writer.flush();
}

}  // namespace quorin::replace
