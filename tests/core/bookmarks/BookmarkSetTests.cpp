#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "bookmarks/BookmarkSet.h"

namespace quorin::bookmarks {
namespace {

using Model = std::map<int64_t, std::string>;

std::vector<Bookmark> modelAll(const Model& model) {
  std::vector<Bookmark> out;
  for (const auto& [line, note] : model) out.push_back({line, note});
  return out;
}

// The edit on the plain map: lines merged away lose their bookmarks, later ones move.
std::vector<Bookmark> modelEdit(Model& model, int64_t line, int64_t removed, int64_t inserted) {
  std::vector<Bookmark> gone;
  Model after;
  for (const auto& [at, note] : model) {
    if (at > line && at <= line + removed) {
      gone.push_back({at, note});
    } else {
      after[at > line + removed ? at + inserted - removed : at] = note;
    }
  }
  model = std::move(after);
  return gone;
}

TEST(BookmarkSet, RandomOperationsMatchASortedMap) {
  std::mt19937 random(2026);
  for (int round = 0; round < 4; ++round) {
    BookmarkSet set;
    Model model;
    const int64_t span = 1 + random() % 6000;
    for (int step = 0; step < 1000; ++step) {
      const int64_t line = random() % span;
      switch (random() % 10) {
        case 0:
        case 1:
        case 2: {
          const std::string note = random() % 3 ? "" : "note " + std::to_string(step);
          set.set(line, note);
          model[line] = note;
          break;
        }
        case 3: EXPECT_EQ(set.remove(line), model.erase(line) == 1); break;
        case 4:
          if (set.toggle(line)) {
            model[line] = "";
          } else {
            model.erase(line);
          }
          break;
        case 5: {
          std::vector<int64_t> lines(random() % 400);
          for (auto& l : lines) l = random() % span;
          set.addAll(lines);
          for (const int64_t l : lines) model.try_emplace(l, "");
          break;
        }
        default: {
          const int64_t removed = random() % 3 ? random() % 3 : random() % 200;
          const int64_t inserted = random() % 3 ? random() % 3 : random() % 200;
          ASSERT_EQ(set.applyEdit(line, removed, inserted), modelEdit(model, line, removed, inserted))
              << "round " << round << " step " << step;
        }
      }
      ASSERT_EQ(set.size(), model.size()) << "round " << round << " step " << step;
      const int64_t probe = random() % (span + 50);
      EXPECT_EQ(set.contains(probe), model.contains(probe));
      if (const auto next = set.next(probe)) {
        const auto it = model.upper_bound(probe);
        EXPECT_EQ(next->wrapped, it == model.end());
        EXPECT_EQ(next->line, it == model.end() ? model.begin()->first : it->first);
      }
      if (const auto previous = set.previous(probe)) {
        const auto it = model.lower_bound(probe);
        EXPECT_EQ(previous->wrapped, it == model.begin());
        EXPECT_EQ(previous->line, it == model.begin() ? model.rbegin()->first : std::prev(it)->first);
      }
    }
    ASSERT_EQ(set.all(), modelAll(model)) << "round " << round;
  }
}

TEST(BookmarkSet, NotesTravelWithTheirLinesAndEmptySetsAnswerNothing) {
  BookmarkSet set;
  EXPECT_FALSE(set.next(0).has_value());
  EXPECT_TRUE(set.applyEdit(0, 5, 0).empty());
  set.set(10, "first error");
  set.set(20, "the retry");
  EXPECT_EQ(set.applyEdit(3, 0, 2), std::vector<Bookmark>{});  // two lines typed above
  EXPECT_EQ(set.note(12), "first error");
  EXPECT_EQ(set.note(22), "the retry");
  EXPECT_EQ(set.applyEdit(12, 0, 0), std::vector<Bookmark>{});  // typing in the bookmarked line keeps it
  EXPECT_EQ(set.applyEdit(11, 11, 0), (std::vector<Bookmark>{{12, "first error"}, {22, "the retry"}}));
  EXPECT_TRUE(set.empty());
}

}  // namespace
}  // namespace quorin::bookmarks
