#pragma once

// QUORIN_CHECK(condition, message): a contract that no user input can break.
// When it fails the program stops, in release builds too: carrying on with a
// corrupt piece list or index would lose the user's text silently, which is
// worse than a crash with a clear line on stderr.

namespace quorin::base {

[[noreturn]] void checkFailed(const char* condition, const char* message, const char* file, int line);

}  // namespace quorin::base

#define QUORIN_CHECK(condition, message)                                    \
  do {                                                                      \
    if (!(condition)) [[unlikely]]                                          \
      ::quorin::base::checkFailed(#condition, message, __FILE__, __LINE__); \
  } while (false)
