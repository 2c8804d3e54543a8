#pragma once

// A document over a file of its own, for the tests where the document meets
// its file: saves and index passes run inline, the watcher for real (when
// asked) and the follower's polls when a test advances the main queue's clock.

#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "storage/StorageTestSupport.h"

namespace quorin::document {

using Kind = LiveFileNotice::Kind;
using SaveResult = std::expected<persistence::SaveOutcome, persistence::SaveError>;

class InlineExecutor final : public dispatch::Executor {
 public:
  void async(dispatch::Task task) override { task(); }
};

using testing::readFile;

inline void append(const std::filesystem::path& p, const std::string& bytes) {
  std::ofstream(p, std::ios::binary | std::ios::app) << bytes;
}

// A document's options with its background work on `queue` and nothing watched.
inline OpenOptions quietOptions(dispatch::MainQueue& main, std::shared_ptr<dispatch::Executor> queue) {
  OpenOptions options;
  options.mainQueue = &main;
  options.lineIndexQueue = options.compactionQueue = options.saveQueue = std::move(queue);
  options.watchMemoryPressure = false;
  options.watchFile = false;
  return options;
}

struct Opened {
  testing::TempDir dir;
  std::filesystem::path file;
  dispatch::ManualMainQueue main;
  std::shared_ptr<Document> doc;
  std::vector<LiveFileNotice> notices;
  std::vector<std::string> statuses;

  explicit Opened(const std::string& bytes, bool watch = true, storage::LargeFileOpenRequest mode = {}) {
    file = dir.write("app.log", bytes);
    OpenOptions options = quietOptions(main, std::make_shared<InlineExecutor>());
    options.watchFile = watch;
    options.mode = mode;
    options.journalDirectory = dir.path() / "journals";
    doc = Document::open(file.string(), options).value();
    doc->setLiveFileHandler([this](const LiveFileNotice& n) { notices.push_back(n); });
    doc->setStatusHandler([this](const std::string& s) { statuses.push_back(s); });
  }
  // Waits (up to 5 s) for the watcher's events to reach the main thread: `count` notices in all.
  bool awaitNotice(size_t count) {
    for (int i = 0; i < 100 && notices.size() < count; ++i) main.waitAndRun(std::chrono::milliseconds(50));
    return notices.size() >= count;
  }
  // ... or a notice of this kind.
  bool awaitNotice(Kind kind) {
    for (int i = 0; i < 100; ++i) {
      for (const auto& n : notices) {
        if (n.kind == kind) return true;
      }
      main.waitAndRun(std::chrono::milliseconds(50));
    }
    return false;
  }
  // One follower poll (a second of the main queue's clock) and what the watcher had to say meanwhile.
  void poll() {
    main.advance(1'000'000'000);
    main.waitAndRun(std::chrono::milliseconds(20));
  }
  SaveResult save() {
    std::optional<SaveResult> result;
    doc->save([&](const SaveResult& r) { result = r; });
    main.runPending();
    return result.value();
  }
  SaveResult saveAs(const std::filesystem::path& path) {
    std::optional<SaveResult> result;
    doc->saveAs(path.string(), [&](const SaveResult& r) { result = r; });
    main.runPending();
    return result.value();
  }
  std::string text() const { return testing::wholeText(doc->snapshot().text); }
};

}  // namespace quorin::document
