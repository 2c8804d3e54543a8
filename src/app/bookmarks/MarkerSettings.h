#pragma once

#include <QString>
#include <vector>

#include "bookmarks/Markers.h"

namespace quorin::app {

// The user's highlight rules, kept in the settings as JSON (bookmarks/Markers.h).
inline constexpr const char* kMarkersKey = "QuorinMarkers";

// The stored rules; none (and the reason in `problem`) when the setting is malformed.
std::vector<bookmarks::MarkerRule> loadMarkerRules(QString* problem = nullptr);
void saveMarkerRules(const std::vector<bookmarks::MarkerRule>& rules);

}  // namespace quorin::app
