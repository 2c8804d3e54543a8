#include "filter/FilterChunk.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

#include "base/PageAligned.h"
#include "logs/SeverityRules.h"
#include "logs/TimestampParser.h"
#include "search/ByteSearch.h"

namespace quorin::filter {
namespace {

// Sets the bit of the line holding each match; matches come in ascending order.
class LineHits final : public search::MatchCollector {
 public:
  LineHits(const std::vector<uint32_t>& starts, LineWords& words, int64_t firstIndex,
           const std::function<bool()>& shouldStop)
      : starts_(starts), words_(words), firstIndex_(firstIndex), shouldStop_(shouldStop) {}

  bool add(size_t start, size_t) override {
    while (cursor_ + 2 < starts_.size() && starts_[cursor_ + 1] <= start) ++cursor_;
    setBit(words_, firstIndex_ + static_cast<int64_t>(cursor_));
    return true;
  }
  bool keepGoing() override { return !shouldStop_(); }

 private:
  const std::vector<uint32_t>& starts_;
  LineWords& words_;
  const int64_t firstIndex_;
  const std::function<bool()>& shouldStop_;
  size_t cursor_ = 0;
};

// A time as the log's own clock shows it: windows are typed in it.
int64_t wallMicros(const logs::LineTime& time) {
  return time.micros + int64_t{time.offsetSeconds} * 1'000'000;
}

// The same without the lines' starts: line breaks are counted only up to
// each match, so a window where nothing matches costs no per-line work.
class CountingLineHits final : public search::MatchCollector {
 public:
  CountingLineHits(const uint8_t* data, uint8_t terminator, LineWords& words, int64_t firstIndex,
                   const std::function<bool()>& shouldStop)
      : data_(data), terminator_(terminator), words_(words), index_(firstIndex), shouldStop_(shouldStop) {}

  bool add(size_t start, size_t) override {
    if (start > at_) {
      index_ += static_cast<int64_t>(search::countByte(data_ + at_, start - at_, terminator_));
      at_ = start;
    }
    setBit(words_, index_);
    return true;
  }
  bool keepGoing() override { return !shouldStop_(); }

 private:
  const uint8_t* data_;
  const uint8_t terminator_;
  LineWords& words_;
  int64_t index_;
  const std::function<bool()>& shouldStop_;
  size_t at_ = 0;
};

// The message a line belongs to, as far as levels and times go.
struct Message {
  logs::Level level = logs::Level::none;
  int64_t micros = logs::kNoTime;
  bool seenHead = false;  // false before the document's first timestamped line
};

class ChunkEvaluator {
 public:
  ChunkEvaluator(const FilterJob& job, int64_t firstLine, int64_t endLine)
      : job_(job), f_(job.filter), firstLine_(firstLine), endLine_(endLine) {
    const int64_t words = wordsFor(endLine - firstLine);
    inc_.assign(static_cast<size_t>(words), 0);
    exc_ = inc_;
    ok_ = inc_;
    out_.heads = inc_;
    if (job.format) parser_.emplace(*job.format, job.yearForYearless);
    if (const logs::LogIndexData* data = job.indexLevels) {
      for (size_t k = 0; k < data->alertLines.size(); ++k) {
        const auto& list = data->alertLines[k];
        cursors_[k] = static_cast<size_t>(
            std::lower_bound(list.begin(), list.end(), static_cast<uint32_t>(firstLine)) - list.begin());
      }
    }
  }

  ChunkOutput run() {
    const auto& lines = job_.source.lines;
    const int64_t total = job_.source.text.totalLength();
    int64_t pos = lines.lineStart(firstLine_).value_or(total);
    const int64_t chunkEnd =
        endLine_ < lines.knownLineCount() ? lines.lineStart(endLine_).value_or(total) : total;
    if (f_.needsMessages()) enterMessage();
    markBookmarks();
    int64_t line = firstLine_;
    while (pos < chunkEnd && line < endLine_) {
      if (job_.shouldStop()) return std::move(out_);
      const int64_t before = line;
      pos = window(pos, chunkEnd, line);
      job_.addLines(line - before);
    }
    // Lines with no bytes at the end (after a final line break).
    for (; line < endLine_; ++line) processLine(line - firstLine_, {});
    finish();
    out_.finished = true;
    return std::move(out_);
  }

