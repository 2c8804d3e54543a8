#include "Json.h"

#include <charconv>
#include <cmath>
#include <span>

#include "base/Check.h"
#include "text/Decode.h"

namespace quorin::cli {

void appendJsonString(std::string& out, std::string_view text) {
  const std::string valid =
      text::decodeUtf8Lossy(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  out.reserve(out.size() + valid.size() + 2);
  out += '"';
  for (const char c : valid) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          static constexpr char kHex[] = "0123456789abcdef";
          out += "\\u00";
          out += kHex[(c >> 4) & 0xF];
          out += kHex[c & 0xF];
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

void JsonWriter::beforeValue() {
  if (stack_.empty()) {
    QUORIN_CHECK(!wroteTopLevel_, "JSON text has a single top-level value");
    wroteTopLevel_ = true;
    return;
  }
  Frame& frame = stack_.back();
  if (frame.scope == Scope::object) {
    QUORIN_CHECK(frame.keyPending, "a value inside an object needs a key");
    frame.keyPending = false;
    return;
  }
  if (!frame.empty) out_ << ',';
  frame.empty = false;
}

JsonWriter& JsonWriter::raw(std::string_view token) {
  beforeValue();
  out_ << token;
  return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
  QUORIN_CHECK(!stack_.empty() && stack_.back().scope == Scope::object, "a key belongs inside an object");
  Frame& frame = stack_.back();
  QUORIN_CHECK(!frame.keyPending, "two keys in a row");
  if (!frame.empty) out_ << ',';
  frame.empty = false;
  frame.keyPending = true;
  std::string quoted;
  appendJsonString(quoted, name);
  out_ << quoted << ':';
  return *this;
}

JsonWriter& JsonWriter::beginObject() {
  raw("{");
  stack_.push_back({Scope::object});
  return *this;
}

JsonWriter& JsonWriter::beginArray() {
  raw("[");
  stack_.push_back({Scope::array});
  return *this;
}

JsonWriter& JsonWriter::end(Scope scope, char bracket) {
  QUORIN_CHECK(!stack_.empty() && stack_.back().scope == scope, "unbalanced JSON end");
  QUORIN_CHECK(!stack_.back().keyPending, "a key without a value");
  stack_.pop_back();
  out_ << bracket;
  return *this;
}

JsonWriter& JsonWriter::endObject() { return end(Scope::object, '}'); }
JsonWriter& JsonWriter::endArray() { return end(Scope::array, ']'); }

JsonWriter& JsonWriter::value(std::string_view text) {
  std::string quoted;
  appendJsonString(quoted, text);
  return raw(quoted);
}

JsonWriter& JsonWriter::value(bool flag) { return raw(flag ? "true" : "false"); }

JsonWriter& JsonWriter::value(double number) {
  if (!std::isfinite(number)) return null();
  char buffer[32];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
  return raw(std::string_view(buffer, result.ptr));
}

}  // namespace quorin::cli
