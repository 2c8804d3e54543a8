#pragma once

#include <QTest>
#include <memory>
#include <string>

#include "app/find/PanelTestSupport.h"
#include "app/view/TextView.h"
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
    document::OpenOptions options = testOptions(main, queue);
    options.compactionQueue = options.saveQueue = queue;
    options.encoding = text::DetectedEncoding::utf8;
    options.mode.mode = mode;
    options.lineIndexLimits.firstPassLines = indexLines;
    doc = document::Document::open(dir.write("t.txt", bytes).string(), options).value();
  }
  std::string text() const { return doc->snapshot().text.text({0, doc->length()}); }
};

// A document shown in a view.
struct ViewOn : TestDocument {
  std::unique_ptr<TextView> view;

  explicit ViewOn(const std::string& bytes,
                  storage::LargeFileOpenMode mode = storage::LargeFileOpenMode::wholeFileVirtual,
                  int64_t indexLines = 1'000'000)
      : TestDocument(bytes, mode, indexLines), view(std::make_unique<TextView>(doc)) {
    view->resize(600, 300);
    view->show();
  }
  void type(const QString& keys) { QTest::keyClicks(view.get(), keys); }
  void key(Qt::Key k, Qt::KeyboardModifiers m = Qt::NoModifier) { QTest::keyClick(view.get(), k, m); }
};

}  // namespace quorin::app::testing
