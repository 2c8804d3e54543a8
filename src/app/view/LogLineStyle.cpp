#include "app/view/LogLineStyle.h"

#include <algorithm>
#include <string>

#include "logs/TimeNavigator.h"

namespace quorin::app {
namespace {

// How far up a continuation line at the top of the view looks for the line
// that starts its message, when the index cannot say.
constexpr int kMessageLookBack = 256;

bool isWordByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

// The first whole word after the timestamp that names `level` (the level
// word itself, or a key's value such as `level=error`); empty when the level
// came from elsewhere (a user rule, a syslog priority).
std::pair<size_t, size_t> levelWordSpan(std::string_view line, size_t from, logs::Level level) {
  const size_t end = std::min(line.size(), from + logs::kLevelWindowBytes);
  for (size_t i = from; i < end;) {
    if (!isWordByte(line[i])) {
      ++i;
      continue;
    }
    size_t j = i;
    while (j < line.size() && isWordByte(line[j])) ++j;
    if (j <= end && logs::detectLevel(line.substr(i, j - i)) == level) return {i, j};
    i = j;
  }
  return {0, 0};
}

QColor blend(const QColor& a, const QColor& b, double amountOfB) {
  return QColor::fromRgbF(static_cast<float>(a.redF() + (b.redF() - a.redF()) * amountOfB),
                          static_cast<float>(a.greenF() + (b.greenF() - a.greenF()) * amountOfB),
                          static_cast<float>(a.blueF() + (b.blueF() - a.blueF()) * amountOfB));
}

bool isDark(const QPalette& palette) { return palette.color(QPalette::Base).lightnessF() < 0.5; }

// A hue at a lightness that reads on the palette's background.
QColor hue(const QPalette& palette, float h, float saturation) {
  return QColor::fromHslF(h / 360.0F, saturation, isDark(palette) ? 0.68F : 0.38F);
}

}  // namespace

void LogLineStyler::setLog(std::shared_ptr<const logs::LogIndexData> data, logs::SeverityRules rules) {
  const bool sameFormat = data_ && data && data_->format == data->format;
  if (!sameFormat || rules.generation() != rules_.generation()) cache_.clear();
  // Messages are found with the index's help: new data may place them better.
  messageCache_.clear();
  data_ = std::move(data);
  rules_ = std::move(rules);
}

LineLogStyle LogLineStyler::ownStyle(const TextLines& lines, const VisibleLine& row,
                                     logs::TimestampParser& parser) {
  if (const auto cached = cache_.find(row.lineStart); cached != cache_.end()) return cached->second;
  const int64_t end =
      std::min(row.contentEnd, row.lineStart + static_cast<int64_t>(logs::kUserRuleWindowBytes));
  const std::string bytes = end > row.lineStart
                                ? lines.text().readBytes({row.lineStart, end}).value_or(std::string())
                                : std::string();
  LineLogStyle style;
  size_t timestampEnd = 0;
  if (const auto time = parser.parse(bytes)) {
    style.head = true;
    style.timestamp = {row.lineStart + time->begin, row.lineStart + time->end};
    timestampEnd = static_cast<size_t>(time->end);
  }
  style.level = rules_.detect(bytes, timestampEnd);
  if (style.level != logs::Level::none) {
    const auto [from, to] = levelWordSpan(bytes, timestampEnd, style.level);
    if (to > from)
      style.levelWord = {row.lineStart + static_cast<int64_t>(from),
                         row.lineStart + static_cast<int64_t>(to)};
  }
  if (cache_.size() > 4096) cache_.clear();
  cache_.emplace(row.lineStart, style);
  return style;
}

logs::Level LogLineStyler::messageLevelAbove(const TextLines& lines, const VisibleLine& row) {
  if (const auto cached = messageCache_.find(row.lineStart); cached != messageCache_.end())
    return cached->second;
  logs::Level level = logs::Level::none;
  if (row.lineNumber && *row.lineNumber < data_->linesIndexed) {
    const logs::LogSource source{.text = lines.text(), .lines = lines.lines()};
    level = logs::messageAt(*data_, source, rules_, *row.lineNumber).level;
  } else {
    // Past the lines the indexes have read: look up a bounded way.
    logs::TimestampParser parser(*data_->format, data_->firstYear);
    std::optional<int64_t> start = lines.previousLineStart(row.lineStart);
    for (int i = 0; start && i < kMessageLookBack; ++i, start = lines.previousLineStart(*start)) {
      const LineLogStyle style = ownStyle(lines, {*start, lines.contentEnd(*start), std::nullopt}, parser);
      if (style.head) {
        level = style.level;
        break;
      }
    }
  }
  if (messageCache_.size() > 256) messageCache_.clear();
  messageCache_.emplace(row.lineStart, level);
  return level;
}

std::vector<LineLogStyle> LogLineStyler::style(const TextLines& lines, std::span<const VisibleLine> rows) {
  std::vector<LineLogStyle> styles(rows.size());
  if (!active()) return styles;
  if (lines.text().version() != cacheVersion_) {
    cache_.clear();
    messageCache_.clear();
    cacheVersion_ = lines.text().version();
  }
  logs::TimestampParser parser(*data_->format, data_->firstYear);
  std::optional<logs::Level> message;  // the level of the message the next line continues
  for (size_t i = 0; i < rows.size(); ++i) {
    LineLogStyle style = ownStyle(lines, rows[i], parser);
    if (!style.head) {
      // A continuation line takes its message's level; its own words are not levels.
      if (!message) message = messageLevelAbove(lines, rows[i]);
      style.level = *message;
      style.levelWord = {};
    } else {
      message = style.level;
    }
    styles[i] = style;
  }
  return styles;
}

QColor LogLineColors::word(logs::Level level, const QPalette& palette) {
  const QColor base = palette.color(QPalette::Base);
  const QColor text = palette.color(QPalette::Text);
  switch (level) {
    case logs::Level::fatal: return hue(palette, 320, 0.85F);
    case logs::Level::critical: return hue(palette, 345, 0.85F);
    case logs::Level::error: return hue(palette, 2, 0.80F);
    case logs::Level::warning: return hue(palette, 32, 0.90F);
    case logs::Level::notice: return hue(palette, 180, 0.70F);
    case logs::Level::info: return hue(palette, 210, 0.65F);
    case logs::Level::debug: return blend(base, text, 0.60);
    case logs::Level::trace: return blend(base, text, 0.45);
    case logs::Level::none: break;
  }
  return text;
}

QColor LogLineColors::lineTint(logs::Level level, const QPalette& palette) {
  if (level < logs::Level::warning) return Qt::transparent;
  QColor tint = word(level, palette);
  // Faint: the text stays the thing to read; dark backgrounds need a little more.
  const double alpha = level == logs::Level::warning ? 0.10 : 0.14;
  tint.setAlphaF(static_cast<float>(isDark(palette) ? alpha * 1.3 : alpha));
  return tint;
}

QColor LogLineColors::timestamp(const QPalette& palette) {
  return blend(palette.color(QPalette::Base), palette.color(QPalette::Text), 0.55);
}

}  // namespace quorin::app
