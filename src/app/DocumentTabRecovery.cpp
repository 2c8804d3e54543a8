// A tab's crash-recovery journal: every edit recorded as it happens,
// flushed by a timer, ended by saving or closing.
#include <QTimer>

#include "app/DocumentTab.h"
#include "base/Log.h"
#include "storage/ScratchDirectory.h"

namespace quorin::app {
namespace {

std::string modeName(storage::LargeFileOpenMode mode) {
  switch (mode) {
    case storage::LargeFileOpenMode::windowedSlice: return "windowedSlice";
    case storage::LargeFileOpenMode::tail: return "tail";
    case storage::LargeFileOpenMode::wholeFileVirtual: return "wholeFileVirtual";
    case storage::LargeFileOpenMode::readOnlyInspect: return "readOnlyInspect";
  }
  return "";
}

}  // namespace

void DocumentTab::startCrashRecovery() {
  if (doc_->isReadOnly()) return;
  const auto root = storage::ScratchDirectory::root();
  if (!root) {
    base::logLine("no crash recovery for this document: " + root.error());
    return;
  }
  recovery::JournalHeader header{.path = doc_->path(),
                                 .title = title().toStdString(),
                                 .encoding = std::string(text::name(doc_->encoding())),
                                 .lineEnding = std::string(text::name(doc_->lineEnding())),
                                 .openMode = modeName(doc_->openMode()),
                                 .windowStart = doc_->editableRange().start,
                                 .windowEnd = doc_->editableRange().end,
                                 .untitled = doc_->isUntitled(),
                                 .pid = static_cast<int64_t>(::getpid()),
                                 .createdSeconds = static_cast<int64_t>(::time(nullptr))};
  if (const auto& id = doc_->fileIdentity()) {
    header.device = id->device;
    header.inode = id->inode;
    header.size = id->size;
    header.mtimeSeconds = id->mtimeSeconds;
    header.mtimeNanos = id->mtimeNanoseconds;
  }
  journal_ = std::make_shared<recovery::JournalKeeper>(recovery::JournalKeeper::Options{
      .directory = *root,
      .header = std::move(header),
      .text = [doc = doc_.get()] { return doc->snapshot().text; },
      .onStatus =
          [this](const std::string& status) {
            emit statusMessage(status.empty() ? tr("Crash recovery resumed")
                                              : QString::fromStdString(status));
          }});
  doc_->setEditRecorder(journal_);
  journalTimer_ = new QTimer(this);
  journalTimer_->setInterval(1000);
  connect(journalTimer_, &QTimer::timeout, this, [this] { journal_->flushIfDue(); });
  journalTimer_->start();
}

QString DocumentTab::recoveryJournalPath() const {
  const auto path = journal_ ? journal_->journalPath() : std::nullopt;
  return path ? QString::fromStdString(path->string()) : QString();
}

std::optional<QString> DocumentTab::applyRecoveredEdits(const std::vector<recovery::JournalRecord>& records) {
  doc_->beginUndoGroup(tr("Restore Unsaved Edits").toStdString(), {});
  std::optional<QString> problem;
  for (size_t r = 0; r < records.size() && !problem; ++r) {
    const auto& record = records[r];
    bool ascending = record.size() > 1;
    for (size_t i = 1; ascending && i < record.size(); ++i) {
      ascending =
          record[i].offset >= record[i - 1].offset + static_cast<int64_t>(record[i - 1].inserted.size());
    }
    const int64_t length = doc_->snapshot().text.totalLength();
    if (ascending) {
      std::vector<storage::PieceTable::BulkEditSite> sites;
      int64_t shift = 0;
      for (const auto& site : record) {
        sites.push_back({{site.offset - shift, site.offset - shift + site.removed}, site.inserted});
        shift += static_cast<int64_t>(site.inserted.size()) - site.removed;
      }
      if (sites.back().range.end > length || !doc_->replaceAll(sites, {}, {}, {})) {
        problem = tr("edit %1 of %2 does not fit the file").arg(r + 1).arg(records.size());
      }
      continue;
    }
    for (const auto& site : record) {
      if (site.offset + site.removed > doc_->snapshot().text.totalLength() ||
          !doc_->replace({site.offset, site.offset + site.removed}, site.inserted, {}, {})) {
        problem = tr("edit %1 of %2 does not fit the file").arg(r + 1).arg(records.size());
        break;
      }
    }
  }
  doc_->endUndoGroup({});
  return problem;
}

}  // namespace quorin::app
