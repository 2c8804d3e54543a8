#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace quorin::bench {

// The console reporter plus a closing table that divides each subject's
// time by its baseline's, measured in the same process: absolute times say
// more about the machine (and whatever else it is running) than about us.
//
// Times are CPU time per iteration, or the manual time for benchmarks that
// set it. A pair either matches arguments (same `pieces:N` on both sides) or
// uses a baseline without arguments for every size of the subject.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  struct Pair {
    std::string subject;   // function name as registered
    std::string baseline;  // function name as registered
    bool matchArguments;
  };

  explicit RatioReporter(std::vector<Pair> pairs);

  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

 private:
  std::vector<Pair> pairs_;
  // (function name, arguments) → nanoseconds per iteration, in run order.
  std::vector<std::pair<std::string, std::string>> order_;
  std::map<std::pair<std::string, std::string>, double> nanos_;
};

}  // namespace quorin::bench
