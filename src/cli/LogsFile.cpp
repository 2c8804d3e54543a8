#include "LogsFile.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <filesystem>

#include "Interrupt.h"
#include "OpenedText.h"
#include "Progress.h"
#include "jobs/JobRegistry.h"
#include "storage/MMapWrapper.h"
#include "text/EncodingDetector.h"
#include "text/Transcoder.h"

namespace quorin::cli {
namespace {

int32_t yearOf(std::time_t seconds) {
  std::tm local{};
  localtime_r(&seconds, &local);
  return local.tm_year + 1900;
}

int32_t modificationYear(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return yearOf(std::time(nullptr));
  return yearOf(status.st_mtim.tv_sec);
}

}  // namespace

std::expected<OpenedLog, std::string> openLog(const std::string& path, std::ostream& err) {
  auto text = openText(path, true);
  if (!text) return std::unexpected(text.error());
  OpenedLog log;
  log.modificationYear = modificationYear(path);
  log.original = std::move(text->original);
  log.table = std::move(text->table);
  auto scratch = std::move(text->scratch);

  // Big files keep their line index in a scratch file, as in the editor.
  std::optional<std::filesystem::path> scratchPath;
  if (scratch) {
    log.scratch = std::move(scratch);
    scratchPath = log.scratch->path();
  }
  const auto tier = storage::chooseLineIndexTier(log.table->totalLength(), scratchPath);
  storage::LineIndexBuildOptions options;
  if (scratchPath) options.promotion = storage::LiveTierPromotion{20'000'000, *scratchPath / "lineindex.bin"};
  log.lines =
      storage::InMemoryLineIndex::create(log.table, tier, storage::LineIndexWindow::wholeDocument(), options);
  log.lines->startBuild();
  {
    const InterruptGuard interrupt([lines = log.lines] { lines->cancel(); });
    const ProgressLine progress(err, [lines = log.lines] {
      const auto p = lines->progress();
      return "indexing lines " +
             percentText(static_cast<double>(p.bytesScanned), static_cast<double>(p.bytesTotal));
    });
    while (!log.lines->waitUntilComplete(std::chrono::milliseconds(100)) && !interruptRequested()) {
    }
  }
  if (interruptRequested()) return std::unexpected(std::string());
  return log;
}

logs::LogIndexData indexLog(const OpenedLog& log, std::ostream& err) {
  jobs::JobRegistry jobs;
  const auto token = jobs.begin("Indexing log levels and times");
  logs::LogIndexData data;
  {
    const InterruptGuard interrupt([&token] { token->cancel(); });
    const ProgressLine progress(
        err, [&token] { return "indexing levels and times " + percentText(token->progress(), 1.0); });
    data = logs::buildLogIndex(log.source(), logs::SeverityRules(),
                               {.modificationYear = log.modificationYear}, nullptr, token.get());
  }
  token->finish();
  return data;
}

}  // namespace quorin::cli
