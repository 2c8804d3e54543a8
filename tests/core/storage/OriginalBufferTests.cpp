#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "storage/OriginalBuffer.h"
#include "storage/StorageTestSupport.h"

namespace quorin::storage {
namespace {

using testing::TempDir;
using text::DetectedEncoding;
using text::LineEnding;

struct Facts {
  DetectedEncoding encoding;
  int64_t contentStart;
  int64_t documentLength;
  LineEnding lineEnding;
  bool operator==(const Facts&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Facts& f) {
  return os << text::name(f.encoding) << " start " << f.contentStart << " length " << f.documentLength << " "
            << text::name(f.lineEnding);
}

Facts factsOf(std::string_view bytes, std::optional<DetectedEncoding> encoding = std::nullopt) {
  TempDir dir;
  auto buffer = testing::bufferOver(dir, bytes, encoding);
  return {buffer->encoding(), buffer->contentStart(), buffer->documentLength(), buffer->lineEnding()};
}

TEST(OriginalBuffer, EmptyFileMapsOneAnonymousByte) {
  TempDir dir;
  auto mmap = testing::mapFile(dir.write("empty", ""));
  EXPECT_EQ(mmap->length(), 0);
  EXPECT_EQ(mmap->mappedLength(), 1);
  EXPECT_NE(mmap->base(), nullptr);
  EXPECT_TRUE(mmap->span(0, 10).empty());
  auto buffer = OriginalBuffer::make(mmap);
  EXPECT_EQ((Facts{buffer->encoding(), buffer->contentStart(), buffer->documentLength(), buffer->lineEnding()}),
            (Facts{DetectedEncoding::utf8, 0, 0, LineEnding::lf}));
}

TEST(OriginalBuffer, ByteOrderMarks) {
  EXPECT_EQ(factsOf("\xFF"), (Facts{DetectedEncoding::utf8, 0, 1, LineEnding::lf}));
  EXPECT_EQ(factsOf(std::string("\xFF\xFE\x00\x00", 4)), (Facts{DetectedEncoding::utf32LE, 4, 0, LineEnding::lf}));
  EXPECT_EQ(factsOf(std::string("\xFF\xFE\x41\x00", 4)), (Facts{DetectedEncoding::utf16LE, 2, 2, LineEnding::lf}));
  EXPECT_EQ(factsOf(std::string("\x00\x00\xFE\xFF", 4)), (Facts{DetectedEncoding::utf32BE, 4, 0, LineEnding::lf}));
  EXPECT_EQ(factsOf("\xEF\xBB\xBFhi\r\n"), (Facts{DetectedEncoding::utf8WithBOM, 3, 4, LineEnding::crlf}));
  EXPECT_EQ(factsOf("\xEF\xBB"), (Facts{DetectedEncoding::utf8, 0, 2, LineEnding::lf}));
  EXPECT_EQ(factsOf(std::string("\xFE\xFF\x00\x41", 4)), (Facts{DetectedEncoding::utf16BE, 2, 2, LineEnding::lf}));
}

TEST(OriginalBuffer, GivenEncodingSkipsOnlyItsOwnMark) {
  EXPECT_EQ(factsOf(std::string("a\0b\0", 4), DetectedEncoding::utf16LE), (Facts{DetectedEncoding::utf16LE, 0, 4, LineEnding::lf}));
  EXPECT_EQ(factsOf(std::string("\xFF\xFE" "a\0", 4), DetectedEncoding::utf16LE),
            (Facts{DetectedEncoding::utf16LE, 2, 2, LineEnding::lf}));
  // A legacy encoding has no mark: bytes that look like one stay in the document.
  EXPECT_EQ(factsOf("\xFF\xFE" "ab", DetectedEncoding::windows1252),
            (Facts{DetectedEncoding::windows1252, 0, 4, LineEnding::lf}));
}

TEST(OriginalBuffer, FirstLineBreakDecidesLineEnding) {
  EXPECT_EQ(factsOf("a\r\nb").lineEnding, LineEnding::crlf);
  EXPECT_EQ(factsOf("a\rb\n").lineEnding, LineEnding::cr);
  EXPECT_EQ(factsOf("abc\r").lineEnding, LineEnding::cr);
  EXPECT_EQ(factsOf("abc").lineEnding, LineEnding::lf);
  EXPECT_EQ(factsOf("a\nb\r\n").lineEnding, LineEnding::lf);
  EXPECT_EQ(factsOf(std::string(8191, 'x') + "\r\n").lineEnding, LineEnding::cr);  // the LF is past the probe
  EXPECT_EQ(factsOf(std::string(8192, 'x') + "\r\n").lineEnding, LineEnding::lf);
  // UTF-16 and UTF-32 go by code units, not bytes.
  EXPECT_EQ(factsOf(testing::utf16LEWithMark(u"a\r\nb")).lineEnding, LineEnding::crlf);
  EXPECT_EQ(factsOf(std::string("\0a\0\r\0b", 6), DetectedEncoding::utf16BE).lineEnding, LineEnding::cr);
  EXPECT_EQ(factsOf(std::string("\xFF\xFE\0\0\n\0\0\0", 8)).lineEnding, LineEnding::lf);
  // The probe starts after the mark.
  EXPECT_EQ(factsOf("\xEF\xBB\xBF" + std::string(8190, 'x') + "\r\n").lineEnding, LineEnding::crlf);
}

TEST(MMapWrapper, ErrorsNameTheCallAndTheSystemText) {
  auto missing = MMapWrapper::open("/nonexistent/quorin/file.log");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().describe(), "open(/nonexistent/quorin/file.log) failed: No such file or directory");

