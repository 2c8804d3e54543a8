// quorin-gen: writes realistic, reproducible test data (logs, CSV) of a given size.

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "gen/CsvGenerator.h"
#include "gen/LogGenerator.h"
#include "gen/Output.h"

namespace {

constexpr std::string_view kUsage =
    "usage: quorin-gen (log|csv) --size SIZE [--seed N] [-o FILE]\n"
    "\n"
    "  log     application server log: access lines, SQL timings, JSON, stack traces\n"
    "  csv     order export: header and 12 columns, some quoted fields\n"
    "\n"
    "  --size SIZE   stop at the first line (or CSV record) ending at or after SIZE bytes;\n"
    "                K, M and G suffixes are powers of 1024 (e.g. 200M)\n"
    "  --seed N      unsigned 64-bit seed (default 1); the same seed and size give the\n"
    "                same bytes on every machine\n"
    "  -o FILE       write to FILE instead of standard output\n";

struct Options {
  std::string kind;
  int64_t size = -1;
  uint64_t seed = 1;
  std::string outputPath;
};

int usageError(std::string_view message) {
  std::fprintf(stderr, "quorin-gen: %.*s\n\n%.*s", static_cast<int>(message.size()), message.data(),
               static_cast<int>(kUsage.size()), kUsage.data());
  return 2;
}

std::optional<uint64_t> parseSeed(std::string_view text) {
  uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// Returns an error message, or nothing when the options are complete.
std::optional<std::string> parseArguments(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if ((arg == "--size" || arg == "--seed" || arg == "-o") && !hasValue)
      return std::string(arg) + " needs a value";
    if (arg == "--size") {
      const auto size = quorin::gen::parseSize(argv[++i]);
      if (!size) return "bad size '" + std::string(argv[i]) + "'";
      options.size = *size;
    } else if (arg == "--seed") {
      const auto seed = parseSeed(argv[++i]);
      if (!seed) return "bad seed '" + std::string(argv[i]) + "'";
      options.seed = *seed;
    } else if (arg == "-o") {
      options.outputPath = argv[++i];
    } else if ((arg == "log" || arg == "csv") && options.kind.empty()) {
      options.kind = arg;
    } else {
      return "unexpected argument '" + std::string(arg) + "'";
    }
  }
  if (options.kind.empty()) return std::string("missing the kind of data (log or csv)");
  if (options.size < 0) return std::string("missing --size");
  return std::nullopt;
}

std::unique_ptr<quorin::gen::RecordGenerator> makeGenerator(const Options& options) {
  if (options.kind == "csv") return std::make_unique<quorin::gen::CsvGenerator>(options.seed);
  return std::make_unique<quorin::gen::LogGenerator>(options.seed);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::fwrite(kUsage.data(), 1, kUsage.size(), stdout);
    return 0;
  }
  Options options;
  if (auto error = parseArguments(argc, argv, options)) return usageError(*error);

  int fd = STDOUT_FILENO;
  if (!options.outputPath.empty()) {
    fd = ::open(options.outputPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) {
      std::fprintf(stderr, "quorin-gen: cannot open %s: %s\n", options.outputPath.c_str(),
                   std::strerror(errno));
      return 1;
    }
  }
  auto generator = makeGenerator(options);
  const auto written = quorin::gen::writeRecords(*generator, options.size, fd);
  if (!written || (fd != STDOUT_FILENO && ::close(fd) != 0)) {
    std::fprintf(stderr, "quorin-gen: write failed: %s\n",
                 written ? std::strerror(errno) : written.error().c_str());
    return 1;
  }
  return 0;
}