 private:
  // Reads one window of whole lines from `pos`, evaluates it and returns where the next begins.
  int64_t window(int64_t pos, int64_t chunkEnd, int64_t& line) {
    int64_t want = job_.limits.windowBytes;
    int64_t windowEnd = 0;
    bool piece = false;  // one line longer than maxLineBytes: only its first bytes
    for (;;) {
      const int64_t cut = std::min(pos + want, chunkEnd);
      read(pos, cut);
      if (cut == chunkEnd) {
        windowEnd = cut;
        break;
      }
      if (const void* last = memrchr(buffer_.data(), job_.terminator, buffer_.size())) {
        windowEnd = pos + (static_cast<const uint8_t*>(last) - buffer_.data()) + 1;
        buffer_.resize(static_cast<size_t>(windowEnd - pos));
        break;
      }
      if (want >= job_.limits.maxLineBytes) {
        piece = true;
        windowEnd = job_.source.lines.lineStart(line + 1).value_or(chunkEnd);
        break;
      }
      want = std::min(want * 4, std::max(job_.limits.maxLineBytes, want));
    }
    piece_ = piece;
    if (f_.needsMessages()) {
      splitLines(piece);
      evaluateWindow(line - firstLine_);
      line += static_cast<int64_t>(starts_.size()) - 1;
    } else {
      // Patterns alone: the line index says how many lines the window held.
      starts_.clear();
      evaluateWindow(line - firstLine_);
      line = piece ? line + 1 : linesBefore(windowEnd);
    }
    return std::max(windowEnd, pos + 1);
  }

  // The number of lines that start before `offset`, a line start or the document's end.
  int64_t linesBefore(int64_t offset) const {
    const auto& lines = job_.source.lines;
    const int64_t at = lines.lineContaining(offset).value_or(0);
    return lines.lineStart(at) == offset ? at : at + 1;
  }

  void read(int64_t from, int64_t to) {
    buffer_.resize(static_cast<size_t>(to - from));
    const int64_t got = job_.source.text.copyBytes({from, to}, buffer_.data());
    // Bytes a shrunk file no longer has read as NUL, like the search engine's.
    if (got < to - from) std::fill(buffer_.begin() + std::max<int64_t>(got, 0), buffer_.end(), uint8_t{0});
  }

  // starts_: each line's first byte in the buffer, then the buffer's end.
  void splitLines(bool piece) {
    starts_.assign(1, 0);
    const auto* data = buffer_.data();
    const size_t size = buffer_.size();
    if (!piece) {
      for (size_t at = 0; at < size;) {
        const void* found = std::memchr(data + at, job_.terminator, size - at);
        if (found == nullptr) break;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - data) + 1;
        if (at < size) starts_.push_back(static_cast<uint32_t>(at));
      }
    }
    starts_.push_back(static_cast<uint32_t>(size));
  }

  void evaluateWindow(int64_t firstIndex) {
    if (f_.needsMessages()) {
      const size_t count = starts_.size() - 1;
      for (size_t i = 0; i < count; ++i) {
        const auto* begin = reinterpret_cast<const char*>(buffer_.data()) + starts_[i];
        const size_t length = std::min<size_t>(starts_[i + 1] - starts_[i], logs::kUserRuleWindowBytes);
        processLine(firstIndex + static_cast<int64_t>(i), std::string_view(begin, length));
      }
    }
    const size_t matchers = f_.includes.size() + f_.excludes.size();
    if (matchers > 1) pristine_.assign(buffer_.begin(), buffer_.end());
    size_t used = 0;
    const auto scanWith = [&](const search::Matcher& matcher, LineWords& words) {
      if (used++ > 0)
        std::copy(pristine_.begin(), pristine_.end(), buffer_.begin());  // a scan may fold case in place
      // Windows hold whole lines, so their edges are line edges, as at the
      // document's ends; a piece of a very long line ends cut.
      search::ScanWindow w{buffer_.data(), buffer_.size(), 0, buffer_.size(), job_.terminator, true, !piece_};
      if (starts_.empty()) {
        CountingLineHits hits(buffer_.data(), job_.terminator, words, firstIndex, job_.shouldStop);
        matcher.makeScanner()->scan(w, hits);
      } else {
        LineHits hits(starts_, words, firstIndex, job_.shouldStop);
        matcher.makeScanner()->scan(w, hits);
      }
    };
    for (const auto& matcher : f_.includes) scanWith(*matcher, inc_);
    for (const auto& matcher : f_.excludes) scanWith(*matcher, exc_);
  }

  void processLine(int64_t index, std::string_view text) {
    logs::LineTime time;
    const bool head = !parser_ || parser_->parseInto(text, time);
    if (head) {
      message_.seenHead = true;
      message_.micros = parser_ ? wallMicros(time) : logs::kNoTime;
      if (f_.needsLevels()) message_.level = levelOf(firstLine_ + index, text, parser_ ? time.end : 0);
      setBit(out_.heads, index);
    } else if (!message_.seenHead && firstLine_ + index == 0 && f_.needsLevels()) {
      // Lines before the first timestamp are one message, with the first line's level.
      message_.level = levelOf(0, text, 0);
    }
    if (passesConstraints()) setBit(ok_, index);
  }

