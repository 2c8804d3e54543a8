#include "text/Decode.h"

#include <gtest/gtest.h>

#include "text/DetectedEncoding.h"

namespace quorin::text {
namespace {

std::string decode(std::string_view bytes, DetectedEncoding encoding) {
  return decodeToUtf8({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, encoding);
}

const std::string kFFFD = "\xEF\xBF\xBD";

TEST(Decode, Utf8ReplacesEachMaximalInvalidSubpart) {
  EXPECT_EQ(decode("plain \xC3\xA9 \xF0\x9F\x98\x80", DetectedEncoding::utf8), "plain \xC3\xA9 \xF0\x9F\x98\x80");
  EXPECT_EQ(decode("a\xFF" "b", DetectedEncoding::utf8), "a" + kFFFD + "b");
  EXPECT_EQ(decode("\xE2\x82" "x", DetectedEncoding::utf8), kFFFD + "x");  // truncated 3-byte sequence: one
  EXPECT_EQ(decode("\xC0\xAF", DetectedEncoding::utf8), kFFFD + kFFFD);    // overlong lead is invalid alone
  EXPECT_EQ(decode("\xED\xA0\x80", DetectedEncoding::utf8), kFFFD + kFFFD + kFFFD);  // surrogate
  EXPECT_EQ(decode("\xF4\x90\x80\x80", DetectedEncoding::utf8), kFFFD + kFFFD + kFFFD + kFFFD);
  EXPECT_EQ(decode("end\xF0\x9F\x98", DetectedEncoding::utf8WithBOM), "end" + kFFFD);
}

TEST(Decode, Utf16AndUtf32BothByteOrders) {
  EXPECT_EQ(decode(std::string("h\0\xE9\0", 4), DetectedEncoding::utf16LE), "h\xC3\xA9");
  EXPECT_EQ(decode(std::string("\0h\0\xE9", 4), DetectedEncoding::utf16BE), "h\xC3\xA9");
  EXPECT_EQ(decode(std::string("\x3D\xD8\x00\xDE", 4), DetectedEncoding::utf16LE), "\xF0\x9F\x98\x80");  // surrogate pair
  EXPECT_EQ(decode(std::string("\x3D\xD8" "a\0", 4), DetectedEncoding::utf16LE), kFFFD + "a");  // lone high
  EXPECT_EQ(decode(std::string("a\0b", 3), DetectedEncoding::utf16LE), "a" + kFFFD);  // odd trailing byte
  EXPECT_EQ(decode(std::string("\x00\xF6\x01\x00", 4), DetectedEncoding::utf32LE), "\xF0\x9F\x98\x80");
  EXPECT_EQ(decode(std::string("\x00\x01\xF6\x00", 4), DetectedEncoding::utf32BE), "\xF0\x9F\x98\x80");
  EXPECT_EQ(decode(std::string("\x00\x00\x11\x00", 4), DetectedEncoding::utf32LE), kFFFD);  // past U+10FFFF
}

TEST(Decode, Latin1MapsBytesToCodePoints) {
  EXPECT_EQ(decode("caf\xE9", DetectedEncoding::isoLatin1), "caf\xC3\xA9");
}

TEST(DetectedEncoding, NamesRoundTripInDeclarationOrder) {
  for (int i = 0; i < kDetectedEncodingCount; ++i) {
    const auto encoding = static_cast<DetectedEncoding>(i);
    EXPECT_EQ(encodingFromName(name(encoding)), encoding);
  }
  EXPECT_EQ(name(DetectedEncoding::isoLatin1), "isoLatin1");
  EXPECT_EQ(encodingFromName("latin1"), std::nullopt);
}

}  // namespace
}  // namespace quorin::text
