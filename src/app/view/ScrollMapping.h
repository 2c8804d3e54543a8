#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace quorin::app {

// Maps a top line among up to billions of lines to a Qt scroll bar, whose
// range is an int: one step per line while that fits, proportional beyond.
class ScrollMapping {
 public:
  static constexpr int kMaxValue = 1 << 30;

  ScrollMapping(int64_t lineCount, int64_t visibleLines)
      : maxTop_(std::max<int64_t>(0, lineCount - std::max<int64_t>(1, visibleLines))) {}

  int64_t maxTopLine() const { return maxTop_; }
  int maximum() const { return static_cast<int>(std::min<int64_t>(maxTop_, kMaxValue)); }
  bool isProportional() const { return maxTop_ > kMaxValue; }

  int valueForLine(int64_t line) const {
    line = std::clamp<int64_t>(line, 0, maxTop_);
    if (!isProportional()) return static_cast<int>(line);
    return static_cast<int>(
        std::llround(static_cast<double>(line) * kMaxValue / static_cast<double>(maxTop_)));
  }

  int64_t lineForValue(int value) const {
    value = std::clamp(value, 0, maximum());
    if (!isProportional()) return value;
    return std::llround(static_cast<double>(value) * static_cast<double>(maxTop_) / kMaxValue);
  }

 private:
  int64_t maxTop_;
};

}  // namespace quorin::app
