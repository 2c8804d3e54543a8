#pragma once

#include <QPointer>
#include <QString>
#include <QWidget>
#include <memory>
#include <optional>

#include "dispatch/MainQueue.h"
#include "document/Document.h"

class QVBoxLayout;

namespace quorin::app {

class TextView;

// One open document in a tab: the document, its text view, and the panels a
// window adds above or below the view. It turns the document's notices into
// prompts and status texts, and runs saves (off the GUI thread) with their
// alerts. Thread-safety: GUI thread only. Lifetime: owns the document.
class DocumentTab : public QWidget {
  Q_OBJECT

 public:
  DocumentTab(std::shared_ptr<document::Document> document, QWidget* parent = nullptr);
  ~DocumentTab() override;

  document::Document& document() const { return *doc_; }
  const std::shared_ptr<document::Document>& sharedDocument() const { return doc_; }
  TextView* view() const { return view_; }
  // Adds a panel above (find bar) or below (go-to) the view.
  void addPanel(QWidget* panel, bool above);

  // The tab's title: the file name, with "•" while unsaved.
  QString title() const;
  // The file, or empty for an untitled document.
  QString path() const;

  // Status-bar texts.
  QString encodingText() const;
  QString lineEndingText() const;
  QString sizeText() const;
  QString indexText() const;
  QString followText() const { return followText_; }
  bool canCatchUp() const { return canCatchUp_; }

  // Saves; the outcome arrives as saveFinished. Untitled documents need saveAs.
  void save();
  void saveAs(const QString& path);
  bool isSaving() const { return doc_->isSaving(); }
  void setFollowing(bool follow);
  bool isFollowing() const { return doc_->isFollowing(); }
  void catchUpToLive();

 signals:
  void statusMessage(const QString& text);
  // Title, modified state, index progress or following changed.
  void stateChanged();
  void saveFinished(bool saved);

 private:
  void showLiveNotice(const document::LiveFileNotice& notice);
  void showStatus(const std::string& text);
  void finishSave(const std::expected<persistence::SaveOutcome, persistence::SaveError>& result);
  bool confirmLossySave();

  std::shared_ptr<document::Document> doc_;
  TextView* view_;
  QVBoxLayout* layout_;
  int listenerToken_ = 0;
  storage::LineIndexProgress progress_;
  QString followText_;
  bool canCatchUp_ = false;
  bool warnedTooLargeToUndo_ = false;
};

}  // namespace quorin::app
