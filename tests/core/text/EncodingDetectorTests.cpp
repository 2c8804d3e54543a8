#include <gtest/gtest.h>

#include <string>

#include "SampleTexts.h"
#include "text/Encoder.h"
#include "text/EncodingDetector.h"

namespace quorin::text {
namespace {

using enum DetectedEncoding;
using namespace std::string_literals;

DetectedEncoding detect(std::string_view bytes, bool wholeFile = true) {
  return detectEncoding({reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, wholeFile);
}

std::string encoded(std::string_view utf8, DetectedEncoding encoding) {
  auto bytes = encodeUtf8(utf8, encoding);
  EXPECT_TRUE(bytes.has_value()) << name(encoding);
  return bytes.value_or("");
}

TEST(EncodingDetection, LegacyEncodingsOnRealisticSamples) {
  using namespace samples;
  struct Case {
    std::string_view text;
    DetectedEncoding encoding;
  };
  const Case cases[] = {
      {kJapanese, shiftJIS},       {kJapanese, eucJP}, {kSimplifiedChinese, gb18030},
      {kTraditionalChinese, big5}, {kKorean, eucKR},   {kWindows1252, windows1252},
      {kLatin1, isoLatin1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(name(c.encoding));
    const std::string file = encoded(repeated(c.text, 6000), c.encoding);
    EXPECT_EQ(detect(file), c.encoding);
    // The first line alone is enough.
    EXPECT_EQ(detect(encoded(c.text.substr(0, c.text.find('\n') + 1), c.encoding)), c.encoding);
    // A sample that ends inside a character, as a 64 KiB cut of a large file does.
    const std::string big = encoded(repeated(c.text, kDetectionSampleBytes + 100), c.encoding);
    for (size_t cut = kDetectionSampleBytes - 1; cut <= kDetectionSampleBytes; ++cut) {
      EXPECT_EQ(detect(std::string_view(big).substr(0, cut), false), c.encoding) << cut;
    }
    // The same text in UTF-8 is UTF-8.
    EXPECT_EQ(detect(repeated(c.text, 6000)), utf8);
  }
}

TEST(EncodingDetection, MarksAndUnicodeWithoutMarks) {
  EXPECT_EQ(detect(""), utf8);
  EXPECT_EQ(detect("plain ascii\n"), utf8);
  EXPECT_EQ(detect("\xEF\xBB\xBF"
                   "caf\xE9"),
            utf8WithBOM);  // the mark wins over the content (each mark: the buffer's tests)

  const std::string latin = samples::repeated(samples::kLatin1, 2000);
  EXPECT_EQ(detect(encoded(latin, utf16LE)), utf16LE);
  EXPECT_EQ(detect(encoded(latin, utf16BE)), utf16BE);
  EXPECT_EQ(detect(encoded(latin, utf32LE)), utf32LE);
  EXPECT_EQ(detect(encoded(latin, utf32BE)), utf32BE);
  EXPECT_EQ(detect(encoded(samples::repeated(samples::kWindows1252, 2000), utf16LE)), utf16LE);
  // One-character lines look a little like UTF-32 (41 00 0A 00) but are not.
  EXPECT_EQ(detect(encoded(samples::repeated("A\n", 200), utf16LE)), utf16LE);
  EXPECT_EQ(detect(encoded("Hi\n", utf16LE)), utf16LE);
  // A sample cut after a high surrogate is still UTF-16.
  EXPECT_EQ(detect(encoded("emoji \xF0\x9F\x98\x80", utf16LE).substr(0, 14), false), utf16LE);
}

TEST(EncodingDetection, CutUtf8SequenceAtTheEndOfTheSample) {
  const std::string japanese = samples::repeated(samples::kJapanese, 5000);
  const std::string cut =
      japanese.substr(0, japanese.find("記憶") + 1);  // one byte of a three-byte character
  EXPECT_EQ(detect(cut, false), utf8);
  EXPECT_EQ(detect(cut, true), utf8);  // a file truncated mid-write is still UTF-8
  // A Latin-1 file ending in "é" is not UTF-8 cut short, but a sample may be.
  EXPECT_EQ(detect("caf\xE9", true), windows1252);
  EXPECT_EQ(detect("caf\xE9", false), utf8);
  // A bad sequence before the end is not tolerated.
  EXPECT_NE(detect("\xE6\x97"
                   "abc",
                   false),
            utf8);
}

}  // namespace
}  // namespace quorin::text
