#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>

#include "document/DocumentTestSupport.h"
#include "recovery/JournalKeeper.h"
#include "recovery/Recovery.h"
#include "storage/MMapWrapper.h"
#include "support/FakeFileIo.h"

namespace quorin::recovery {
namespace {

namespace fs = std::filesystem;
using document::Opened;

std::string randomText(std::mt19937& rng, size_t n) {
  static const std::string alphabet = "ab\n c";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += alphabet[rng() % alphabet.size()];
  return s;
}

JournalHeader headerFor(const fs::path& file) {
  const auto id = storage::FileIdentity::ofPath(file.string()).value();
  return {.path = file.string(),
          .device = id.device,
          .inode = id.inode,
          .size = id.size,
          .mtimeSeconds = id.mtimeSeconds,
          .mtimeNanos = id.mtimeNanoseconds,
          .encoding = "utf8",
          .lineEnding = "lf",
          .openMode = "whole"};
}

std::shared_ptr<JournalKeeper> keep(Opened& opened, int64_t compactAboveBytes = int64_t{64} << 20) {
  auto keeper = std::make_shared<JournalKeeper>(
      JournalKeeper::Options{.directory = opened.dir.path(),
                             .header = headerFor(opened.file),
                             .text = [doc = opened.doc.get()] { return doc->snapshot().text; },
                             .compactAboveBytes = compactAboveBytes});
  opened.doc->setEditRecorder(keeper);
  return keeper;
}

std::string fileText(const fs::path& path) { return testing::readFile(path); }

// The text a journal rebuilds from its base file, or the error.
std::string recovered(const fs::path& journalPath, const fs::path& base) {
  const auto parsed = parseJournal(fileText(journalPath));
  if (!parsed) return "unreadable: " + parsed.error().describe();
  storage::PieceTable table(storage::OriginalBuffer::make(storage::MMapWrapper::open(base.string()).value()));
  if (auto replayed = replayRecords(table, parsed->records); !replayed) return replayed.error().describe();
  return table.snapshot().text({0, table.totalLength()});
}

std::string documentText(const document::Document& doc) {
  const auto snap = doc.snapshot();
  return snap.text.text({0, snap.text.totalLength()});
}

// One random step of editing: an edit, a bulk edit, a typing group, undo or redo.
void randomStep(document::Document& doc, std::mt19937& rng) {
  const int64_t length = doc.snapshot().text.totalLength();
  switch (rng() % 6) {
    case 0: doc.undo(); break;
    case 1: doc.redo(); break;
    case 2: {
      std::vector<int64_t> cuts;
      for (int i = 0; i < 6; ++i) cuts.push_back(static_cast<int64_t>(rng() % (length + 1)));
      std::sort(cuts.begin(), cuts.end());
      std::vector<storage::PieceTable::BulkEditSite> sites;
      for (int i = 0; i < 6; i += 2) sites.push_back({{cuts[i], cuts[i + 1]}, randomText(rng, rng() % 4)});
      (void)doc.replaceAll(sites, "Replace All", {}, {});
      break;
    }
    case 3:
      doc.beginUndoGroup("Typing", {});
      for (int i = 0; i < 3; ++i) (void)doc.insert(static_cast<int64_t>(rng() % (length + 1)), "xy", {}, {});
      doc.endUndoGroup({});
      break;
    default: {
      const int64_t start = static_cast<int64_t>(rng() % (length + 1));
      const int64_t end = std::min(length, start + static_cast<int64_t>(rng() % 9));
      (void)doc.replace({start, end}, randomText(rng, rng() % 5), {}, {});
    }
  }
}

// Odd seeds compact the journal whenever it passes 1 KB.
TEST(RecoveryJournal, ReplaysToTheDocumentsTextAfterEveryKindOfEditAndAcrossSaves) {
  for (uint32_t seed = 1; seed <= 4; ++seed) {
    std::mt19937 rng(seed);
    Opened opened(randomText(rng, 300), false);
    auto keeper = keep(opened, seed % 2 ? 1024 : int64_t{64} << 20);
    for (int step = 0; step < 120; ++step) {
      randomStep(*opened.doc, rng);
      if (step % 40 == 39) {
        // A save ends the journal; the next edit starts one over the saved file.
        ASSERT_TRUE(opened.save().has_value());
        EXPECT_FALSE(keeper->journalPath());
        continue;
      }
      if (step % 40 == 19) {
        // An edit while the save runs: it moves to a journal over the saved file.
        std::optional<document::SaveResult> result;
        opened.doc->save([&](const document::SaveResult& r) { result = r; });
        randomStep(*opened.doc, rng);
        opened.main.runPending();
        ASSERT_TRUE(result && result->has_value());
      }
      if (const auto journal = keeper->journalPath()) {
        ASSERT_EQ(recovered(*journal, opened.file), documentText(*opened.doc))
            << "seed " << seed << " step " << step;
      }
    }
    keeper->closed();
    EXPECT_TRUE(listJournals(opened.dir.path()).empty());
  }
}

TEST(RecoveryJournal, ATornOrDamagedRecordEndsTheReplayThere) {
  Opened opened("one\ntwo\n", false);
  auto keeper = keep(opened);
  ASSERT_TRUE(opened.doc->insert(0, "A", {}, {}));
  ASSERT_TRUE(opened.doc->insert(1, "B", {}, {}));
  ASSERT_TRUE(opened.doc->insert(2, "C", {}, {}));
  const std::string bytes = fileText(*keeper->journalPath());
  const auto whole = parseJournal(bytes).value();
  EXPECT_EQ(whole.records.size(), 3u);
  EXPECT_FALSE(whole.torn);
  const auto torn = parseJournal(std::string_view(bytes).substr(0, bytes.size() - 3)).value();
  EXPECT_EQ(torn.records.size(), 2u);
  EXPECT_TRUE(torn.torn);
  std::string damaged = bytes;
  damaged[damaged.size() - 50] ^= 0x40;  // inside the second record (each is 41 bytes)
  EXPECT_EQ(parseJournal(damaged).value().records.size(), 1u);
  EXPECT_EQ(parseJournal(std::string_view("QRUJ\2\0\0\0", 8)).error().describe(),
            "Not a Quorin recovery journal: version 2 is not one this version reads");
  // A file that changed since is not the journal's base.
  EXPECT_FALSE(baseMatches(whole.header, storage::FileIdentity::ofPath(opened.file.string()).value()) &&
               (document::append(opened.file, "more\n"), true) &&
               baseMatches(whole.header, storage::FileIdentity::ofPath(opened.file.string()).value()));
}

// The file begins with a byte-order mark, which the document does not hold:
// the text rebuilt on resuming counts document bytes, not the file's.
TEST(RecoveryJournal, ADiskFullPausesRecordingWhichResumesFromTheWholeText) {
  Opened opened(
      "\xEF\xBB\xBF"
      "alpha\nbeta\n",
      false);
  testing::FakeFileIo io;
  std::vector<std::string> statuses;
  auto keeper = std::make_shared<JournalKeeper>(
      JournalKeeper::Options{.directory = opened.dir.path(),
                             .header = headerFor(opened.file),
                             .text = [doc = opened.doc.get()] { return doc->snapshot().text; },
                             .io = &io,
                             .onStatus = [&](const std::string& s) { statuses.push_back(s); }});
  opened.doc->setEditRecorder(keeper);
  ASSERT_TRUE(opened.doc->insert(0, "1", {}, {}));
  io.onWrite = [](int, const void*, size_t) -> ssize_t {
    errno = ENOSPC;
    return -1;
  };
  ASSERT_TRUE(opened.doc->insert(0, "2", {}, {}));  // editing goes on
  EXPECT_EQ(keeper->status(), "Crash recovery paused: write failed: No space left on device");
  io.onWrite = nullptr;
  ASSERT_TRUE(opened.doc->replace({3, 8}, "ALPHA", {}, {}));
  EXPECT_EQ(keeper->status(), "");
  EXPECT_EQ(statuses.size(), 2u);
  const auto journals = listJournals(opened.dir.path());
  ASSERT_EQ(journals.size(), 2u);  // the paused one kept, the new one live
  EXPECT_EQ(recovered(*keeper->journalPath(), opened.file), "21aALPHAbeta\n");
}

// A child edits with a journal and tells the parent each step it finished;
// the parent kills it with SIGKILL at a random moment. The journal then
// rebuilds the text as of the last step the child finished, or the next one
// (killed after its record was written but before it could tell).
TEST(RecoveryJournal, SurvivesSigkillAtAnyMoment) {
  for (uint32_t round = 0; round < 6; ++round) {
    testing::TempDir dir;
    std::mt19937 rng(100 + round);
    const std::string initial = randomText(rng, 200);
    const fs::path file = dir.write("killed.log", initial);
    // The texts after each step, computed the same way in this process.
    std::vector<std::string> texts{initial};
    {
      Opened model(initial, false);
      std::mt19937 steps(round);
      for (int i = 0; i < 400; ++i) {
        randomStep(*model.doc, steps);
        texts.push_back(documentText(*model.doc));
      }
    }
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    const pid_t child = ::fork();
    if (child == 0) {
      ::close(pipeFds[0]);
      Opened opened(initial, false);
      fs::copy_file(opened.file, file, fs::copy_options::overwrite_existing);
      auto keeper = std::make_shared<JournalKeeper>(
          JournalKeeper::Options{.directory = dir.path(), .header = headerFor(opened.file), .text = {}});
      opened.doc->setEditRecorder(keeper);
      std::mt19937 steps(round);
      for (uint32_t i = 1; i <= 400; ++i) {
        randomStep(*opened.doc, steps);
        if (::write(pipeFds[1], &i, sizeof i) != sizeof i) ::_exit(1);
      }
      ::pause();
      ::_exit(0);
    }
    ::close(pipeFds[1]);
    const uint32_t killAfter = 1 + rng() % 300;
    uint32_t told = 0;
    while (told < killAfter && ::read(pipeFds[0], &told, sizeof told) == sizeof told) {
    }
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
    uint32_t more = 0;
    while (::read(pipeFds[0], &more, sizeof more) == sizeof more) told = more;
    ::close(pipeFds[0]);
    const auto journals = listJournals(dir.path());
    ASSERT_EQ(journals.size(), 1u) << "round " << round;
    EXPECT_FALSE(journals[0].ownerAlive);  // the kernel dropped the dead child's lock
    // The child's document was over its own copy of the file: replay onto the copy here.
    const std::string text = recovered(journals[0].path, file);
    const bool matches = text == texts[told] || (told + 1 < texts.size() && text == texts[told + 1]);
    EXPECT_TRUE(matches) << "round " << round << " told " << told;
  }
}

}  // namespace
}  // namespace quorin::recovery
