#pragma once

#include <concepts>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace quorin::cli {

// Appends `text` as a JSON string literal, quotes included. JSON must be
// UTF-8, and paths and file contents need not be: malformed sequences become
// U+FFFD rather than producing output that a strict parser rejects.
void appendJsonString(std::string& out, std::string_view text);

template <typename T>
concept JsonInteger = std::integral<T> && !std::same_as<T, bool>;

// Streams compact JSON (no whitespace), so that one value fits one line and
// line-oriented tools can consume a stream of results. Commas are placed by
// the writer; nesting misuse (a value without a key inside an object, an
// unbalanced end) is a programming error and stops the program.
class JsonWriter {
 public:
  explicit JsonWriter(std::ostream& out) : out_(out) {}

  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();
  // The next value's name; only inside an object.
  JsonWriter& key(std::string_view name);

  JsonWriter& value(std::string_view text);
  JsonWriter& value(const char* text) { return value(std::string_view(text)); }
  JsonWriter& value(bool flag);
  JsonWriter& value(double number);  // non-finite numbers have no JSON form: null
  template <JsonInteger T>
  JsonWriter& value(T number) {
    return raw(std::to_string(number));
  }
  JsonWriter& null() { return raw("null"); }

  template <typename T>
  JsonWriter& field(std::string_view name, const T& v) {
    key(name);
    return value(v);
  }

  // Whether every object and array begun has been ended.
  bool complete() const { return stack_.empty() && wroteTopLevel_; }

 private:
  enum class Scope : uint8_t { object, array };
  struct Frame {
    Scope scope;
    bool empty = true;
    bool keyPending = false;
  };

  // Writes a scalar or opening bracket in the current position.
  JsonWriter& raw(std::string_view token);
  void beforeValue();
  JsonWriter& end(Scope scope, char bracket);

  std::ostream& out_;
  std::vector<Frame> stack_;
  bool wroteTopLevel_ = false;
};

}  // namespace quorin::cli
