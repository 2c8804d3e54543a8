#pragma once

#include <memory>
#include <string>

#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "support/ManualExecutor.h"
#include "support/TempDir.h"

namespace quorin::app::testing {

// A UTF-8 document over `bytes` whose background work the test pumps by hand.
// `indexLines`: the lines the index knows at once (the rest wait for the queue).
struct TestDocument {
  quorin::testing::TempDir dir;
  dispatch::ManualMainQueue main;
  std::shared_ptr<quorin::testing::ManualExecutor> queue =
      std::make_shared<quorin::testing::ManualExecutor>();
  std::shared_ptr<document::Document> doc;

  explicit TestDocument(const std::string& bytes,
                        storage::LargeFileOpenMode mode = storage::LargeFileOpenMode::wholeFileVirtual,
                        int64_t indexLines = 1'000'000) {
    document::OpenOptions options;
    options.mainQueue = &main;
    options.lineIndexQueue = options.compactionQueue = options.saveQueue = queue;
    options.watchFile = false;
    options.watchMemoryPressure = false;
    options.encoding = text::DetectedEncoding::utf8;
    options.mode.mode = mode;
    options.lineIndexLimits.firstPassLines = indexLines;
    doc = document::Document::open(dir.write("t.txt", bytes).string(), options).value();
  }
  std::string text() const { return doc->snapshot().text.text({0, doc->length()}); }
};

}  // namespace quorin::app::testing
