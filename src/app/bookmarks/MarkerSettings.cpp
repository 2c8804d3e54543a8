#include "app/bookmarks/MarkerSettings.h"

#include <QCoreApplication>
#include <QSettings>

namespace quorin::app {

std::vector<bookmarks::MarkerRule> loadMarkerRules(QString* problem) {
  const QString stored = QSettings().value(QLatin1String(kMarkersKey)).toString();
  if (stored.trimmed().isEmpty()) return {};
  auto rules = bookmarks::markerRulesFromJson(stored.toStdString());
  if (rules) return std::move(*rules);
  if (problem) {
    *problem = QCoreApplication::translate("MarkerSettings", "Markers: the setting was not used (%1)")
                   .arg(QString::fromStdString(rules.error()));
  }
  return {};
}

void saveMarkerRules(const std::vector<bookmarks::MarkerRule>& rules) {
  QSettings().setValue(QLatin1String(kMarkersKey),
                       QString::fromStdString(bookmarks::markerRulesToJson(rules)));
}

}  // namespace quorin::app
