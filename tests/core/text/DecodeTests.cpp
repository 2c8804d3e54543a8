#include <gtest/gtest.h>

#include "text/Decode.h"
#include "text/DetectedEncoding.h"

namespace quorin::text {
namespace {

using enum DetectedEncoding;
using namespace std::string_literals;  // "..."s keeps embedded NULs

std::string decode(std::string_view bytes, DetectedEncoding encoding = utf8) {
  return decodeToUtf8({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, encoding);
}

const std::string kFFFD = "\xEF\xBF\xBD", kEmoji = "\xF0\x9F\x98\x80";

TEST(Decode, Utf8ReplacesEachMaximalInvalidSubpart) {
  EXPECT_EQ(decode("plain \xC3\xA9 " + kEmoji), "plain \xC3\xA9 " + kEmoji);
  EXPECT_EQ(decode("a\xFF"
                   "b"),
            "a" + kFFFD + "b");
  EXPECT_EQ(decode("\xE2\x82"
                   "x"),
            kFFFD + "x");                                    // truncated 3-byte sequence: one
  EXPECT_EQ(decode("\xC0\xAF"), kFFFD + kFFFD);              // overlong lead is invalid alone
  EXPECT_EQ(decode("\xED\xA0\x80"), kFFFD + kFFFD + kFFFD);  // surrogate
  EXPECT_EQ(decode("\xF4\x90\x80\x80"), kFFFD + kFFFD + kFFFD + kFFFD);
  EXPECT_EQ(decode("end\xF0\x9F\x98", utf8WithBOM), "end" + kFFFD);
}

TEST(Decode, Utf16Utf32AndLatin1) {
  EXPECT_EQ(decode("h\0\xE9\0"s, utf16LE), "h\xC3\xA9");
  EXPECT_EQ(decode("\0h\0\xE9"s, utf16BE), "h\xC3\xA9");
  EXPECT_EQ(decode("\x3D\xD8\x00\xDE"s, utf16LE), kEmoji);  // surrogate pair
  EXPECT_EQ(decode("\x3D\xD8"
                   "a\0"s,
                   utf16LE),
            kFFFD + "a");                            // lone high surrogate
  EXPECT_EQ(decode("a\0b"s, utf16LE), "a" + kFFFD);  // odd trailing byte
  EXPECT_EQ(decode("\x00\xF6\x01\x00"s, utf32LE), kEmoji);
  EXPECT_EQ(decode("\x00\x01\xF6\x00"s, utf32BE), kEmoji);
  EXPECT_EQ(decode("\x00\x00\x11\x00"s, utf32LE), kFFFD);  // past U+10FFFF
  EXPECT_EQ(decode("caf\xE9", isoLatin1), "caf\xC3\xA9");
}

}  // namespace
}  // namespace quorin::text
