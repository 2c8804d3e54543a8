#include "filter/LevelFromIndex.h"

#include <algorithm>
#include <cstring>

#include "logs/Messages.h"
#include "logs/TimestampParser.h"

namespace quorin::filter {
namespace {

constexpr size_t kFirstAlertSlot = logs::levelSlot(logs::Level::warning);
// Head lines per unit of parallel work.
constexpr size_t kHeadsPerSlice = 16 * 1024;
// Heads walked between two looks at the cancellation and the clock.
constexpr size_t kHeadsPerCheck = 256;

// Text read at a walk's first line (most messages are one line: enough
// for it and the start of the next), and at each later refill.
constexpr int64_t kFirstReadBytes = 320;
constexpr int64_t kReadBytes = 2048;

// Reads lines one after another, each as logs::LineHeads::read gives it
// (its first bytes, without the line break), through one buffer filled a
// few lines at a time: a line index look-up where a walk begins and where a
// line is too long for the buffer, line breaks found in the buffer
// otherwise. Reading after a head costs one small copy, not a look-up and
// a copy per line.
class ForwardLines {
 public:
  ForwardLines(const logs::LogSource& source, uint8_t terminator)
      : source_(source), terminator_(terminator), total_(source.text.totalLength()) {}

  // Moves to `line`: on through the line breaks the buffer still holds
  // when it is a little further on, else by a look-up.
  void seek(int64_t line) {
    while (line_ < line && pos_ >= bufferStart_ && pos_ < bufferEnd()) {
      const uint8_t* at = buffer_.data() + (pos_ - bufferStart_);
      const void* lineBreak = std::memchr(at, terminator_, static_cast<size_t>(bufferEnd() - pos_));
      if (lineBreak == nullptr) break;
      pos_ += static_cast<const uint8_t*>(lineBreak) - at + 1;
      ++line_;
    }
    if (line_ == line) return;
    line_ = line;
    pos_ = source_.lines.lineStart(line).value_or(total_);
    if (pos_ < bufferStart_ || pos_ >= bufferEnd()) load(kFirstReadBytes);
  }

  // The current line's first bytes; moves to the next line.
  std::string_view next() {
    const int64_t line = line_++;
    if (pos_ >= total_) return {};
    if (pos_ < bufferStart_ || pos_ >= bufferEnd()) load(kReadBytes);
    const uint8_t* begin = buffer_.data() + (pos_ - bufferStart_);
    auto held = static_cast<size_t>(bufferEnd() - pos_);
    const void* lineBreak = std::memchr(begin, terminator_, held);
    if (lineBreak == nullptr && held <= logs::kTimeWindowBytes && bufferEnd() < total_) {
      load(std::max<int64_t>(kReadBytes, logs::kTimeWindowBytes + 1));
      begin = buffer_.data();
      held = buffer_.size();
      lineBreak = std::memchr(begin, terminator_, held);
    }
    int64_t end = total_;  // where the next line starts
    if (lineBreak != nullptr) {
      end = pos_ + (static_cast<const uint8_t*>(lineBreak) - begin) + 1;
    } else if (bufferEnd() < total_) {
      end = source_.lines.lineStart(line + 1).value_or(total_);  // longer than the buffer
    }
    std::string_view text(reinterpret_cast<const char*>(begin),
                          std::min({held, static_cast<size_t>(end - pos_), logs::kTimeWindowBytes}));
    pos_ = std::max(end, pos_ + 1);
    // Cut at the first '\n', as LineHeads::read does: with LF breaks, the break found above.
    const void* newline = nullptr;
    if (terminator_ != '\n') {
      newline = std::memchr(text.data(), '\n', text.size());
    } else if (lineBreak != nullptr && static_cast<const uint8_t*>(lineBreak) < begin + text.size()) {
      newline = lineBreak;
    }
    if (newline != nullptr)
      text = text.substr(0, static_cast<size_t>(static_cast<const char*>(newline) - text.data()));
    if (!text.empty() && text.back() == '\r') text.remove_suffix(1);
    return text;
  }

 private:
  int64_t bufferEnd() const { return bufferStart_ + static_cast<int64_t>(buffer_.size()); }