  TempDir dir;  // a directory opens read-only but cannot be mapped
  auto directory = MMapWrapper::open(dir.path().string());
  ASSERT_FALSE(directory);
  EXPECT_EQ(directory.error().describe(), "mmap failed: No such device");

  EXPECT_EQ(MMapError::statFailed(EBADF).describe(), "fstat failed: Bad file descriptor");
  EXPECT_EQ(MMapError::empty().describe(), "file is empty");
}

TEST(MMapWrapper, ValidatedLengthOnlyShrinks) {
  TempDir dir;
  auto path = dir.write("shrinks", std::string(8192, 'a'));
  auto mmap = testing::mapFile(path);
  EXPECT_EQ(mmap->span(0, 100).size(), 100u);

  ASSERT_EQ(::truncate(path.c_str(), 10), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  EXPECT_EQ(mmap->span(0, 100).size(), 10u);
  EXPECT_EQ(mmap->byteAt(50), uint8_t{0});          // lost to the truncation: NUL, not a fault
  EXPECT_EQ(mmap->byteAt(8192), std::nullopt);      // past the mapping: absent

  ASSERT_EQ(::truncate(path.c_str(), 8192), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  EXPECT_EQ(mmap->validatedLength(), 10);
  EXPECT_EQ(mmap->length(), 8192);
}

TEST(MMapWrapper, CopyPastAnUnnoticedShrinkStopsAtTheLostPages) {
  TempDir dir;
  const size_t page = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  auto path = dir.write("shrinks", std::string(8 * page, 'q'));
  auto mmap = testing::mapFile(path);
  ASSERT_EQ(mmap->validatedLength(), static_cast<int64_t>(8 * page));  // checked just now: the next check is 100 ms away

  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(3 * page)), 0);
  std::string out(8 * page, '\0');
  const int64_t copied = mmap->copy(0, static_cast<int64_t>(8 * page), reinterpret_cast<uint8_t*>(out.data()));
  EXPECT_EQ(copied, static_cast<int64_t>(3 * page));
  EXPECT_EQ(out.substr(0, 3 * page), std::string(3 * page, 'q'));
  EXPECT_EQ(mmap->validatedLength(), static_cast<int64_t>(3 * page));  // the fault forced a re-check

  // A second fault on the same thread must be caught too (the first must not leave SIGBUS blocked).
  ASSERT_EQ(::truncate(path.c_str(), static_cast<off_t>(page)), 0);
  EXPECT_EQ(mmap->copy(0, static_cast<int64_t>(8 * page), reinterpret_cast<uint8_t*>(out.data())),
            static_cast<int64_t>(page));
}

}  // namespace
}  // namespace quorin::storage
