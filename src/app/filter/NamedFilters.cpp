#include "app/filter/NamedFilters.h"

#include <QSettings>
#include <algorithm>

#include "app/filter/FilterTexts.h"
#include "filter/FilterSetJson.h"

namespace quorin::app {
namespace {

bool reportedUnreadable = false;

auto named(const QString& name) {
  return [wanted = name.toStdString()](const filter::NamedFilter& f) { return f.name == wanted; };
}

}  // namespace

std::vector<filter::NamedFilter> NamedFilters::load(QString* problem) {
  const QString stored = QSettings().value(QLatin1String(kSettingsKey)).toString();
  if (stored.trimmed().isEmpty()) return {};
  auto filters = filter::namedFiltersFromJson(stored.toStdString());
  if (filters) return std::move(*filters);
  if (problem && !reportedUnreadable) {
    reportedUnreadable = true;
    *problem = FilterTexts::badNamedFilters(QString::fromStdString(filters.error().describe()));
  }
  return {};
}

void NamedFilters::store(const std::vector<filter::NamedFilter>& filters) {
  QSettings settings;
  const QString stored = settings.value(QLatin1String(kSettingsKey)).toString();
  // What the user had, readable or not, is not lost to a new list.
  if (!stored.trimmed().isEmpty() && !filter::namedFiltersFromJson(stored.toStdString()))
    settings.setValue(QLatin1String(kUnreadableKey), stored);
  settings.setValue(QLatin1String(kSettingsKey), QString::fromStdString(filter::namedFiltersToJson(filters)));
}

void NamedFilters::save(const QString& name, const filter::FilterOptions& options) {
  auto filters = load();
  const auto at = std::ranges::find_if(filters, named(name));
  if (at != filters.end()) {
    at->options = options;
  } else {
    filters.push_back({name.toStdString(), options});
  }
  store(filters);
}

bool NamedFilters::rename(const QString& from, const QString& to) {
  auto filters = load();
  const auto at = std::ranges::find_if(filters, named(from));
  if (at == filters.end() || std::ranges::any_of(filters, named(to))) return false;
  at->name = to.toStdString();
  store(filters);
  return true;
}

bool NamedFilters::remove(const QString& name) {
  auto filters = load();
  const auto removed = std::erase_if(filters, named(name));
  if (removed > 0) store(filters);
  return removed > 0;
}

std::optional<filter::NamedFilter> NamedFilters::find(const QString& name) {
  const auto filters = load();
  const auto at = std::ranges::find_if(filters, named(name));
  if (at == filters.end()) return std::nullopt;
  return *at;
}

}  // namespace quorin::app
