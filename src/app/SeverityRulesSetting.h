#pragma once

#include <QString>
#include <expected>
#include <vector>

#include "logs/SeverityRules.h"

namespace quorin::app {

// The user's severity rules as kept in the settings under kSeverityRulesKey:
// a JSON array, tried in order before the default rules, e.g.
//   [{"text": "OutOfMemory", "level": "fatal"},
//    {"regex": "^\\s+at ", "level": "none"}]
// "text" is a literal (found without regard to ASCII case), "regex" a PCRE2
// expression; "level" is trace … fatal, or "none" to keep the defaults out
// of matching lines.
inline constexpr const char* kSeverityRulesKey = "QuorinSeverityRules";

// Why the stored rules were not used; the text to show.
struct SeverityRulesSettingError {
  QString message;
  QString describe() const { return message; }
};

std::expected<std::vector<logs::SeverityRule>, SeverityRulesSettingError> parseSeverityRules(
    const QString& json);

// The rules the settings hold, compiled; the defaults alone (and the reason
// in `problem`) when they are missing, malformed or an expression does not
// compile.
logs::SeverityRules loadSeverityRules(QString* problem = nullptr);

}  // namespace quorin::app
