#include "FollowCommand.h"

#include <sys/stat.h>

#include <array>
#include <memory>

#include "Cli.h"
#include "Options.h"
#include "base/ByteCount.h"
#include "base/Errno.h"
#include "dispatch/RunLoopMainQueue.h"
#include "live/TailFollower.h"

namespace quorin::cli {
namespace {

constexpr const char* kUsage = "usage: quorin-cli follow [--from-start] FILE\n";

// Writes what the follower reads straight to the output.
class PrintingSink final : public live::TailSink {
 public:
  explicit PrintingSink(std::ostream& out) : out_(out) {}
  bool acceptFollowedBytes(std::string_view bytes) override {
    out_.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out_.flush();
    return static_cast<bool>(out_);
  }

 private:
  std::ostream& out_;
};

}  // namespace

int runFollow(std::span<const std::string> args, std::ostream& out, std::ostream& err) {
  static constexpr std::array<OptionSpec, 1> kOptions = {{{"--from-start"}}};
  const auto parsed = parseOptions(args, kOptions);
  if (!parsed || parsed->positionals.size() != 1) {
    err << "quorin-cli: " << (parsed ? "follow takes exactly one FILE" : parsed.error()) << '\n' << kUsage;
    return kExitFailure;
  }
  const std::string path = parsed->positionals.front();
  dispatch::RunLoopMainQueue main;
  auto sink = std::make_shared<PrintingSink>(out);
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
    main.post([old = std::shared_ptr<live::TailFollower>(std::move(follower))] {});  // destroyed outside its own poll
    follower = std::move(*created);
    follower->start();
    follower->poll();
    return true;
  };
  if (!follow(fromStart)) return status;
  main.run();
  return status;
}

}  // namespace quorin::cli
