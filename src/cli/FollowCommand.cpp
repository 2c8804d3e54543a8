#include "FollowCommand.h"

#include <sys/stat.h>

#include <array>
#include <memory>

#include "Cli.h"
#include "Interrupt.h"
#include "Json.h"
#include "Options.h"
#include "base/ByteCount.h"
#include "base/Errno.h"
#include "dispatch/RunLoopMainQueue.h"
#include "live/TailFollower.h"

namespace quorin::cli {
namespace {

// Writes what the follower reads straight to the output, or as one JSON
// object per complete line: a line cut between two reads (or inside a
// UTF-8 sequence) waits for its end, so no object holds half a line.
class PrintingSink final : public live::TailSink {
 public:
  PrintingSink(std::ostream& out, bool asJson) : out_(out), asJson_(asJson) {}
  bool acceptFollowedBytes(std::string_view bytes) override {
    if (!asJson_) {
      out_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    } else {
      pending_ += bytes;
      std::string lines;
      size_t from = 0;
      for (size_t end; (end = pending_.find('\n', from)) != std::string::npos; from = end + 1) {
        std::string_view line(pending_.data() + from, end - from);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines += "{\"line\":";
        appendJsonString(lines, line);
        lines += "}\n";
      }
      pending_.erase(0, from);
      out_ << lines;
    }
    out_.flush();
    return static_cast<bool>(out_);
  }
  // The last line when the file ends without a line break.
  void finish() {
    if (asJson_ && !pending_.empty()) acceptFollowedBytes("\n");
  }

 private:
  std::ostream& out_;
  const bool asJson_;
  std::string pending_;
};

}  // namespace

int runFollow(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 2> kOptions = {{{"--from-start"}, {"--json"}}};
  const auto parsed = parseCommandLine("follow", args, kOptions, 1, 1, err);
  if (!parsed) return kExitFailure;
  const std::string path = parsed->positionals.front();
  dispatch::RunLoopMainQueue main;
  auto sink = std::make_shared<PrintingSink>(out, parsed->has("--json"));
  std::unique_ptr<live::TailFollower> follower;
  int status = kExitOk;
  bool fromStart = parsed->has("--from-start");

  // (Re)starts following `path`, from its start or its current end.
  std::function<bool(bool)> follow = [&](bool atStart) {
    struct stat st;
    const int64_t start = atStart || ::stat(path.c_str(), &st) != 0 ? 0 : st.st_size;
    live::TailFollower::Callbacks c;
    c.onTruncationDetected = [&] {
      err << "quorin-cli: " << path << " was truncated; following from its new end\n";
      main.post([&] { follow(false); });
    };
    c.onRotationDetected = [&] {
      err << "quorin-cli: " << path << " was rotated; following the new file\n";
      main.post([&] { follow(true); });
    };
    c.onDeleted = [&] {
      err << "quorin-cli: " << path << " was deleted\n";
      main.stop();
    };
    c.onReadError = [&](int e) {
      err << "quorin-cli: reading " << path << " failed: " << base::errnoText(e) << '\n';
      status = kExitFailure;
      main.stop();
    };
    c.onLagChanged = [&](int64_t lag) {
      if (lag > 0) err << "quorin-cli: " << base::formatByteCount(lag) << " behind the live file\n";
    };
    auto created = live::TailFollower::create(path, sink, start, false, 1.0, main, std::move(c));
    if (!created) {
      err << "quorin-cli: " << created.error().describe() << '\n';
      status = kExitFailure;
      main.stop();
      return false;
    }
    main.post([old = std::shared_ptr<live::TailFollower>(std::move(follower))] {
    });  // destroyed outside its own poll
    follower = std::move(*created);
    follower->start();
    follower->poll();
    return true;
  };
  if (!follow(fromStart)) return status;
  {
    const InterruptGuard interrupt([&main] { main.stop(); });
    main.run();
  }
  sink->finish();
  follower.reset();
  return interruptRequested() ? kExitInterrupted : status;
}

}  // namespace quorin::cli
