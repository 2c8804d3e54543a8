// The go-to field and the time fields over anything typed: a parse gives a
// target whose values are in range, or a failure with a message to show.
#include <cmath>
#include <string>
#include <variant>

#include "FuzzSupport.h"
#include "logs/GoToTarget.h"

using namespace quorin::logs;

namespace {

void checkTime(const TimeTarget& t) {
  const bool date = t.year.has_value();
  FUZZ_CHECK(t.month.has_value() == date && t.day.has_value() == date);
  FUZZ_CHECK(t.hour.has_value() == t.minute.has_value());
  if (t.second) FUZZ_CHECK(t.hour.has_value());
  FUZZ_CHECK(date || t.hour.has_value());
  if (date) {
    FUZZ_CHECK(*t.month >= 1 && *t.month <= 12);
    FUZZ_CHECK(*t.day >= 1 && *t.day <= daysInMonth(*t.year, *t.month));
  }
  if (t.hour) FUZZ_CHECK(*t.hour >= 0 && *t.hour <= 23 && *t.minute >= 0 && *t.minute <= 59);
  if (t.second) FUZZ_CHECK(*t.second >= 0 && *t.second <= 60);
}

void checkFailure(const ParseFailure& failure) {
  const std::string message = failure.message();
  if (failure.kind == ParseFailure::Kind::empty) {
    FUZZ_CHECK(message.empty());
  } else if (failure.kind == ParseFailure::Kind::notRecognized) {
    FUZZ_CHECK(message == kNotRecognizedMessage);
  } else {
    FUZZ_CHECK(!message.empty());
  }
}

void checkOffset(const TimeOffsetTarget& offset) { FUZZ_CHECK(std::isfinite(offset.seconds)); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view typed(reinterpret_cast<const char*>(data), size);

  if (auto target = parseGoToTarget(typed)) {
    std::visit(
        [](const auto& t) {
          using T = std::decay_t<decltype(t)>;
          if constexpr (std::is_same_v<T, LineTarget>) FUZZ_CHECK(t.line >= 0);
          if constexpr (std::is_same_v<T, PercentTarget>) FUZZ_CHECK(t.percent >= 0 && t.percent <= 100);
          if constexpr (std::is_same_v<T, ByteTarget>) FUZZ_CHECK(t.offset >= 0);
          if constexpr (std::is_same_v<T, RecordTarget>) FUZZ_CHECK(t.record >= 0);
          if constexpr (std::is_same_v<T, TimeTarget>) checkTime(t);
          if constexpr (std::is_same_v<T, TimeOffsetTarget>) checkOffset(t);
        },
        *target);
  } else {
    checkFailure(target.error());
  }

  if (auto time = parseTimeInput(typed)) {
    if (auto* t = std::get_if<TimeTarget>(&*time)) checkTime(*t);
    if (auto* o = std::get_if<TimeOffsetTarget>(&*time)) checkOffset(*o);
  } else {
    checkFailure(time.error());
  }

  if (auto edge = parseWindowEdge(typed, "From")) {
    checkTime(*edge);
  } else {
    checkFailure(edge.error());
  }
  return 0;
}
