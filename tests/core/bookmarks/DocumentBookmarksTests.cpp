#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bookmarks/DocumentBookmarks.h"
#include "document/DocumentTestSupport.h"

namespace quorin::bookmarks {
namespace {

using document::Opened;
using persistence::TextSelection;
using Marks = std::map<int64_t, std::string>;

Marks marksOf(const DocumentBookmarks& bookmarks) {
  Marks out;
  for (const Bookmark& mark : bookmarks.set().all()) out[mark.line] = mark.note;
  return out;
}

int64_t breaks(std::string_view text) { return std::count(text.begin(), text.end(), '\n'); }

// An edit of the plain text and its bookmarks: the line it starts on keeps
// its bookmark, lines it merged away lose theirs, lines below move.
void modelEdit(std::string& text, Marks& marks, int64_t start, int64_t end, const std::string& bytes) {
  const int64_t line = breaks(std::string_view(text).substr(0, start));
  const int64_t removed = breaks(std::string_view(text).substr(start, end - start));
  const int64_t delta = breaks(bytes) - removed;
  Marks after;
  for (const auto& [at, note] : marks) {
    if (at <= line) after[at] = note;
    if (at > line + removed) after[at + delta] = note;
  }
  marks = std::move(after);
  text.replace(start, end - start, bytes);
}

std::string randomText(std::mt19937& rng, size_t n) {
  static const std::string alphabet = "ab\n\n c";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += alphabet[rng() % alphabet.size()];
  return s;
}

struct State {
  std::string text;
  Marks marks;
};

// Random edits, bulk edits, undo groups, undo and redo through a document
// with bookmarks, against the plain text and a map of lines: after every
// step the bookmarks are the model's, and undo and redo bring back exactly
// the bookmarks (and notes) of the state they return to.
void runModel(uint32_t seed) {
  std::mt19937 rng(seed);
  std::string text = randomText(rng, 400);
  Opened opened(text, false);
  auto& doc = *opened.doc;
  auto bookmarks = std::make_shared<DocumentBookmarks>();
  doc.setLineAnchors(bookmarks);
  Marks marks;
  std::vector<State> history;
  size_t at = 0;  // the state the document is in, in history
  auto reset = [&] {
    history = {{text, marks}};
    at = 0;
  };
  reset();
  for (int step = 0; step < 300; ++step) {
    const auto length = static_cast<int64_t>(text.size());
    const int kind = static_cast<int>(rng() % 10);
    if (kind <= 1) {  // the user's own bookmarks: history past this point is not compared
      const int64_t line = static_cast<int64_t>(rng() % (breaks(text) + 1));
      const std::string note = rng() % 2 ? "note " + std::to_string(step) : "";
      bookmarks->setNote(line, note);
      marks[line] = note;
      reset();
      continue;
    }
    const bool undoing = kind == 2 && at > 0;
    const bool redoing = kind == 3 && at + 1 < history.size();
    if (undoing) {
      ASSERT_TRUE(doc.undo());
      --at;
    } else if (redoing) {
      ASSERT_TRUE(doc.redo());
      ++at;
    } else if (kind == 4) {  // a bulk edit of a few ascending sites
      std::vector<int64_t> cuts;
      for (int i = 0; i < 6; ++i) cuts.push_back(static_cast<int64_t>(rng() % (length + 1)));
      std::sort(cuts.begin(), cuts.end());
      std::vector<storage::PieceTable::BulkEditSite> sites;
      for (int i = 0; i < 6; i += 2) sites.push_back({{cuts[i], cuts[i + 1]}, randomText(rng, rng() % 5)});
      ASSERT_TRUE(doc.replaceAll(sites, "Replace All", {}, {}));
      for (auto site = sites.rbegin(); site != sites.rend(); ++site) {
        modelEdit(text, marks, site->range.start, site->range.end, site->bytes);
      }
    } else if (kind == 5) {  // two edits as one undo step
      doc.beginUndoGroup("Typing", {});
      for (int i = 0; i < 2; ++i) {
        const int64_t start = static_cast<int64_t>(rng() % (text.size() + 1));
        const std::string bytes = randomText(rng, 1 + rng() % 3);
        ASSERT_TRUE(doc.insert(start, bytes, {}, {}));
        modelEdit(text, marks, start, start, bytes);
      }
      doc.endUndoGroup({});
    } else {
      const int64_t start = static_cast<int64_t>(rng() % (length + 1));
      const int64_t end = std::min(length, start + static_cast<int64_t>(rng() % 12));
      const std::string bytes = randomText(rng, rng() % 6);
      if (start == end && bytes.empty()) continue;
      ASSERT_TRUE(doc.replace({start, end}, bytes, {}, {}));
      modelEdit(text, marks, start, end, bytes);
    }
    if (undoing || redoing) {
      text = history[at].text;
      marks = history[at].marks;
    } else {
      history.resize(at + 1);
      history.push_back({text, marks});
      ++at;
    }
    ASSERT_EQ(doc.snapshot().text.text({0, doc.snapshot().text.totalLength()}), text)
        << "step " << step << " kind " << kind;
    ASSERT_EQ(marksOf(*bookmarks), marks) << "seed " << seed << " step " << step << " kind " << kind;
  }
}

TEST(DocumentBookmarks, FollowEditsUndoAndRedoLikeAPlainModel) {
  for (uint32_t seed = 1; seed <= 20; ++seed) runModel(seed);
}

TEST(DocumentBookmarks, AreNotEditsAndCostNothingWithoutBookmarks) {
  Opened opened("one\ntwo\nthree\n", false);
  auto bookmarks = std::make_shared<DocumentBookmarks>();
  opened.doc->setLineAnchors(bookmarks);
  int changes = 0;
  bookmarks->setChangeHandler([&] { ++changes; });
  bookmarks->toggle(1);
  EXPECT_FALSE(opened.doc->isModified());
  EXPECT_FALSE(opened.doc->canUndo());
  // An edit that moves no bookmark keeps no change in its undo entry.
  ASSERT_TRUE(opened.doc->insert(0, "zero\n", {}, {}));
  EXPECT_EQ(marksOf(*bookmarks), (Marks{{2, ""}}));
  EXPECT_EQ(changes, 2);
  // Clearing, then undoing an edit that removed a bookmark, brings that one back.
  ASSERT_TRUE(opened.doc->remove({8, 9}, {}, {}));  // "two" joins line 1
  EXPECT_TRUE(bookmarks->set().empty());
  bookmarks->clear();
  ASSERT_TRUE(opened.doc->undo());
  EXPECT_EQ(marksOf(*bookmarks), (Marks{{2, ""}}));
}

}  // namespace
}  // namespace quorin::bookmarks
