// A file truncated by another process while the editor reads it must never
// kill the editor: reads come back short or as NUL, never as SIGBUS.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <random>
#include <thread>
#include <vector>

#include "storage/PieceTable.h"
#include "storage/StorageTestSupport.h"

namespace quorin::storage {
namespace {

using testing::TempDir;

// Byte i of the test file; never NUL, so a NUL read means "lost to truncation".
char expectedByte(int64_t i) { return static_cast<char>('A' + i % 23); }

// Shrinks the file in steps over about a second, then exits. Runs in a child
// process, so it uses only async-signal-safe calls.
pid_t startShrinker(const std::string& path, int64_t size) {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  for (int step = 1; step <= 8; ++step) {
    ::usleep(120'000);
    if (::truncate(path.c_str(), size - size * step / 8) != 0) ::_exit(1);
  }
  ::_exit(0);
}

TEST(Truncation, ReadersSurviveAFileShrinkingUnderThem) {
  TempDir dir;
  constexpr int64_t kSize = 32 << 20;
  std::string content(kSize, '\0');
  for (int64_t i = 0; i < kSize; ++i) content[static_cast<size_t>(i)] = expectedByte(i);
  const auto path = dir.write("shrinking.log", content);
  content.clear();

  PieceTable table(OriginalBuffer::make(testing::mapFile(path)));
  table.insert("edit", 1000);  // some reads cross an append piece
  const auto snapshot = table.snapshot();

  const pid_t child = startShrinker(path.string(), kSize);
  ASSERT_GT(child, 0);

  std::atomic<bool> stop{false};
  std::atomic<int64_t> reads{0}, badBytes{0};
  std::vector<std::thread> readers;
  for (unsigned seed = 1; seed <= 4; ++seed) {
    readers.emplace_back([&, seed] {
      std::mt19937_64 rng(seed);
      while (!stop.load()) {
        const int64_t start = static_cast<int64_t>(rng() % static_cast<uint64_t>(kSize));
        const int64_t length = static_cast<int64_t>(rng() % (256 << 10));
        const auto bytes = snapshot.readBytes({start, start + length});
        // Bytes past the 4-byte insertion are file bytes shifted by 4.
        if (bytes && start > 1004) {
          for (size_t k = 0; k < bytes->size(); k += 4099) {
            const char got = (*bytes)[k];
            if (got != 0 && got != expectedByte(start + static_cast<int64_t>(k) - 4)) ++badBytes;
          }
        }
        (void)snapshot.byte(start);
        ++reads;
      }
    });
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  stop = true;
  for (auto& reader : readers) reader.join();

  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_GT(reads.load(), 0);
  EXPECT_EQ(badBytes.load(), 0);
  // Once the file is empty, every original byte is gone; the inserted ones stay.
  std::this_thread::sleep_for(std::chrono::milliseconds(110));
  EXPECT_EQ(snapshot.readBytes({0, kSize + 4}), "edit");
  EXPECT_EQ(snapshot.byte(10), uint8_t{0});
}

}  // namespace
}  // namespace quorin::storage
