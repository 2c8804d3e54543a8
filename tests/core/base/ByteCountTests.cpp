#include <gtest/gtest.h>

#include "base/ByteCount.h"

namespace quorin::base {
namespace {

TEST(ByteCount, FileStyleUnitsAndRounding) {
  EXPECT_EQ(formatByteCount(0), "Zero KB");
  EXPECT_EQ(formatByteCount(1), "1 byte");
  EXPECT_EQ(formatByteCount(999), "999 bytes");
  EXPECT_EQ(formatByteCount(1000), "1 KB");
  EXPECT_EQ(formatByteCount(999'999), "1 MB");  // not "1000 KB"
  EXPECT_EQ(formatByteCount(1'500'000), "1.5 MB");
  EXPECT_EQ(formatByteCount(1'073'741'824), "1.07 GB");
}

}  // namespace
}  // namespace quorin::base