  // A head line's level: from the index's lists when the job says so
  // (lines come in ascending order, so each list is walked once per chunk),
  // else detected.
  logs::Level levelOf(int64_t line, std::string_view text, size_t timestampEnd) {
    const logs::LogIndexData* data = job_.indexLevels;
    if (data == nullptr) return job_.context.rules.detect(text, timestampEnd);
    for (size_t k = data->alertLines.size();
         k-- > 0;) {  // the highest level first, as the index lists them once
      const auto& list = data->alertLines[k];
      size_t& at = cursors_[k];
      while (at < list.size() && list[at] < line) ++at;
      if (at < list.size() && list[at] == line)
        return static_cast<logs::Level>(logs::levelSlot(logs::Level::warning) + k);
    }
    return logs::Level::none;
  }
  // The same for a line above the chunk (the walk back to its first message).
  logs::Level levelBefore(int64_t line, std::string_view text, size_t timestampEnd) const {
    const logs::LogIndexData* data = job_.indexLevels;
    if (data == nullptr) return job_.context.rules.detect(text, timestampEnd);
    for (size_t k = 0; k < data->alertLines.size(); ++k) {
      const auto& list = data->alertLines[k];
      if (std::binary_search(list.begin(), list.end(), static_cast<uint32_t>(line)))
        return static_cast<logs::Level>(logs::levelSlot(logs::Level::warning) + k);
    }
    return logs::Level::none;
  }

  bool passesConstraints() const {
    if (f_.minimumLevel != logs::Level::none && message_.level < f_.minimumLevel) return false;
    if (f_.belowLevel != logs::Level::none && message_.level >= f_.belowLevel) return false;
    for (const WindowMicros& w : job_.windows) {
      const bool inside =
          message_.micros != logs::kNoTime && message_.micros >= w.from && message_.micros <= w.to;
      if (inside == w.exclude) return false;
    }
    return true;
  }

  // The message open at the chunk's first line: the nearest timestamped
  // line above it, looked for over at most 1,024 lines.
  void enterMessage() {
    if (firstLine_ == 0 || !parser_) return;
    const auto& lines = job_.source.lines;
    for (int64_t l = firstLine_ - 1; l >= std::max<int64_t>(0, firstLine_ - 1024); --l) {
      const auto start = lines.lineStart(l);
      if (!start) return;
      const int64_t end =
          std::min(lines.lineStart(l + 1).value_or(*start), *start + int64_t{logs::kUserRuleWindowBytes});
      read(*start, std::max(end, *start));
      const std::string_view text(reinterpret_cast<const char*>(buffer_.data()), buffer_.size());
      logs::TimestampParser fresh(*job_.format, job_.yearForYearless);
      logs::LineTime time;
      if (fresh.parseInto(text, time)) {
        message_ = {f_.needsLevels() ? levelBefore(l, text, time.end) : logs::Level::none, wallMicros(time),
                    true};
        return;
      }
      if (l == 0 && f_.needsLevels()) message_.level = levelBefore(0, text, 0);
    }
  }

  void markBookmarks() {
    if ((!f_.includeBookmarked && !f_.excludeBookmarked) || !job_.context.bookmarkedLines) return;
    const auto& marks = *job_.context.bookmarkedLines;
    for (auto it = std::lower_bound(marks.begin(), marks.end(), firstLine_);
         it != marks.end() && *it < endLine_; ++it) {
      if (f_.includeBookmarked) setBit(inc_, *it - firstLine_);
      if (f_.excludeBookmarked) setBit(exc_, *it - firstLine_);
    }
  }

  void finish() {
    const bool includes = f_.hasIncludes(), constraints = f_.needsLevels() || f_.needsTimes();
    out_.selected.resize(inc_.size());
    for (size_t w = 0; w < inc_.size(); ++w) {
      out_.selected[w] =
          (includes ? inc_[w] : ~uint64_t{0}) & ~exc_[w] & (constraints ? ok_[w] : ~uint64_t{0});
    }
    clearTail(out_.selected, endLine_ - firstLine_);
  }

  const FilterJob& job_;
  const CompiledFilter& f_;
  const int64_t firstLine_, endLine_;
  LineWords inc_, exc_, ok_;
  ChunkOutput out_;
  std::optional<logs::TimestampParser> parser_;
  Message message_;
  base::ReadBuffer buffer_;
  std::vector<uint8_t> pristine_;
  std::vector<uint32_t> starts_;
  bool piece_ = false;
  std::array<size_t, 4> cursors_{};  // into the index's alert lists, when levels come from it
};

}  // namespace

ChunkOutput evaluateChunk(const FilterJob& job, int64_t firstLine, int64_t endLine) {
  return ChunkEvaluator(job, firstLine, endLine).run();
}

}  // namespace quorin::filter
