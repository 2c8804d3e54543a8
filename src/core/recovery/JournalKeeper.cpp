#include "recovery/JournalKeeper.h"

#include <fcntl.h>
#include <unistd.h>

namespace quorin::recovery {

std::vector<JournalSite> sitesFromPieces(const storage::PieceTableSnapshot& text) {
  std::vector<JournalSite> sites;
  // Pieces of the base count in the file's bytes, past a byte-order mark
  // the document does not hold; sites count document bytes.
  const int64_t markBytes = text.originalBuffer().contentStart();
  int64_t cursor = 0;  // in the base, document bytes
  int64_t at = 0;      // in the text being rebuilt
  const auto removeTo = [&](int64_t baseOffset) {
    if (baseOffset > cursor) sites.push_back({at, baseOffset - cursor, {}});
    cursor = std::max(cursor, baseOffset);
  };
  const auto& pieces = text.pieces();
  for (size_t i = 0; i < pieces.size(); ++i) {
    const storage::Piece& piece = pieces[i];
    if (piece.source == storage::PieceSource::original && piece.offset - markBytes >= cursor) {
      removeTo(piece.offset - markBytes);
      cursor = piece.sourceEnd() - markBytes;
    } else {
      // Appended bytes, or base bytes used out of order: inserted as they are.
      const int64_t start = text.prefixLengths()[i] - piece.length;
      std::string bytes = text.readBytes({start, start + piece.length}).value_or("");
      // Joined to a site that ends here (an insertion, or a removal at this very place).
      if (!sites.empty() && sites.back().offset + static_cast<int64_t>(sites.back().inserted.size()) == at) {
        sites.back().inserted += bytes;
      } else {
        sites.push_back({at, 0, std::move(bytes)});
      }
    }
    at += piece.length;
  }
  removeTo(text.originalBuffer().documentLength());
  return sites;
}

JournalKeeper::JournalKeeper(Options options)
    : options_(std::move(options)), io_(options_.io ? *options_.io : persistence::FileIo::system()) {
  if (!options_.now) options_.now = [] { return Clock::now(); };
}

std::optional<std::filesystem::path> JournalKeeper::journalPath() const {
  return journal_ ? std::optional(journal_->path()) : std::nullopt;
}

void JournalKeeper::pause(const JournalWriteError& error) {
  // The journal keeps what it holds up to the failed record; recording
  // starts again from the whole text at the next edit.
  journal_.reset();
  paused_ = true;
  status_ = "Crash recovery paused: " + error.describe();
  if (options_.onStatus) options_.onStatus(status_);
}

bool JournalKeeper::ensureJournal() {
  if (journal_) return true;
  if (paused_) return options_.text && textIsOverBase_ && startFromText();
  auto created = RecoveryJournal::create(options_.directory, options_.header, io_);
  if (!created) {
    pause(created.error());
    return false;
  }
  journal_ = std::move(*created);
  bytesAtSaveStart_ = -1;
  resumed();
  return true;
}

bool JournalKeeper::startFromText() {
  auto created = RecoveryJournal::create(options_.directory, options_.header, io_);
  if (!created) {
    pause(created.error());
    return false;
  }
  const auto sites = sitesFromPieces(options_.text());
  std::vector<SiteView> views;
  views.reserve(sites.size());
  for (const JournalSite& s : sites) views.push_back({s.offset, s.removed, s.inserted});
  if (auto written = created->append(views); !written) {
    created->discard();
    pause(written.error());
    return false;
  }
  // Only now that the new one holds everything may the old one go.
  if (journal_) journal_->discard();
  journal_ = std::move(*created);
  bytesAtSaveStart_ = -1;
  resumed();
  return true;
}

void JournalKeeper::resumed() {
  if (!paused_) return;
  paused_ = false;
  status_.clear();
  if (options_.onStatus) options_.onStatus(status_);
}

void JournalKeeper::compactIfLarge() {
  if (!journal_ || !options_.text || !textIsOverBase_ ||
      journal_->bytesWritten() <= options_.compactAboveBytes) {
    return;
  }
  // A save in flight counts on the records after its mark: compact after it.
  if (bytesAtSaveStart_ >= 0) return;
  int64_t appended = 0;
  const auto text = options_.text();
  for (const storage::Piece& piece : text.pieces()) {
    if (piece.source == storage::PieceSource::append) appended += piece.length;
  }
  if (journal_->bytesWritten() > 2 * appended + options_.compactAboveBytes / 2) startFromText();
}

void JournalKeeper::recorded(std::span<const document::RecordedSite> sites) {
  if (sites.empty()) return;
  const bool resuming = paused_;
  if (!ensureJournal()) return;
  lastEdit_ = options_.now();
  if (!lastFlush_) lastFlush_ = lastEdit_;
  // A fresh journal after a pause already holds this edit (it was built from the text).
  if (resuming) return;
  std::vector<SiteView> views;
  views.reserve(sites.size());
  for (const auto& site : sites) views.push_back({site.offset, site.removed, site.inserted});
  if (auto written = journal_->append(views); !written) return pause(written.error());
  compactIfLarge();
}

void JournalKeeper::saveStarted() { bytesAtSaveStart_ = journal_ ? journal_->bytesWritten() : -1; }

void JournalKeeper::saved(const std::optional<storage::FileIdentity>& identity, const std::string& path,
                          bool unchanged) {
  JournalHeader& header = options_.header;
  header.path = path;
  header.untitled = path.empty();
  if (identity) {
    header.device = identity->device;
    header.inode = identity->inode;
    header.size = identity->size;
    header.mtimeSeconds = identity->mtimeSeconds;
    header.mtimeNanos = identity->mtimeNanoseconds;
  }
  textIsOverBase_ = unchanged;
  if (unchanged || !journal_ || bytesAtSaveStart_ < 0) {
    end();
    return;
  }
  // Edits came in while the save ran: they apply to the file as saved. They
  // move to a journal of that base, read back from the old one.
  std::string tail;
  {
    const int fd = io_.open(journal_->path().c_str(), O_RDONLY | O_CLOEXEC, 0);
    if (fd >= 0) {
      tail.resize(static_cast<size_t>(journal_->bytesWritten() - bytesAtSaveStart_));
      const ssize_t n = io_.pread(fd, tail.data(), tail.size(), bytesAtSaveStart_);
      io_.close(fd);
      if (n != static_cast<ssize_t>(tail.size())) tail.clear();
    }
  }
  end();
  if (tail.empty()) return;
  if (!ensureJournal()) return;
  if (auto written = journal_->appendRaw(tail); !written) pause(written.error());
}

void JournalKeeper::textReplaced() {
  textIsOverBase_ = true;
  end();
}

void JournalKeeper::end() {
  if (journal_) journal_->discard();
  journal_.reset();
  bytesAtSaveStart_ = -1;
  lastEdit_.reset();
  lastFlush_.reset();
}

void JournalKeeper::closed() { end(); }

void JournalKeeper::flushIfDue() {
  if (!journal_ || !journal_->dirty() || !lastEdit_) return;
  const auto now = options_.now();
  if (now - *lastEdit_ < kQuietFlush && now - *lastFlush_ < kLongestUnflushed) return;
  if (auto flushed = journal_->flush(); !flushed) return pause(flushed.error());
  lastFlush_ = now;
}

}  // namespace quorin::recovery
