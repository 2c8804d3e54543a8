#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>

#include "Json.h"

namespace quorin::cli {
namespace {

std::string asJsonString(std::string_view text) {
  std::string out;
  appendJsonString(out, text);
  return out;
}

TEST(CliJsonStringTest, EscapesWhatJsonRequires) {
  EXPECT_EQ(asJsonString(R"(say "hi" \ bye)"), R"("say \"hi\" \\ bye")");
  EXPECT_EQ(asJsonString("a\tb\nc\r\b\f"), R"("a\tb\nc\r\b\f")");
  EXPECT_EQ(asJsonString(std::string("\x01\x1f\0", 3)), R"("\u0001\u001f\u0000")");
  EXPECT_EQ(asJsonString("/ é ✓ \x7f"), "\"/ é ✓ \x7f\"");  // kept as UTF-8; '/' and DEL need no escape
}

TEST(CliJsonStringTest, MalformedUtf8BecomesReplacementCharacters) {
  EXPECT_EQ(asJsonString("a\xFF!"), "\"a\xEF\xBF\xBD!\"");
  EXPECT_EQ(asJsonString("\xC3"), "\"\xEF\xBF\xBD\"");  // truncated sequence
}

TEST(CliJsonWriterTest, NestedValuesGetCommasOnlyBetweenSiblings) {
  std::ostringstream out;
  JsonWriter json(out);
  json.beginObject()
      .field("n\"", int64_t{-42})
      .field("max", std::numeric_limits<int64_t>::max())
      .field("u", uint64_t{18446744073709551615u})
      .key("list")
      .beginArray()
      .value(1)
      .beginObject()
      .endObject()
      .beginArray()
      .endArray()
      .value("x")
      .endArray()
      .key("inner")
      .beginObject()
      .field("ok", true)
      .field("half", 0.5)
      .key("none")
      .null()
      .endObject()
      .field("inf", std::numeric_limits<double>::infinity())
      .endObject();
  EXPECT_TRUE(json.complete());
  EXPECT_EQ(out.str(),
            R"({"n\"":-42,"max":9223372036854775807,"u":18446744073709551615,"list":[1,{},[],"x"],)"
            R"("inner":{"ok":true,"half":0.5,"none":null},"inf":null})");
}

}  // namespace
}  // namespace quorin::cli
