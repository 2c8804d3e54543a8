#include "app/SeverityRulesSetting.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <optional>

namespace quorin::app {
namespace {

QString tr(const char* text) { return QCoreApplication::translate("SeverityRulesSetting", text); }

std::optional<logs::Level> levelNamed(const QString& name) {
  const QString lower = name.trimmed().toLower();
  if (lower == QLatin1String("none")) return logs::Level::none;
  for (auto level = static_cast<uint8_t>(logs::Level::trace);
       level <= static_cast<uint8_t>(logs::Level::fatal); ++level) {
    const auto candidate = static_cast<logs::Level>(level);
    if (lower ==
        QLatin1String(logs::name(candidate).data(), static_cast<qsizetype>(logs::name(candidate).size())))
      return candidate;
  }
  return std::nullopt;
}

}  // namespace

std::expected<std::vector<logs::SeverityRule>, SeverityRulesSettingError> parseSeverityRules(
    const QString& json) {
  if (json.trimmed().isEmpty()) return std::vector<logs::SeverityRule>{};
  QJsonParseError error;
  const QJsonDocument document = QJsonDocument::fromJson(json.toUtf8(), &error);
  if (error.error != QJsonParseError::NoError || !document.isArray())
    return std::unexpected(SeverityRulesSettingError{
        tr("Severity rules: the setting is not a JSON array of {\"text\" or \"regex\", \"level\"}")});
  std::vector<logs::SeverityRule> rules;
  int number = 0;
  for (const QJsonValue& value : document.array()) {
    ++number;
    const QJsonObject object = value.toObject();
    const bool regex = object.contains(QLatin1String("regex"));
    const QString pattern = object.value(regex ? QLatin1String("regex") : QLatin1String("text")).toString();
    const auto level = levelNamed(object.value(QLatin1String("level")).toString());
    if (pattern.isEmpty() || !level)
      return std::unexpected(SeverityRulesSettingError{
          tr("Severity rule %1 needs a \"text\" or \"regex\" and a level from trace to fatal, or none")
              .arg(number)});
    rules.push_back({.pattern = pattern.toStdString(), .regex = regex, .level = *level});
  }
  return rules;
}

logs::SeverityRules loadSeverityRules(QString* problem) {
  logs::SeverityRules rules;
  const QString stored = QSettings().value(QLatin1String(kSeverityRulesKey)).toString();
  auto parsed = parseSeverityRules(stored);
  if (!parsed) {
    if (problem) *problem = parsed.error().describe();
    return rules;
  }
  if (parsed->empty()) return rules;
  if (auto set = rules.setUserRules(std::move(*parsed)); !set && problem)
    *problem = tr("Severity rule %1: %2")
                   .arg(set.error().rule + 1)
                   .arg(QString::fromStdString(set.error().describe()));
  return rules;
}

}  // namespace quorin::app
