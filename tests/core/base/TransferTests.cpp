#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <deque>

#include "base/Transfer.h"
#include "base/UniqueFd.h"

namespace quorin::base {
namespace {

// A system call that answers from a script: a byte count, or -errno.
Transfer scripted(size_t wanted, bool writing, std::deque<ssize_t> answers) {
  return transferAll(wanted, writing, [&](size_t) -> ssize_t {
    const ssize_t n = answers.front();
    answers.pop_front();
    if (n >= 0) return n;
    errno = static_cast<int>(-n);
    return -1;
  });
}

TEST(Transfer, RetriesInterruptionsContinuesShortCallsAndStopsOnTheRest) {
  EXPECT_TRUE(scripted(10, true, {-EINTR, 3, -EINTR, 7}).complete());
  const Transfer noSpace = scripted(10, true, {4, -ENOSPC});
  EXPECT_EQ(noSpace.done, 4u);
  EXPECT_EQ(noSpace.error, ENOSPC);
  EXPECT_EQ(scripted(10, true, {4, 0}).error, EIO);  // a write of nothing would spin forever
  const Transfer endOfFile = scripted(10, false, {6, 0});
  EXPECT_EQ(endOfFile.done, 6u);
  EXPECT_EQ(endOfFile.error, 0);
  EXPECT_FALSE(endOfFile.complete());
}

TEST(UniqueFd, ClosesExactlyOnceWhereverItEnds) {
  int pipeFds[2];
  ASSERT_EQ(::pipe(pipeFds), 0);
  const int raw = pipeFds[0];
  {
    UniqueFd first(raw);
    UniqueFd second = std::move(first);
    EXPECT_FALSE(first.valid());
    EXPECT_EQ(second.get(), raw);
    EXPECT_NE(::fcntl(raw, F_GETFD), -1);  // still open
  }
  EXPECT_EQ(::fcntl(raw, F_GETFD), -1);  // closed with the last owner
  UniqueFd writer(pipeFds[1]);
  EXPECT_EQ(writer.close(), 0);
  EXPECT_EQ(writer.close(), 0);  // nothing left to close
  EXPECT_EQ(::fcntl(pipeFds[1], F_GETFD), -1);
}

}  // namespace
}  // namespace quorin::base
