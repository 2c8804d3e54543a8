#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "document/DocumentTestSupport.h"
#include "support/ManualExecutor.h"
#include "text/Encoder.h"

namespace quorin::document {
namespace {

using testing::ManualExecutor;

using persistence::TextSelection;

// No memory to spare: the undo history keeps to its floor.
class NoSpareMemory final : public persistence::AvailableMemoryProvider {
 public:
  int64_t availableBytes() const override { return 0; }
};

bool changed(const std::expected<EditOutcome, EditRefusal>& outcome) {
  return outcome && (outcome->edit.bytesRemoved > 0 || outcome->edit.bytesInserted > 0);
}

OpenOptions testOptions(dispatch::MainQueue& main, std::shared_ptr<ManualExecutor> queue) {
  OpenOptions options = quietOptions(main, queue);
  options.memory = std::make_shared<NoSpareMemory>();
  options.lineIndexLimits.firstPassLines = 4;
  options.lineIndexLimits.passLines = 6;
  options.lineIndexLimits.chunkBytes = 16;
  options.lineIndexLimits.spliceShiftLimit = 3;
  return options;
}

std::vector<int64_t> naiveStarts(const std::string& text) {
  std::vector<int64_t> starts{0};
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\n') starts.push_back(static_cast<int64_t>(i + 1));
  }
  return starts;
}

std::string randomBytes(std::mt19937& rng, size_t n) {
  static const std::string alphabet = "ab\n\xc3\xa9 ";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += alphabet[rng() % alphabet.size()];
  return s;
}

// Random edits, replacements, bulk edits, groups, undo, redo and saves against
// a history of plain strings. The undo history is capped small so that it is
// trimmed again and again: undo must stop where the history ends, never
// producing text that was not there.
void runModel(uint32_t seed) {
  testing::TempDir dir;
  std::mt19937 rng(seed);
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  OpenOptions options = testOptions(main, queue);
  options.undoPolicy = {0.25, 6000, 6000};
  std::string initial;
  for (int i = 0; i < 40; ++i) initial += "line " + std::to_string(i) + "\n";
  auto doc = Document::open(dir.write("doc.txt", initial).string(), options).value();

  std::vector<std::string> history{initial};  // texts along the current branch
  size_t at = 0;
  int64_t saved = 0;  // -1 once the saved text is off the current branch
  for (int step = 0; step < 250; ++step) {
    const auto length = static_cast<uint32_t>(doc->length());
    const auto choice = rng() % 12;
    bool edited = false;
    if (choice < 3) {
      const auto offset = static_cast<int64_t>(rng() % (length + 1));
      edited = changed(doc->insert(offset, randomBytes(rng, 1 + rng() % 5), {}, {}));
    } else if (choice < 5 && length > 0) {
      const auto start = static_cast<int64_t>(rng() % length);
      edited = changed(doc->replace({start, start + static_cast<int64_t>(rng() % 6)},
                                    randomBytes(rng, rng() % 4), {}, {}));
    } else if (choice == 5) {
      std::vector<storage::PieceTable::BulkEditSite> sites;
      for (int64_t pos = rng() % 7; pos + 2 < length; pos += 3 + rng() % 9) {
        sites.push_back({{pos, pos + static_cast<int64_t>(rng() % 3)}, rng() % 2 ? "Z\n" : ""});
      }
      edited = changed(doc->replaceAll(sites, "Replace All", {}, {}));
    } else if (choice == 6 && length > 2) {
      doc->beginUndoGroup("Typing", {});
      for (int k = 0; k < 3; ++k) doc->insert(static_cast<int64_t>(rng() % (doc->length() + 1)), "q", {}, {});
      doc->endUndoGroup({});
      edited = true;
    } else if (choice < 9) {
      if (doc->undo()) --at;
    } else if (choice < 11) {
      if (doc->redo()) ++at;
    } else {
      doc->markSaved(std::nullopt);
      saved = static_cast<int64_t>(at);
    }
    if (edited) {
      if (saved > static_cast<int64_t>(at)) saved = -1;  // the saved text was on the branch just cut off
      history.resize(at + 1);
      history.push_back(testing::wholeText(doc->snapshot().text));
      ++at;
    }
    if (rng() % 3 == 0) queue->runOne();
    const std::string text = testing::wholeText(doc->snapshot().text);
    ASSERT_EQ(text, history[at]) << "step " << step;
    if (!doc->isModified()) {
      ASSERT_GE(saved, 0);
      ASSERT_EQ(text, history[static_cast<size_t>(saved)]) << "unmodified, yet not the saved text";
    }
    if (saved == static_cast<int64_t>(at)) {
      ASSERT_FALSE(doc->isModified()) << "step " << step;
    }

    const auto lines = doc->snapshot().lines;
    const auto expected = naiveStarts(text);
    for (int64_t line = 0; line < lines.knownLineCount(); ++line) {
      ASSERT_EQ(lines.lineStart(line), expected[static_cast<size_t>(line)])
          << "step " << step << " line " << line;
    }
  }
  // Undo as far as the (trimmed) history allows: every text on the way is one we had.
  while (doc->undo()) {
    --at;
    ASSERT_EQ(testing::wholeText(doc->snapshot().text), history[at]);
  }
  queue->runAll();
  EXPECT_EQ(doc->snapshot().lines.lineCount(), static_cast<int64_t>(naiveStarts(history[at]).size()));
}

TEST(DocumentModel, RandomEditsUndoRedoAndSavesMatchTheHistory) {
  for (uint32_t seed = 1; seed <= 8; ++seed) {
    SCOPED_TRACE(seed);
    runModel(seed);
  }
}

TEST(Document, ReadOnlyAndWindowedDocumentsRefuseEditsOutsideWhatTheyShow) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  const std::string path = dir.write("log.txt", std::string(3 << 20, 'x') + "\nlast line\n").string();

