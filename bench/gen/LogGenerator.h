#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "gen/Output.h"
#include "gen/Random.h"

namespace quorin::gen {

// An application log as a small fleet of Java services would write it:
//
//   2026-03-14T09:26:53.589Z INFO  orders [http-nio-8080-exec-17] c.a.o.OrderController: req=… Order …
//
// followed by HTTP access lines, SQL timings, JSON payloads, key=value
// metrics and, after some errors, a multi-line stack trace. Timestamps only
// move forward, at an irregular pace; request ids recur over nearby lines as
// they would for one request crossing several components.
class LogGenerator final : public RecordGenerator {
 public:
  explicit LogGenerator(uint64_t seed);
  void appendRecord(std::string& out) override;

  enum class Level : uint8_t { debug, info, warn, error, fatal };
  enum class Thread : uint8_t { http, kafka, scheduler, worker, main };

 private:
  // Where the stack trace being written is; a trace is emitted one line per record.
  struct Trace {
    enum class Step : uint8_t { none, header, frames, cause, causeFrames, more };
    Step step = Step::none;
    int done = 0;       // frames written so far; in causeFrames, frames still to write
    int appFrames = 0;  // our own frames above the container's
    bool withCause = false;
  };

  void appendEntry(std::string& out);
  void appendTraceLine(std::string& out);
  void appendPrefix(std::string& out, Level level, std::string_view service, Thread thread,
                    std::string_view logger);
  void appendMessage(std::string& out, Level level);
  void appendAccess(std::string& out, Level level);
  void appendLongPayload(std::string& out, Level level);
  void appendTemplated(std::string& out, Level level);
  void expand(std::string& out, std::string_view pattern);
  void expandPlaceholder(std::string& out, std::string_view name);
  void appendRequestId(std::string& out);
  void appendLatency(std::string& out);
  void appendIp(std::string& out);
  void advanceClock();

  Random rng_;
  int64_t clockMs_;
  std::array<uint64_t, 8> requestIds_{};
  Trace trace_;
};

}  // namespace quorin::gen
