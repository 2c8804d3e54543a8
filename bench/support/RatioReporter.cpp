#include "support/RatioReporter.h"

#include <cstdio>
#include <iostream>

namespace quorin::bench {
namespace {

double nanosPerUnit(benchmark::TimeUnit unit) {
  switch (unit) {
    case benchmark::kNanosecond: return 1;
    case benchmark::kMicrosecond: return 1e3;
    case benchmark::kMillisecond: return 1e6;
    case benchmark::kSecond: return 1e9;
  }
  return 1;
}

std::string describeNanos(double ns) {
  char text[32];
  if (ns < 1e3)
    std::snprintf(text, sizeof text, "%.1f ns", ns);
  else if (ns < 1e6)
    std::snprintf(text, sizeof text, "%.1f us", ns / 1e3);
  else
    std::snprintf(text, sizeof text, "%.2f ms", ns / 1e6);
  return text;
}

}  // namespace

RatioReporter::RatioReporter(std::vector<Pair> pairs)
    : ConsoleReporter(OO_Tabular), pairs_(std::move(pairs)) {}

void RatioReporter::ReportRuns(const std::vector<Run>& runs) {
  ConsoleReporter::ReportRuns(runs);
  for (const Run& run : runs) {
    if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
    const bool manual = run.run_name.time_type == "manual_time";
    const double perIteration = manual ? run.GetAdjustedRealTime() : run.GetAdjustedCPUTime();
    const auto key = std::make_pair(run.run_name.function_name, run.run_name.args);
    if (!nanos_.contains(key)) order_.push_back(key);
    nanos_[key] = perIteration * nanosPerUnit(run.time_unit);
  }
}

void RatioReporter::Finalize() {
  std::ostream& out = GetOutputStream();
  out << "\nRatios: subject time / baseline time (below 1: the subject is cheaper)\n";
  char line[200];
  std::snprintf(line, sizeof line, "%-28s %-16s %12s %12s  %-34s %10s\n", "subject", "arguments", "time",
                "baseline", "baseline name", "ratio");
  out << line;
  for (const auto& [name, args] : order_) {
    for (const Pair& pair : pairs_) {
      if (pair.subject != name) continue;
      const auto baseline = nanos_.find({pair.baseline, pair.matchArguments ? args : std::string()});
      if (baseline == nanos_.end()) continue;
      const double subject = nanos_.at({name, args});
      std::snprintf(line, sizeof line, "%-28s %-16s %12s %12s  %-34s %10.4g\n", name.c_str(), args.c_str(),
                    describeNanos(subject).c_str(), describeNanos(baseline->second).c_str(),
                    pair.baseline.c_str(), subject / baseline->second);
      out << line;
    }
  }
  ConsoleReporter::Finalize();
}

}  // namespace quorin::bench
