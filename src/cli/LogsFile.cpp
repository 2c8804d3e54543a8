#include "LogsFile.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <filesystem>

#include "Interrupt.h"
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
  auto mmap = storage::MMapWrapper::open(path);
  if (!mmap) return std::unexpected(mmap.error().describe());
  const auto encoding = storage::detectFileEncoding(**mmap);

  OpenedLog log;
  log.modificationYear = modificationYear(path);
  auto scratch = storage::ScratchDirectory::createForDocument();
  if (text::needsWorkingCopy(encoding)) {
    if (!scratch) return std::unexpected(scratch.error());
    const auto copyPath = (*scratch)->path() / text::newWorkingCopyFileName();
    if (auto transcoded = text::transcodeFileToUtf8(path, encoding, copyPath); !transcoded)
      return std::unexpected(transcoded.error().describe());
    auto copy = storage::MMapWrapper::open(copyPath.string());
    if (!copy) return std::unexpected(copy.error().describe());
    log.original = storage::OriginalBuffer::make(*copy, text::DetectedEncoding::utf8);
  } else {
    log.original = storage::OriginalBuffer::make(*mmap, encoding);
  }
  log.table = std::make_shared<storage::PieceTable>(log.original);

  // Big files keep their line index in a scratch file, as in the editor.
  std::optional<std::filesystem::path> scratchPath;
  if (scratch) {
    log.scratch = std::move(*scratch);
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
