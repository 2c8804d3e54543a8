// The rollback journal is read at launch from whatever a crash left in the
// scratch directory: any bytes must decode to an error or to a journal that
// encodes back to the same bytes, and recovery must judge that journal
// against a file without touching it.
#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "FuzzSupport.h"
#include "persistence/PatchJournal.h"
#include "persistence/PatchJournalRecovery.h"
#include "support/TempDir.h"

using quorin::persistence::PatchJournal;
using quorin::persistence::PatchJournalRecovery;

namespace {

std::string readAll(const std::filesystem::path& path) {
  std::string out;
  const int fd = ::open(path.c_str(), O_RDONLY);
  char buffer[4096];
  for (ssize_t n; fd >= 0 && (n = ::read(fd, buffer, sizeof buffer)) > 0;)
    out.append(buffer, static_cast<size_t>(n));
  if (fd >= 0) ::close(fd);
  return out;
}

void writeAll(const std::filesystem::path& path, std::string_view bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  FUZZ_CHECK(fd >= 0);
  FUZZ_CHECK(::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
  ::close(fd);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  auto parsed = PatchJournal::decode(bytes, "fuzz-patchjournal");
  if (!parsed) {
    FUZZ_CHECK(!parsed.error().describe().empty());
    return 0;
  }
  for (const auto& entry : parsed->entries)
    FUZZ_CHECK(entry.originalBytes.size() == entry.insertedBytes.size());
  FUZZ_CHECK(parsed->targetPath.find('\0') == std::string::npos);
  const std::string encoded = PatchJournal::encode(parsed->targetPath, parsed->identity, parsed->entries);
  FUZZ_CHECK(bytes.starts_with(encoded));
  auto again = PatchJournal::decode(encoded, "fuzz-patchjournal");
  FUZZ_CHECK(again.has_value() && *again == *parsed);

  // Judge the journal against a small file of our own (never the path it
  // names): whatever the regions say, assessing reads and never writes.
  static const quorin::testing::TempDir dir;
  const std::filesystem::path target = dir.path() / "target";
  const std::string content =
      parsed->entries.empty() ? std::string("abc") : parsed->entries.front().originalBytes;
  writeAll(target, content);
  auto local = *parsed;
  local.targetPath = target.string();
  const auto assessment = PatchJournalRecovery::assess(local);
  FUZZ_CHECK(assessment.regions.size() == local.entries.size());
  FUZZ_CHECK(readAll(target) == content);
  return 0;
}