  void load(int64_t want) {
    const int64_t end = std::min(total_, pos_ + want);
    buffer_.resize(static_cast<size_t>(std::max<int64_t>(end - pos_, 0)));
    const int64_t got = source_.text.copyBytes({pos_, end}, buffer_.data());
    buffer_.resize(static_cast<size_t>(std::clamp<int64_t>(got, 0, end - pos_)));
    bufferStart_ = pos_;
  }

  const logs::LogSource& source_;
  const uint8_t terminator_;
  const int64_t total_;
  int64_t line_ = 0;
  int64_t pos_ = 0;
  int64_t bufferStart_ = 0;
  std::vector<uint8_t> buffer_;
};

}  // namespace

bool indexKnowsTheLevels(const FilterJob& job, int64_t lines) {
  const CompiledFilter& f = job.filter;
  const logs::LogIndexData* data = job.context.logData.get();
  const auto atLeastWarning = [](logs::Level level) {
    return level == logs::Level::none || level >= logs::Level::warning;
  };
  return f.needsLevels() && atLeastWarning(f.minimumLevel) && atLeastWarning(f.belowLevel) &&
         data != nullptr && data->complete && data->linesIndexed == lines &&
         data->snapshotVersion == job.source.text.version() &&
         data->rulesGeneration == job.context.rules.generation() && lines <= int64_t{UINT32_MAX};
}

std::optional<LineWords> levelFromIndex(const FilterJob& job, int64_t lines, dispatch::WorkerPool& pool) {
  const CompiledFilter& f = job.filter;
  if (f.minimumLevel < logs::Level::warning || f.belowLevel != logs::Level::none || !f.windows.empty() ||
      !f.includes.empty() || !f.excludes.empty() || f.includeBookmarked || f.excludeBookmarked ||
      !indexKnowsTheLevels(job, lines))
    return std::nullopt;
  const logs::LogIndexData& data = *job.context.logData;
  size_t listed = 0;
  for (size_t slot = logs::levelSlot(f.minimumLevel); slot <= logs::levelSlot(logs::Level::fatal); ++slot)
    listed += data.alertLines[slot - kFirstAlertSlot].size();
  // Reading the line after each listed message beats reading every line in
  // order only while they are few.
  const int64_t sparse = job.limits.sparseAlertLines;
  if (sparse <= 0 || static_cast<int64_t>(listed) * sparse > lines) return std::nullopt;
  std::vector<uint32_t> heads;
  for (size_t slot = logs::levelSlot(job.filter.minimumLevel); slot <= logs::levelSlot(logs::Level::fatal);
       ++slot) {
    const auto& list = data.alertLines[slot - kFirstAlertSlot];
    const auto middle = static_cast<std::ptrdiff_t>(heads.size());
    heads.insert(heads.end(), list.begin(), list.end());
    std::inplace_merge(heads.begin(), heads.begin() + middle, heads.end());
  }
  // Each slice of heads gives the runs of lines its messages cover; the
  // runs are written into the bits afterwards, by one thread.
  const size_t slices = (heads.size() + kHeadsPerSlice - 1) / kHeadsPerSlice;
  std::vector<std::vector<std::pair<int64_t, int64_t>>> runs(slices);
  pool.parallelFor(slices, [&](size_t slice) {
    ForwardLines reader(job.source, job.terminator);
    std::optional<logs::TimestampParser> parser;
    if (data.format) parser.emplace(*data.format, data.firstYear);
    const size_t end = std::min(heads.size(), (slice + 1) * kHeadsPerSlice);
    for (size_t i = slice * kHeadsPerSlice; i < end; ++i) {
      if ((i - slice * kHeadsPerSlice) % kHeadsPerCheck == 0 && job.shouldStop()) return;
      const int64_t head = heads[i];
      int64_t last = head + 1;
      // A message runs to the next timestamped line (every line is one in a document without times).
      const int64_t next = i + 1 < heads.size() ? heads[i + 1] : lines;
      logs::LineTime time;
      if (parser && last < next) {
        reader.seek(last);
        while (last < next && !parser->parseInto(reader.next(), time)) ++last;
      }
      runs[slice].emplace_back(head, last);
    }
  });
  if (job.shouldStop()) return std::nullopt;
  LineWords words(static_cast<size_t>(wordsFor(lines)), 0);
  for (const auto& slice : runs) {
    for (const auto& [from, to] : slice) setRange(words, from, to);
  }
  job.addLines(lines);
  return words;
}

}  // namespace quorin::filter