  OpenOptions readOnly = testOptions(main, queue);
  readOnly.mode.mode = storage::LargeFileOpenMode::readOnlyInspect;
  auto inspect = Document::open(path, readOnly).value();
  EXPECT_TRUE(inspect->isReadOnly());
  EXPECT_EQ(inspect->insert(0, "a", {}, {}).error().describe(), "This document is open read-only.");
  EXPECT_FALSE(inspect->isModified());

  OpenOptions tail = testOptions(main, queue);
  tail.mode = {storage::LargeFileOpenMode::tail, 0, 0, 1};
  auto tailDoc = Document::open(path, tail).value();
  EXPECT_EQ(tailDoc->editableRange(), (storage::ByteRange{(3 << 20) + 1, (3 << 20) + 11}));
  EXPECT_EQ(tailDoc->insert(0, "a", {}, {}).error().kind, EditRefusal::Kind::outsideWindow);
  ASSERT_TRUE(tailDoc->insert((3 << 20) + 1, "new ", {}, {}).has_value());
  queue->runAll();
  EXPECT_EQ(tailDoc->snapshot().lines.lineStart(0), (3 << 20) + 1);
  EXPECT_EQ(tailDoc->snapshot().lines.lineCount(), 1);

  EXPECT_EQ(Document::open(dir.path().string() + "/missing", testOptions(main, queue)).error().describe(),
            "open(" + dir.path().string() + "/missing) failed: No such file or directory");
}

TEST(Document, ListenersHearEveryChangeInOrder) {
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  auto doc = Document::untitled(testOptions(main, queue));
  std::vector<std::string> heard;
  const int token = doc->addChangeListener([&](const DocumentChange& change) {
    heard.push_back(
        std::to_string(static_cast<int>(change.kind)) + ":" + std::to_string(change.edit.docByteStart) + "+" +
        std::to_string(change.edit.bytesInserted) + "-" + std::to_string(change.edit.bytesRemoved));
  });
  doc->insert(0, "hello", {}, TextSelection::at(5));
  doc->replace({0, 1}, "J", {}, {});
  EXPECT_EQ(doc->undo(), TextSelection{});
  doc->removeChangeListener(token);
  doc->redo();
  EXPECT_EQ(heard, (std::vector<std::string>{"0:0+5-0", "0:0+1-1", "1:0+1-1"}));
  EXPECT_TRUE(doc->isCompactionArmed());
}

}  // namespace
}  // namespace quorin::document

