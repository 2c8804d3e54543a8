#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "storage/OriginalBuffer.h"
#include "storage/StorageTestSupport.h"

namespace quorin::storage {
namespace {

using namespace std::string_literals;  // "..."s keeps embedded NULs
using enum text::DetectedEncoding;
using enum text::LineEnding;
using testing::TempDir;

struct Facts {
  text::DetectedEncoding encoding;
  int64_t contentStart, documentLength;
  text::LineEnding lineEnding = lf;
  bool operator==(const Facts&) const = default;
  friend std::ostream& operator<<(std::ostream& os, const Facts& f) {
    return os << name(f.encoding) << " start " << f.contentStart << " length " << f.documentLength << " "
              << name(f.lineEnding);
  }
};

Facts factsOf(const OriginalBuffer& b) {
  return {b.encoding(), b.contentStart(), b.documentLength(), b.lineEnding()};
}

Facts factsOf(std::string_view bytes, std::optional<text::DetectedEncoding> encoding = std::nullopt) {
  TempDir dir;
  return factsOf(*testing::bufferOver(dir, bytes, encoding));
}

text::LineEnding endingOf(std::string_view bytes,
                          std::optional<text::DetectedEncoding> encoding = std::nullopt) {
  return factsOf(bytes, encoding).lineEnding;
}

TEST(OriginalBuffer, EmptyFileMapsOneAnonymousByte) {
  TempDir dir;
  auto mmap = testing::mapFile(dir.write("empty", ""));
  EXPECT_EQ(mmap->length(), 0);
  EXPECT_EQ(mmap->mappedLength(), 1);
  EXPECT_NE(mmap->base(), nullptr);
  EXPECT_TRUE(mmap->span(0, 10).empty());
  EXPECT_EQ(factsOf(*OriginalBuffer::make(mmap)), (Facts{utf8, 0, 0}));
}

TEST(OriginalBuffer, ByteOrderMarks) {
  EXPECT_EQ(factsOf("\xFF"), (Facts{utf8, 0, 1}));
  EXPECT_EQ(factsOf("\xFF\xFE\x00\x00"s), (Facts{utf32LE, 4, 0}));
  EXPECT_EQ(factsOf("\xFF\xFE\x41\x00"s), (Facts{utf16LE, 2, 2}));
  EXPECT_EQ(factsOf("\x00\x00\xFE\xFF"s), (Facts{utf32BE, 4, 0}));
  EXPECT_EQ(factsOf("\xEF\xBB\xBFhi\r\n"), (Facts{utf8WithBOM, 3, 4, crlf}));
  EXPECT_EQ(factsOf("\xEF\xBB"), (Facts{utf8, 0, 2}));
  EXPECT_EQ(factsOf("\xFE\xFF\x00\x41"s), (Facts{utf16BE, 2, 2}));
  // A given encoding skips only its own mark; a legacy one has none, so mark-like bytes stay in the document.
  EXPECT_EQ(factsOf("a\0b\0"s, utf16LE), (Facts{utf16LE, 0, 4}));
  EXPECT_EQ(factsOf("\xFF\xFE"
                    "a\0"s,
                    utf16LE),
            (Facts{utf16LE, 2, 2}));
  EXPECT_EQ(factsOf("\xFF\xFE"
                    "ab",
                    windows1252),
            (Facts{windows1252, 0, 4}));
}

TEST(OriginalBuffer, FirstLineBreakDecidesLineEnding) {
  EXPECT_EQ(endingOf("a\r\nb"), crlf);
  EXPECT_EQ(endingOf("a\rb\n"), cr);
  EXPECT_EQ(endingOf("abc\r"), cr);
  EXPECT_EQ(endingOf("abc"), lf);
  EXPECT_EQ(endingOf("a\nb\r\n"), lf);
  EXPECT_EQ(endingOf(std::string(8191, 'x') + "\r\n"), cr);  // the LF is past the probe
  EXPECT_EQ(endingOf(std::string(8192, 'x') + "\r\n"), lf);
  EXPECT_EQ(endingOf("\xEF\xBB\xBF" + std::string(8190, 'x') + "\r\n"),
            crlf);  // the probe starts after the mark
  // UTF-16 and UTF-32 go by code units, not bytes.
  EXPECT_EQ(endingOf(testing::utf16LEWithMark(u"a\r\nb")), crlf);
  EXPECT_EQ(endingOf("\0a\0\r\0b"s, utf16BE), cr);
  EXPECT_EQ(endingOf("\xFF\xFE\0\0\n\0\0\0"s), lf);
}

TEST(MMapWrapper, ErrorsNameTheCallAndTheSystemText) {
  auto missing = MMapWrapper::open("/nonexistent/quorin/file.log");
  ASSERT_FALSE(missing);
  EXPECT_EQ(missing.error().describe(),
            "open(/nonexistent/quorin/file.log) failed: No such file or directory");
  TempDir dir;
  auto directory = MMapWrapper::open(dir.path().string());
  ASSERT_FALSE(directory);
  EXPECT_EQ(directory.error().describe(), "open(" + dir.path().string() + ") failed: Is a directory");
  // A FIFO would block a plain open until a writer came: refused at once instead.
  const auto fifo = dir.path() / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_EQ(MMapWrapper::open(fifo.string()).error().describe(), fifo.string() + " is not a regular file");
}

TEST(MMapWrapper, ValidatedLengthOnlyShrinks) {
  TempDir dir;
  auto path = dir.write("shrinks", std::string(8192, 'a'));
  auto mmap = testing::mapFile(path);
  EXPECT_EQ(mmap->span(0, 100).size(), 100u);
  ASSERT_EQ(::truncate(path.c_str(), 10), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  EXPECT_EQ(mmap->span(0, 100).size(), 10u);
  EXPECT_EQ(mmap->byteAt(50), uint8_t{0});      // lost to the truncation: NUL, not a fault
  EXPECT_EQ(mmap->byteAt(8192), std::nullopt);  // past the mapping: absent
  ASSERT_EQ(::truncate(path.c_str(), 8192), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  EXPECT_EQ(mmap->validatedLength(), 10);
  EXPECT_EQ(mmap->length(), 8192);
}

TEST(MMapWrapper, CopyPastAnUnnoticedShrinkStopsAtTheLostPages) {
  TempDir dir;
  const auto page = static_cast<int64_t>(::sysconf(_SC_PAGESIZE));
  auto path = dir.write("shrinks", std::string(size_t(8 * page), 'q'));
  auto mmap = testing::mapFile(path);
  ASSERT_EQ(mmap->validatedLength(), 8 * page);  // checked just now: the next check is 100 ms away
  std::string out(size_t(8 * page), '\0');
  auto copyAll = [&] { return mmap->copy(0, 8 * page, reinterpret_cast<uint8_t*>(out.data())); };

  ASSERT_EQ(::truncate(path.c_str(), 3 * page), 0);
  EXPECT_EQ(copyAll(), 3 * page);
  EXPECT_EQ(out.substr(0, size_t(3 * page)), std::string(size_t(3 * page), 'q'));
  EXPECT_EQ(mmap->validatedLength(), 3 * page);  // the fault forced a re-check
  // A second fault on the same thread must be caught too (the first must not leave SIGBUS blocked).
  ASSERT_EQ(::truncate(path.c_str(), page), 0);
  EXPECT_EQ(copyAll(), page);
}

}  // namespace
}  // namespace quorin::storage
