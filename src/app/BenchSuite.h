#pragma once

#include <QString>
#include <optional>

#include "dispatch/MainQueue.h"

namespace quorin::app {

// The application's own benchmark suites, run headless (with the offscreen
// platform) when "QUORIN_BENCH_SUITE" names one: open, scroll, type, tour
// or pictures. "QUORIN_BENCH_SESSION" is the file to open and
// "QUORIN_BENCH_SHOT_DIR" where to write a screenshot of the window after
// each step. Figures go to stdout, one "name value unit" per line.
class BenchSuite {
 public:
  static std::optional<BenchSuite> fromEnvironment();
  int run(dispatch::MainQueue& mainQueue);

 private:
  QString suite_;
  QString file_;
  QString shotDir_;
};

}  // namespace quorin::app