namespace quorin::document {
namespace {

std::expected<persistence::SaveOutcome, persistence::SaveError> saveNow(Document& doc, ManualExecutor& queue,
                                                                        dispatch::ManualMainQueue& main) {
  std::optional<std::expected<persistence::SaveOutcome, persistence::SaveError>> result;
  doc.save([&](const auto& r) { result = r; });
  queue.runAll();
  main.runPending();
  return result.value();
}

TEST(DocumentEncodings, LegacyFilesAreEditedInUtf8AndSavedInTheirOwnEncoding) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  const std::string japanese = "ログ: 東京で障害が発生しました\nエラー 42 件\n";
  struct Case {
    text::DetectedEncoding encoding;
    std::string utf8;
  };
  for (const Case& c : {Case{text::DetectedEncoding::shiftJIS, japanese + japanese + japanese},
                        Case{text::DetectedEncoding::utf16LE, japanese},
                        Case{text::DetectedEncoding::windows1252, "Café “delivered” € 5\n"}}) {
    SCOPED_TRACE(std::string(text::name(c.encoding)));
    const auto bytes =
        text::encodeUtf8(c.utf8, c.encoding, c.encoding == text::DetectedEncoding::utf16LE).value();
    const auto path = dir.write(std::string(text::name(c.encoding)) + ".txt", bytes);
    auto doc = Document::open(path.string(), testOptions(main, queue)).value();
    EXPECT_EQ(doc->encoding(), c.encoding);
    EXPECT_TRUE(doc->isTranscoded());
    EXPECT_EQ(testing::wholeText(doc->snapshot().text), c.utf8);

    ASSERT_TRUE(doc->insert(0, "Z", {}, {}));
    const auto saved = saveNow(*doc, *queue, main);
    ASSERT_TRUE(saved) << saved.error().describe();
    EXPECT_EQ(saved->strategy, persistence::SaveStrategy::atomicRewrite);
    EXPECT_EQ(saved->rejection->kind, persistence::InPlaceRejection::Kind::transcodedDocument);
    EXPECT_EQ(
        readFile(path),
        text::encodeUtf8("Z" + c.utf8, c.encoding, c.encoding == text::DetectedEncoding::utf16LE).value());
    EXPECT_FALSE(doc->isModified());
    // It carries on over a fresh working copy: edit, undo past the save, save again.
    ASSERT_TRUE(doc->insert(1, "Y", {}, {}));
    doc->undo();
    doc->undo();
    ASSERT_TRUE(saveNow(*doc, *queue, main));
    EXPECT_EQ(readFile(path), bytes);
  }

  // A character the file's encoding has no bytes for: the save refuses, the file and the edits stay.
  const auto path =
      dir.write("sjis.txt", text::encodeUtf8(japanese, text::DetectedEncoding::shiftJIS, false).value());
  auto doc = Document::open(path.string(), testOptions(main, queue)).value();
  doc->insert(0, "\xF0\x9F\x98\x80", {}, {});
  const auto refused = saveNow(*doc, *queue, main);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().describe(), "content contains characters that Shift JIS cannot represent");
  EXPECT_EQ(readFile(path), text::encodeUtf8(japanese, text::DetectedEncoding::shiftJIS, false).value());
  EXPECT_TRUE(doc->isModified());
}

TEST(DocumentSave, PatchesInPlaceThenRewritesAndCarriesOn) {
  testing::TempDir dir;
  dispatch::ManualMainQueue main;
  auto queue = std::make_shared<ManualExecutor>();
  OpenOptions options = testOptions(main, queue);
  options.journalDirectory = dir.path() / "journals";
  const auto path = dir.write("app.log", "alpha\nbeta\ngamma\n");
  auto doc = Document::open(path.string(), options).value();
  EXPECT_EQ(saveNow(*doc, *queue, main)->kind, persistence::SaveOutcome::Kind::noChanges);

  doc->replace({0, 5}, "ALPHA", {}, {});
  const auto inode = doc->fileIdentity()->inode;
  EXPECT_EQ(saveNow(*doc, *queue, main)->strategy, persistence::SaveStrategy::inPlacePatch);
  EXPECT_EQ(readFile(path), "ALPHA\nbeta\ngamma\n");
  EXPECT_FALSE(doc->isModified());
  EXPECT_EQ(doc->fileIdentity()->inode, inode);

  doc->insert(6, "new ", {}, {});
  EXPECT_EQ(saveNow(*doc, *queue, main)->strategy, persistence::SaveStrategy::atomicRewrite);
  EXPECT_EQ(readFile(path), "ALPHA\nnew beta\ngamma\n");
  EXPECT_NE(doc->fileIdentity()->inode, inode);
  // Carries on over the new file: edits, undo past the save and another save all work.
  queue->runAll();
  EXPECT_EQ(doc->snapshot().lines.lineStart(2), 15);
  doc->undo();
  EXPECT_TRUE(doc->isModified());
  EXPECT_EQ(testing::wholeText(doc->snapshot().text), "ALPHA\nbeta\ngamma\n");
  ASSERT_TRUE(saveNow(*doc, *queue, main));
  EXPECT_EQ(readFile(path), "ALPHA\nbeta\ngamma\n");

  // A second request while one runs: folded in when the text is the same, refused when it is not.
  doc->replace({0, 1}, "a", {}, {});
  std::vector<std::string> outcomes;
  auto record = [&](const auto& r) {
    outcomes.push_back(r ? std::string(persistence::name(r->strategy)) +
                               std::to_string(static_cast<int>(r->kind))
                         : r.error().describe());
  };
  doc->save(record);
  doc->save(record);
  doc->insert(0, "x", {}, {});
  doc->save(record);
  queue->runAll();
  main.runPending();
  EXPECT_EQ(outcomes,
            (std::vector<std::string>{"a save is already in progress \u2014 try again when it finishes",
                                      "inPlacePatch0", "inPlacePatch2"}));
  EXPECT_TRUE(doc->isModified());  // edited while saving
}

}  // namespace
}  // namespace quorin::document
