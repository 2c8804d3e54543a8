#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "SampleTexts.h"
#include "support/TempDir.h"
#include "text/Decode.h"
#include "text/DetectedEncoding.h"
#include "text/Encoder.h"
#include "text/Transcoder.h"
#include "text/Utf8.h"

namespace quorin::text {
namespace {

using enum DetectedEncoding;
using namespace std::string_literals;
namespace fs = std::filesystem;

std::span<const uint8_t> bytesOf(std::string_view s) {
  return {reinterpret_cast<const uint8_t*>(s.data()), s.size()};
}

using testing::readFile;

std::string hex(std::string_view bytes) {
  std::string out;
  char buf[4];
  for (unsigned char b : bytes) {
    std::snprintf(buf, sizeof buf, "%02X ", b);
    out += buf;
  }
  return out;
}

// Encodes with the Encoder fed `pieceBytes` at a time, so that characters
// are split between pieces.
std::expected<std::string, Unrepresentable> encodeInPieces(std::string_view utf8, DetectedEncoding target,
                                                           bool mark, size_t pieceBytes) {
  Encoder encoder(target, mark);
  std::string out;
  for (size_t i = 0; i < utf8.size(); i += pieceBytes) {
    const auto piece = utf8.substr(i, pieceBytes);
    if (auto r = encoder.encode(bytesOf(piece), false, out); !r) return std::unexpected(r.error());
  }
  if (auto r = encoder.encode({}, true, out); !r) return std::unexpected(r.error());
  return out;
}

TranscodeOptions inBlocksOf(size_t bytes) {
  TranscodeOptions options;
  options.blockBytes = bytes;
  return options;
}

const std::string kEmoji = "\xF0\x9F\x98\x80", kFFFD = "\xEF\xBF\xBD";

// A text in each encoding's own repertoire; the Unicode ones and GB18030
// carry everything, a character outside the BMP included.
std::string textFor(DetectedEncoding encoding) {
  using namespace samples;
  switch (encoding) {
    case shiftJIS:
    case eucJP: return std::string(kJapanese);
    case big5: return std::string(kTraditionalChinese);
    case eucKR: return std::string(kKorean);
    case windows1252: return std::string(kWindows1252);
    case isoLatin1: return std::string(kLatin1);
    default:
      return std::string(kJapanese) + std::string(kSimplifiedChinese) + std::string(kKorean) +
             std::string(kWindows1252) + "emoji " + kEmoji + "\n";
  }
}

TEST(Transcoding, EveryEncodingRoundTripsThroughWorkingCopyAndEncoder) {
  testing::TempDir dir;
  for (int e = 0; e < kDetectedEncodingCount; ++e) {
    const auto encoding = static_cast<DetectedEncoding>(e);
    SCOPED_TRACE(name(encoding));
    const std::string text = textFor(encoding);
    const bool mark = !byteOrderMark(encoding).empty();
    const auto source = encodeUtf8(text, encoding, mark);
    ASSERT_TRUE(source.has_value());
    const fs::path sourcePath = dir.write(std::string(name(encoding)) + ".txt", *source);
    EXPECT_EQ(decodeToUtf8(bytesOf(*source).subspan(byteOrderMark(encoding).size()), encoding), text);

    // Tiny blocks split every multi-byte character somewhere.
    for (const size_t block : {1uz, 3uz, 7uz, 4096uz}) {
      SCOPED_TRACE(block);
      const fs::path working = dir.path() / newWorkingCopyFileName();
      const auto summary = transcodeFileToUtf8(sourcePath, encoding, working, inBlocksOf(block));
      ASSERT_TRUE(summary.has_value()) << summary.error().describe();
      EXPECT_EQ(*summary, (TranscodeSummary{static_cast<int64_t>(source->size()),
                                            static_cast<int64_t>(byteOrderMark(encoding).size()),
                                            static_cast<int64_t>(text.size()), 0}));
      EXPECT_EQ(readFile(working), text);
      fs::remove(working);
    }
    for (const size_t piece : {1uz, 5uz, 100000uz}) {
      EXPECT_EQ(encodeInPieces(text, encoding, mark, piece), *source) << piece;
    }
  }
}

TEST(Transcoding, EachEncodingUsesItsOwnTables) {
  struct Case {
    DetectedEncoding encoding;
    std::string text, bytes;
  };
  const Case cases[] = {
      {shiftJIS, "日本", "\x93\xFA\x96\x7B"},
      {eucJP, "日本", "\xC6\xFC\xCB\xDC"},
      {gb18030, "中文" + kEmoji, "\xD6\xD0\xCE\xC4\x94\x39\xFC\x36"},
      {big5, "中文", "\xA4\xA4\xA4\xE5"},
      {eucKR, "한국", "\xC7\xD1\xB1\xB9"},
      {windows1252, "€’œ", "\x80\x92\x9C"},
      {isoLatin1, "é\xC2\x80", "\xE9\x80"},  // 0x80 is the control U+0080, not €
      {utf16BE, "é" + kEmoji, "\x00\xE9\xD8\x3D\xDE\x00"s},
      {utf32LE, kEmoji, "\x00\xF6\x01\x00"s},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(hex(encodeUtf8(c.text, c.encoding).value_or("?")), hex(c.bytes)) << name(c.encoding);
    EXPECT_EQ(decodeToUtf8(bytesOf(c.bytes), c.encoding), c.text) << name(c.encoding);
  }
  EXPECT_EQ(encodeUtf8("a", utf8WithBOM, true),
            "\xEF\xBB\xBF"
            "a");
  EXPECT_EQ(encodeUtf8("a", utf16LE, true),
            "\xFF\xFE"
            "a\0"s);
  EXPECT_EQ(encodeUtf8("a", utf16LE, false), "a\0"s);
}

TEST(Transcoding, SingleByteLegacyEncodingsKeepEveryByte) {
  // Windows-1252 is the last resort for undetectable input, binary included:
  // its working copy must write back byte for byte.
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  for (const auto encoding : {windows1252, isoLatin1}) {
    const std::string utf8 = decodeToUtf8(bytesOf(all), encoding);
    EXPECT_EQ(validUtf8Prefix(bytesOf(utf8)), utf8.size());
    EXPECT_EQ(utf8.find(kFFFD), std::string::npos) << name(encoding);
    EXPECT_EQ(hex(encodeUtf8(utf8, encoding).value_or("?")), hex(all)) << name(encoding);
  }
}

// Arbitrary bytes in every encoding and block size are left to the encoding
// fuzz target; here, known bad sequences and how many replacements they make.
TEST(Transcoding, MalformedInputIsReplacedAndCounted) {
  testing::TempDir dir;
  // A lead byte with an invalid trail, an unassigned pair and a lead byte cut
  // off at the end of the file.
  const fs::path sjis = dir.write("bad-sjis.txt",
                                  "ok\x82\x20"
                                  "a\x85\x40"
                                  "b\x93");
  const auto summary = transcodeFileToUtf8(sjis, shiftJIS, dir.path() / "bad-sjis.utf8");
  ASSERT_TRUE(summary.has_value());
  EXPECT_EQ(summary->substitutions, 3);
  EXPECT_EQ(readFile(dir.path() / "bad-sjis.utf8"), "ok" + kFFFD + " a" + kFFFD + "b" + kFFFD);
}

TEST(Encoding, ReportsTheFirstCharacterTheTargetCannotRepresent) {
  EXPECT_EQ(encodeUtf8("price: 5 €", isoLatin1).error(), (Unrepresentable{9, 0x20AC}));
  EXPECT_EQ(encodeUtf8("ok " + kEmoji + " é", windows1252).error(), (Unrepresentable{3, 0x1F600}));
  EXPECT_EQ(encodeUtf8("日本語と한국어", shiftJIS).error(), (Unrepresentable{12, U'한'}));
  EXPECT_EQ(encodeUtf8("中文 ü", big5).error(), (Unrepresentable{7, U'ü'}));
  // Invalid UTF-8 stands for U+FFFD, which GB18030 and Unicode can write and
  // the other legacy encodings cannot.
  EXPECT_EQ(encodeUtf8("a\xFF", eucKR).error(), (Unrepresentable{1, 0xFFFD}));
  EXPECT_EQ(encodeUtf8("a\xFF", utf16LE), "a\0\xFD\xFF"s);
  EXPECT_EQ(encodeUtf8("a\xE2\x82", utf8), "a" + kFFFD);
  EXPECT_TRUE(encodeUtf8(kFFFD + kEmoji, gb18030).has_value());

  // The offset counts across pieces and ICU batches.
  const std::string longText = samples::repeated(samples::kJapanese, 100000);
  for (const size_t piece : {7uz, 65536uz}) {
    EXPECT_EQ(encodeInPieces(longText + "€", eucJP, false, piece).error(),
              (Unrepresentable{static_cast<int64_t>(longText.size()), 0x20AC}));
  }
}

TEST(Transcoding, CancellationAndFailuresLeaveNoWorkingCopy) {
  testing::TempDir dir;
  const fs::path source = dir.write("src.txt", samples::repeated("abc\n", 1000));
  const fs::path working = dir.path() / "working.txt";

  std::vector<int64_t> seen;
  TranscodeOptions options = inBlocksOf(256);
  options.progress = [&](int64_t done, int64_t) { seen.push_back(done); };
  options.isCancelled = [&] { return seen.size() == 3; };
  const auto cancelled = transcodeFileToUtf8(source, windows1252, working, options);
  EXPECT_EQ(cancelled.error().describe(), "transcoding cancelled");
  EXPECT_EQ(seen, (std::vector<int64_t>{256, 512, 768}));
  EXPECT_FALSE(fs::exists(working));

  // The destination is created fresh, never over an existing file.
  dir.write("working.txt", "keep me");
  const auto exists = transcodeFileToUtf8(source, windows1252, working);
  EXPECT_EQ(exists.error().describe(), "open(" + working.string() + ") failed: File exists");
  EXPECT_EQ(readFile(working), "keep me");

  const fs::path missing = dir.path() / "missing.txt";
  EXPECT_EQ(transcodeFileToUtf8(missing, shiftJIS, dir.path() / "w2").error().describe(),
            "open(" + missing.string() + ") failed: No such file or directory");

  const auto done = transcodeFileToUtf8(source, windows1252, dir.path() / "w3");
  ASSERT_TRUE(done.has_value());
  struct stat st {};
  ASSERT_EQ(::stat((dir.path() / "w3").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

}  // namespace
}  // namespace quorin::text
