#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "app/DocumentTab.h"
#include "app/find/PanelTestSupport.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "jobs/JobRegistry.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app {

// A document tab over a file written for the test, its main queue and line
// index queue pumped by hand, the file not watched.
struct TabHarness {
  // `firstPassLines` > 0: the tab opens while the line index knows only that many lines.
  void open(std::string_view text, const std::string& name, int64_t firstPassLines = 0) {
    document::OpenOptions options = testOptions(main, lineQueue);
    if (firstPassLines > 0) options.lineIndexLimits.firstPassLines = firstPassLines;
    document = document::Document::open(dir.write(name, text).string(), options).value();
    if (firstPassLines == 0) lineQueue->runAll();
    tab = std::make_unique<DocumentTab>(document, main, jobs);
  }
  // Runs what the main queue is given (for up to 20 s) until `done`; says whether it came.
  bool pumpUntil(const std::function<bool()>& done) {
    for (int i = 0; i < 4000 && !done(); ++i) main.waitAndRun(std::chrono::milliseconds(5));
    return done();
  }

  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  jobs::JobRegistry jobs;
  std::shared_ptr<testing::ManualExecutor> lineQueue = std::make_shared<testing::ManualExecutor>();
  std::shared_ptr<document::Document> document;
  std::unique_ptr<DocumentTab> tab;
};

}  // namespace quorin::app
