// The document tab's bookmarks: the set attached to the document, read back
// from the file's sidecar (re-anchored off the main thread once the line
// index is complete), written back a second after the last change and when
// the tab closes, and the commands that set and step through them.
#include <QPointer>
#include <QTimer>
#include <algorithm>

#include "app/DocumentTab.h"
#include "app/bookmarks/BookmarkTexts.h"
#include "app/find/FindBar.h"
#include "app/view/TextView.h"
#include "base/Log.h"
#include "bookmarks/Reanchor.h"
#include "bookmarks/SidecarStore.h"
#include "dispatch/SerialQueue.h"
#include "dispatch/WorkerPool.h"
#include "logs/Messages.h"
#include "logs/TimeNavigator.h"
#include "search/SearchEngine.h"

namespace quorin::app {
namespace {

using bookmarks::Bookmark;
using bookmarks::Sidecar;
using bookmarks::SidecarBookmark;
using bookmarks::SidecarStore;

constexpr int kSidecarDelayMs = 1000;

QString qt(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Only a document that holds the whole file counts its lines as the file
// does: a slice or a tail keeps its bookmarks for the session alone.
bool keepsSidecar(const document::Document& doc) {
  using Mode = storage::LargeFileOpenMode;
  return !doc.isUntitled() && doc.openMode() != Mode::windowedSlice && doc.openMode() != Mode::tail;
}

// What to write: the file as it is on disk now, or as it was when read.
// While the document holds unsaved edits, its lines are not the file's: the
// size is made impossible so that the next reading checks every line's text.
std::optional<bookmarks::SidecarFile> describeForWriting(const std::string& path, bool modified) {
  auto file = bookmarks::describeFile(path);
  if (file && modified) file->size = -1;
  return file;
}

}  // namespace

void DocumentTab::pruneSidecarsInBackground() {
  dispatch::WorkerPool::shared().async([] {
    if (const auto directory = SidecarStore::defaultDirectory()) {
      const int pruned = SidecarStore(*directory).prune(std::chrono::system_clock::now());
      if (pruned > 0)
        base::logLine("pruned " + std::to_string(pruned) + " sidecars of files gone for 90 days");
    }
  });
}

void DocumentTab::createBookmarks() {
  bookmarks_ = std::make_shared<bookmarks::DocumentBookmarks>();
  doc_->setLineAnchors(bookmarks_);
  bookmarks_->setChangeHandler([this] { noteBookmarksChanged(); });
  sidecarTimer_ = new QTimer(this);
  sidecarTimer_->setSingleShot(true);
  sidecarTimer_->setInterval(kSidecarDelayMs);
  connect(sidecarTimer_, &QTimer::timeout, this, &DocumentTab::writeBookmarks);
  connect(this, &DocumentTab::bookmarksChanged, this, &DocumentTab::filterBookmarksChanged);
  if (!keepsSidecar(*doc_)) return;
  sidecarQueue_ = std::make_shared<dispatch::SerialQueue>("quorin.sidecar");
  reanchorWaitsForLines_ = true;
  bookmarksLinesCounted(doc_->snapshot().lines.isComplete);
}

void DocumentTab::closeBookmarks() {
  sidecarTimer_->stop();
  bookmarkSearch_.cancel();
  if (reanchorJob_) reanchorJob_->cancel();
  if (bookmarksDirty_ && sidecarQueue_) writeBookmarks();
  // Waits for the writes queued: the last one must be on disk before the program may end.
  sidecarQueue_.reset();
  bookmarks_->setChangeHandler(nullptr);
  doc_->setLineAnchors(nullptr);
}

void DocumentTab::noteBookmarksChanged() {
  // Edits tell the set even when it is empty: nothing to say then.
  if (bookmarks_->empty() && !hadBookmarks_) return;
  hadBookmarks_ = !bookmarks_->empty();
  markBookmarksChanged();
}

void DocumentTab::markBookmarksChanged() {
  ++bookmarksGeneration_;
  if (!applyingSidecar_) {
    bookmarksDirty_ = true;
    if (sidecarQueue_ && !reanchorWaitsForLines_ && reanchorGeneration_ == 0) sidecarTimer_->start();
  }
  // One notice per turn of the event loop, however many changes (an undo of many edits).
  if (bookmarksChangePosted_) return;
  bookmarksChangePosted_ = true;
  QTimer::singleShot(0, this, [this] {
    bookmarksChangePosted_ = false;
    emit bookmarksChanged();
  });
}

void DocumentTab::bookmarksFollow(const document::DocumentChange& change) {
  using Kind = document::DocumentChange::Kind;
  if (change.kind == Kind::reload && sidecarQueue_) {
    // The file was read again. The old text's lines cannot be hashed now (a
    // file rewritten in place shows its new bytes through the old text too):
    // the sidecar as last written is read again and re-anchored on the new text.
    sidecarTimer_->stop();
    bookmarksDirty_ = false;
    applyingSidecar_ = true;
    bookmarks_->replaceAll({});
    applyingSidecar_ = false;
    lostBookmarks_.clear();
    reanchorWaitsForLines_ = true;
  } else if (reanchorGeneration_ != 0 && change.kind != Kind::append) {
    // A read under way counted lines in the text before this edit: again, on
    // this text, once its lines are all counted.
    reanchorWaitsForLines_ = true;
  }
  if (reanchorWaitsForLines_ && reanchorJob_) {
    reanchorJob_->cancel();
    reanchorJob_.reset();
    reanchorGeneration_ = 0;
  }
  if (reanchorWaitsForLines_ && doc_->snapshot().lines.isComplete) bookmarksLinesCounted(true);
}

void DocumentTab::bookmarksLinesCounted(bool complete) {
  if (!complete || !reanchorWaitsForLines_) return;
  reanchorWaitsForLines_ = false;
  startReanchor();
}

void DocumentTab::startReanchor() {
  if (reanchorJob_) reanchorJob_->cancel();
  const uint64_t generation = ++reanchorCounter_;
  reanchorGeneration_ = generation;
  auto job = jobs_.begin("Reading bookmarks");
  reanchorJob_ = job;
  const document::DocumentSnapshot snapshot = doc_->snapshot();
  auto directory = SidecarStore::defaultDirectory();
  const std::string path = doc_->path();
  QPointer<DocumentTab> self(this);
  dispatch::MainQueue* queue = &mainQueue_;
  // On the sidecar's queue: after the writes queued before, and joined when
  // the tab closes, so that no answer is posted once the tab is gone.
  sidecarQueue_->async([=, directory = std::move(directory)]() mutable {
    std::optional<Sidecar> read;
    std::filesystem::path foundAt;
    bool unchanged = false;
    if (directory) {
      const SidecarStore store(*directory);
      if (const auto file = bookmarks::describeFile(path)) {
        if (auto found = store.find(*file)) {
          read = std::move(found->sidecar);
          foundAt = std::move(found->foundAt);
          unchanged = found->unchanged;
        }
      }
    }
    bookmarks::ReanchorResult result;
    if (read) result = bookmarks::reanchor(*read, unchanged, snapshot, [job] { return job->isCancelled(); });
    job->finish();
    if (result.cancelled) return;
    // Lines that moved, or a file that changed, are worth recording again.
    const bool rewrite = read && !unchanged;
    queue->post([self, generation, rewrite, read = std::move(read), foundAt = std::move(foundAt),
                 result = std::move(result)]() mutable {
      if (self)
        self->finishReanchor(generation, rewrite, std::move(read), std::move(foundAt),
                             std::move(result.bookmarks), std::move(result.lost));
    });
  });
}

void DocumentTab::finishReanchor(uint64_t generation, bool rewrite, std::optional<Sidecar> read,
                                 std::filesystem::path foundAt, std::vector<Bookmark> found,
                                 std::vector<SidecarBookmark> lost) {
  // Edits and reloads meanwhile started another read; appended lines move none.
  if (generation != reanchorGeneration_) return;
  reanchorGeneration_ = 0;
  reanchorJob_.reset();
  if (!read) {
    if (bookmarksDirty_) sidecarTimer_->start();
    return;
  }
  sidecarAt_ = std::move(foundAt);
  // Bookmarks the user set while the sidecar was read stay, with their notes.
  for (const Bookmark& mark : bookmarks_->set().all()) {
    const auto at = std::lower_bound(found.begin(), found.end(), mark.line,
                                     [](const Bookmark& b, int64_t line) { return b.line < line; });
    if (at != found.end() && at->line == mark.line) {
      if (!mark.note.empty()) at->note = mark.note;
    } else {
      found.insert(at, mark);
    }
  }
  lostBookmarks_ = std::move(lost);
  applyingSidecar_ = true;
  bookmarks_->replaceAll(found);
  // Notes typed while the sidecar was read win over the ones it held.
  if (bookmarks_->notes().empty()) bookmarks_->setNotes(read->notes);
  applyingSidecar_ = false;
  // Re-anchored lines are new to the sidecar; so is anything the user set meanwhile.
  if (rewrite || bookmarksDirty_) {
    bookmarksDirty_ = true;
    sidecarTimer_->start();
  }
  if (!read->bookmarks.empty() || !lostBookmarks_.empty())
    emit statusMessage(BookmarkTexts::restored(static_cast<int64_t>(bookmarks_->set().size()),
                                               static_cast<int64_t>(lostBookmarks_.size())));
}

void DocumentTab::writeBookmarks() {
  // Until the sidecar is read, what is here is not all there is: writing now
  // would replace the bookmarks it holds. Once read, the timer starts again.
  if (!sidecarQueue_ || !bookmarksDirty_ || isReadingBookmarks()) return;
  auto directory = SidecarStore::defaultDirectory();
  if (!directory) {
    if (!reportedSidecarFailure_) emit statusMessage(BookmarkTexts::saveFailed(qt(directory.error())));
    reportedSidecarFailure_ = true;
    return;
  }
  bookmarksDirty_ = false;
  const std::string path = doc_->path();
  const bool modified = doc_->isModified();
  QPointer<DocumentTab> self(this);
  dispatch::MainQueue* queue = &mainQueue_;
  sidecarQueue_->async([=, marks = bookmarks_->set().all(), lost = lostBookmarks_,
                        notes = bookmarks_->notes(), replacing = sidecarAt_, snapshot = doc_->snapshot(),
                        directory = std::move(*directory)] {
    const auto file = describeForWriting(path, modified);
    if (!file) return base::logLine("bookmarks of " + path + " not saved: the file cannot be read");
    SidecarStore store(directory);
    const auto written = store.write(bookmarks::sidecarFor(*file, marks, lost, notes, snapshot), replacing);
    if (!written) base::logLine("bookmarks of " + path + " not saved: " + written.error().describe());
    const QString failure = written ? QString() : qt(written.error().describe());
    queue->post([self, failure, at = directory / SidecarStore::fileName(*file)] {
      if (!self) return;
      if (failure.isEmpty()) {
        self->sidecarAt_ = at;
        self->reportedSidecarFailure_ = false;
      } else if (!self->reportedSidecarFailure_) {
        self->reportedSidecarFailure_ = true;
        emit self->statusMessage(BookmarkTexts::saveFailed(failure));
      }
    });
  });
}

void DocumentTab::toggleBookmark() { bookmarks_->toggle(caretLine()); }

void DocumentTab::setBookmarkNote(int64_t line, const QString& note) {
  bookmarks_->setNote(line, note.toStdString());
}

void DocumentTab::clearBookmarks() {
  const auto count = static_cast<int64_t>(bookmarks_->set().size() + lostBookmarks_.size());
  if (!lostBookmarks_.empty()) {
    lostBookmarks_.clear();
    markBookmarksChanged();
  }
  bookmarks_->clear();
  emit statusMessage(BookmarkTexts::cleared(count));
}

void DocumentTab::forgetLostBookmark(int64_t savedLine) {
  const auto gone =
      std::erase_if(lostBookmarks_, [savedLine](const SidecarBookmark& m) { return m.line == savedLine; });
  if (gone > 0) markBookmarksChanged();
}

void DocumentTab::stepToBookmark(bool forward) {
  const auto& set = bookmarks_->set();
  if (set.empty()) return emit statusMessage(BookmarkTexts::none());
  const search::LineProjection* shown = view_->shownLines();
  const int64_t from = caretLine();
  bool wrapped = false;
  std::optional<int64_t> landing;
  int64_t at = from;
  // Bookmarks on lines the filter hides are passed over: each is looked at once at most.
  for (size_t tries = 0; tries < set.size(); ++tries) {
    const auto step = forward ? set.next(at) : set.previous(at);
    if (!step) break;
    wrapped = wrapped || step->wrapped;
    at = step->line;
    if (!shown || shown->isVisible(at)) {
      landing = at;
      break;
    }
  }
  if (!landing) return emit statusMessage(BookmarkTexts::noneShown());
  const auto start = doc_->snapshot().lines.lineStart(*landing);
  if (!start) return;
  view_->scrollToOffset(*start, true);
  view_->select(*start, *start);
  if (wrapped) emit statusMessage(BookmarkTexts::wrapped(forward));
}

void DocumentTab::bookmarkAllMatches() {
  const search::SearchOptions options = find_->options();
  if (options.query.empty()) {
    emit statusMessage(BookmarkTexts::needFindText());
    find_->activate();
    return;
  }
  bookmarkSearch_.cancel();
  emit statusMessage(BookmarkTexts::searching());
  static const search::SearchEngine engine;
  const auto snapshot = doc_->snapshot();
  QPointer<DocumentTab> self(this);
  bookmarkSearch_ = engine.start(
      kBookmarkAllCap, options, snapshot.text, snapshot.lines,
      [self](search::SearchResult result) {
        if (self) self->finishMatchBookmarks(std::move(result));
      },
      &mainQueue_);
}

void DocumentTab::finishMatchBookmarks(search::SearchResult result) {
  bookmarkSearch_ = {};
  if (result.cancelled) return;
  if (result.compileError) return emit statusMessage(qt(*result.compileError));
  if (result.snapshotVersion != doc_->version()) return emit statusMessage(BookmarkTexts::textChanged());
  std::vector<int64_t> lines;
  lines.reserve(result.matches.size());
  for (const search::SearchMatch& match : result.matches) {
    if (lines.empty() || lines.back() != match.line) lines.push_back(match.line);
  }
  bookmarks_->addAll(lines);
  QString text = BookmarkTexts::bookmarkedMatches(static_cast<int64_t>(lines.size()));
  if (result.truncated) text += BookmarkTexts::matchCap(kBookmarkAllCap);
  if (result.timedOut) text += BookmarkTexts::matchTimedOut();
  emit statusMessage(text);
}

void DocumentTab::bookmarkShownLines() {
  const search::LineProjection* shown = view_->shownLines();
  if (!shown) return emit statusMessage(BookmarkTexts::noFilter());
  std::vector<int64_t> lines;
  const int64_t count = std::min(shown->visibleLineCount(), kBookmarkAllCap);
  lines.reserve(static_cast<size_t>(count));
  for (int64_t row = 0; row < count; ++row) {
    if (const auto line = shown->line(row)) lines.push_back(*line);
  }
  bookmarks_->addAll(lines);
  emit statusMessage(BookmarkTexts::bookmarkedShown(static_cast<int64_t>(lines.size()),
                                                    shown->visibleLineCount() > count, kBookmarkAllCap));
}

QString DocumentTab::lineTimeText(int64_t line) const {
  if (!logData_->hasTimes()) return {};
  const auto message = logs::messageAt(*logData_, logSource(), rules_, line);
  return message.time ? qt(logs::formatLineTime(*message.time)) : QString();
}

QString DocumentTab::bookmarkTimeText() const {
  if (!logData_->hasTimes() || bookmarks_->empty()) return {};
  const int64_t caret = caretLine();
  const auto above = bookmarks_->set().previous(caret);
  if (!above || above->wrapped) return {};
  const logs::LogSource source = logSource();
  const auto from = logs::messageAt(*logData_, source, rules_, above->line).time;
  const auto to = logs::messageAt(*logData_, source, rules_, caret).time;
  if (!from || !to) return {};
  return BookmarkTexts::sinceBookmark(qt(logs::formatDuration(to->micros - from->micros)), above->line);
}

}  // namespace quorin::app
