#include "search/QueryText.h"

#include <algorithm>

namespace quorin::search {
namespace {

std::optional<uint32_t> parseHex(std::string_view digits) {
  uint32_t value = 0;
  for (const char c : digits) {
    value <<= 4;
    if (c >= '0' && c <= '9') {
      value |= static_cast<uint32_t>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      value |= static_cast<uint32_t>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      value |= static_cast<uint32_t>(c - 'A' + 10);
    } else {
      return std::nullopt;
    }
  }
  return value;
}

void appendUtf8(std::string& out, uint32_t scalar) {
  if (scalar < 0x80) {
    out += static_cast<char>(scalar);
  } else if (scalar < 0x800) {
    out += static_cast<char>(0xC0 | (scalar >> 6));
    out += static_cast<char>(0x80 | (scalar & 0x3F));
  } else if (scalar < 0x10000) {
    out += static_cast<char>(0xE0 | (scalar >> 12));
    out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (scalar & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (scalar >> 18));
    out += static_cast<char>(0x80 | ((scalar >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((scalar >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (scalar & 0x3F));
  }
}

// The byte length of the UTF-8 sequence a lead byte starts (1 for anything
// that is not a valid lead, so malformed text is walked byte by byte).
size_t sequenceLength(unsigned char lead) {
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  if (lead >= 0xE0) return lead <= 0xEF ? 3 : 1;
  if (lead >= 0xC2) return 2;
  return 1;
}

// The bytes of the character at `at`: a lead byte and the continuation bytes
// that actually follow it, so that a broken sequence never swallows the
// backslash of the next escape.
size_t characterLength(std::string_view text, size_t at) {
  const size_t limit = std::min(sequenceLength(static_cast<unsigned char>(text[at])), text.size() - at);
  size_t length = 1;
  while (length < limit && (static_cast<unsigned char>(text[at + length]) & 0xC0) == 0x80) ++length;
  return length;
}

// The characters after a backslash are counted as typed characters, so a
// "\u" followed by "é" and three more is four characters, not five bytes.
std::optional<std::string_view> takeCharacters(std::string_view text, size_t from, size_t count) {
  size_t end = from;
  for (size_t i = 0; i < count; ++i) {
    if (end >= text.size()) return std::nullopt;
    end += characterLength(text, end);
  }
  return text.substr(from, end - from);
}

}  // namespace

std::string expandEscapes(std::string_view query) {
  std::string out;
  out.reserve(query.size());
  size_t i = 0;
  while (i < query.size()) {
    if (query[i] != '\\' || i + 1 == query.size()) {
      out += query[i++];
      continue;
    }
    const char kind = query[i + 1];
    static constexpr std::string_view kNames = "0\\nrt";
    static constexpr std::string_view kValues{"\0\\\n\r\t", 5};
    if (const size_t simple = kNames.find(kind); simple != std::string_view::npos) {
      out += kValues[simple];
      i += 2;
      continue;
    }
    if (kind == 'x' || kind == 'u') {
      const auto digits = takeCharacters(query, i + 2, kind == 'x' ? 2 : 4);
      const auto value = digits ? parseHex(*digits) : std::nullopt;
      if (value && *value <= 0x10FFFF && (*value < 0xD800 || *value > 0xDFFF)) {
        appendUtf8(out, *value);
        i += 2 + digits->size();
        continue;
      }
    }
    // Kept as typed: the backslash and the character after it.
    const size_t length = 1 + characterLength(query, i + 1);
    out.append(query.substr(i, length));
    i += length;
  }
  return out;
}

std::optional<std::vector<std::string>> literalAlternatives(std::string_view pattern) {
  static constexpr std::string_view kEscapable = "\\|.^$*+?()[]{}/-";
  static constexpr std::string_view kSpecial = "$()*+.?[]^{}";
  std::vector<std::string> alternatives(1);
  for (size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (c == '\\') {
      if (i + 1 == pattern.size() || kEscapable.find(pattern[i + 1]) == std::string_view::npos)
        return std::nullopt;
      alternatives.back() += pattern[++i];
    } else if (c == '|') {
      if (alternatives.back().empty()) return std::nullopt;
      alternatives.emplace_back();
    } else if (static_cast<unsigned char>(c) < 0x20 || kSpecial.find(c) != std::string_view::npos) {
      return std::nullopt;
    } else {
      alternatives.back() += c;  // bytes of a multi-byte character pass through unchanged
    }
  }
  if (alternatives.back().empty()) return std::nullopt;
  return alternatives;
}

double searchBudgetSeconds(int64_t documentBytes) {
  return std::max(static_cast<double>(documentBytes) / 104'857'600.0, 1.0) * 10.0;
}

bool isAscii(std::string_view bytes) {
  return std::ranges::all_of(bytes, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace quorin::search
