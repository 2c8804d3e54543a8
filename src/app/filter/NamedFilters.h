#pragma once

#include <QString>
#include <optional>
#include <vector>

#include "filter/FilterOptions.h"

namespace quorin::app {

// The user's named filters, kept in the settings under "QuorinNamedFilters"
// as the JSON of filter::namedFiltersToJson. A setting that does not read
// is reported (once a session) and left as it was until the user saves a
// named filter: then its text is kept under "QuorinNamedFiltersUnreadable"
// before the new list is written.
class NamedFilters {
 public:
  static constexpr const char* kSettingsKey = "QuorinNamedFilters";
  static constexpr const char* kUnreadableKey = "QuorinNamedFiltersUnreadable";

  // The stored list; empty when none or unreadable (then `problem` says why,
  // the first time in this session only).
  static std::vector<filter::NamedFilter> load(QString* problem = nullptr);
  static void store(const std::vector<filter::NamedFilter>& filters);

  // Saves `options` under `name`, replacing a filter of that name.
  static void save(const QString& name, const filter::FilterOptions& options);
  static bool rename(const QString& from, const QString& to);
  static bool remove(const QString& name);
  static std::optional<filter::NamedFilter> find(const QString& name);
};

}  // namespace quorin::app
