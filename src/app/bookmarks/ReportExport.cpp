#include "app/bookmarks/ReportExport.h"

#include <QCoreApplication>

#include "app/DocumentTab.h"
#include "app/bookmarks/NotesPanel.h"
#include "logs/Messages.h"
#include "persistence/SmallFile.h"

namespace quorin::app {

std::string lineTimeText(const DocumentTab& tab, int64_t line) {
  const auto data = tab.logData();
  if (!data || !data->format || data->blocks.empty()) return {};
  const logs::LogSource source = tab.logSource();
  logs::LineHeads heads(source);
  const auto head = logs::headAtOrAbove(*data, heads, line);
  return head ? logs::formatLineTime(head->time) : std::string();
}

bookmarks::IncidentReport incidentReportOf(const DocumentTab& tab, int contextLines) {
  const auto snapshot = tab.document().snapshot();
  const bookmarks::ReportSources sources{.snapshot = &snapshot,
                                         .timeOfLine = [&](int64_t line) { return lineTimeText(tab, line); },
                                         .contextLines = contextLines};
  const auto marks = NotesPanel::bookmarksOf(tab);
  const QString name = tab.path().isEmpty() ? tab.title() : tab.path();
  return bookmarks::gatherReport(sources, name.toStdString(),
                                 marks ? marks->set().all() : std::vector<bookmarks::Bookmark>{},
                                 tab.lostBookmarks(), marks ? marks->notes() : std::string());
}

std::optional<QString> saveIncidentReport(const DocumentTab& tab, const QString& path, int contextLines) {
  const auto report = incidentReportOf(tab, contextLines);
  const bool html = path.endsWith(QLatin1String(".html"), Qt::CaseInsensitive) ||
                    path.endsWith(QLatin1String(".htm"), Qt::CaseInsensitive);
  const std::string text = html ? bookmarks::reportHtml(report) : bookmarks::reportMarkdown(report);
  if (auto written = persistence::writeFileAtomically(path.toStdString(), text); !written) {
    return QCoreApplication::translate("ReportExport", "The report could not be saved: %1")
        .arg(QString::fromStdString(written.error().describe()));
  }
  return std::nullopt;
}

}  // namespace quorin::app
