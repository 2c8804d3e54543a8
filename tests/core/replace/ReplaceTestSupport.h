#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "replace/ReplacePlanner.h"
#include "support/TempDir.h"

namespace quorin::replace {

// A document over a file, with the plans of this layer run on its snapshot
// and applied as the editor applies them.
struct ReplaceDoc {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::shared_ptr<document::Document> opened;

  // The line index on its own queue, as in the editor (large texts take several passes).
  explicit ReplaceDoc(const std::string& text) {
    document::OpenOptions options;
    options.mainQueue = &main;
    options.watchMemoryPressure = false;
    options.watchFile = false;
    options.journalDirectory = dir.path() / "journals";
    opened = document::Document::open(dir.write("doc.txt", text).string(), options).value();
    opened->waitForLineIndex(std::chrono::seconds(30));
  }
  document::Document& doc() { return *opened; }
  std::string text() const {
    const auto snapshot = opened->snapshot();
    return snapshot.text.readBytes({0, snapshot.text.totalLength()}).value_or("");
  }
  ReplacePlan batch(const std::vector<BatchPair>& pairs, BatchMode mode,
                    const PlanLimits& limits = {}) const {
    const auto compiled = Batch::compile(pairs, mode);
    if (!compiled) {
      ReplacePlan refused;
      refused.error = compiled.error();
      return refused;
    }
    return planBatch(*compiled, opened->snapshot(), search::SearchCancellation(), {}, limits);
  }
  ReplacePlan replaceAll(const search::SearchOptions& options, std::string_view replacement,
                         const PlanLimits& limits = {}) const {
    const auto prepared = prepareReplacement(options, replacement);
    if (!prepared) {
      ReplacePlan refused;
      refused.error = prepared.error();
      return refused;
    }
    return planReplaceAll(*prepared, opened->snapshot(), search::SearchEngine(), search::SearchCancellation(),
                          {}, limits);
  }
  // Applies a plan as one bulk edit; false when the document refused it.
  bool apply(const ReplacePlan& plan) {
    return opened->replaceAll(plan.sites, "Replace All", {}, {}).has_value();
  }
};

}  // namespace quorin::replace
