#include "UnsavedCommand.h"

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "Cli.h"
#include "recovery/Recovery.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/ScratchDirectory.h"

namespace quorin::cli {
namespace {

namespace fs = std::filesystem;

// "unchanged", "changed" or "missing" for a file-backed journal, "none" for an untitled one.
std::string baseState(const recovery::JournalHeader& header) {
  if (header.untitled) return "none";
  const auto identity = storage::FileIdentity::ofPath(header.path);
  if (!identity) return "missing";
  return recovery::baseMatches(header, *identity) ? "unchanged" : "changed";
}

int list(const std::vector<recovery::FoundJournal>& journals, bool asJson, std::ostream& out) {
  if (asJson) {
    nlohmann::json all = nlohmann::json::array();
    for (const auto& j : journals) {
      nlohmann::json item{{"journal", j.path.string()}, {"ownerAlive", j.ownerAlive}};
      if (j.journal) {
        item["file"] = j.journal->header.path;
        item["title"] = j.journal->header.title;
        item["records"] = j.journal->records.size();
        item["edits"] = j.siteCount;
        item["base"] = baseState(j.journal->header);
        item["torn"] = j.journal->torn;
      }
      if (!j.problem.empty()) item["problem"] = j.problem;
      all.push_back(std::move(item));
    }
    out << nlohmann::json{{"journals", all}}.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
        << '\n';
    return kExitOk;
  }
  if (journals.empty()) out << "no journals of unsaved edits\n";
  for (const auto& j : journals) {
    out << j.path.string() << '\t';
    if (j.ownerAlive) {
      out << "in use by a running editor\n";
    } else if (!j.journal) {
      out << j.problem << '\n';
    } else {
      const auto& h = j.journal->header;
      out << (h.untitled ? "untitled " + h.title : h.path) << '\t' << j.siteCount << " edits in "
          << j.journal->records.size() << " records\tfile " << baseState(h)
          << (j.journal->torn ? "\ttorn end" : "") << '\n';
    }
  }
  return kExitOk;
}

// The recovered text written to `target` (a new file beside it, renamed over it when whole).
int restoreTo(const fs::path& journalPath, const fs::path& target, std::ostream& err) {
  std::ifstream in(journalPath, std::ios::binary);
  if (!in) {
    err << "quorin-cli: cannot read " << journalPath.string() << '\n';
    return kExitFailure;
  }
  const std::string bytes{std::istreambuf_iterator<char>(in), {}};
  const auto parsed = recovery::parseJournal(bytes);
  if (!parsed) {
    err << "quorin-cli: " << parsed.error().describe() << '\n';
    return kExitFailure;
  }
  const auto& h = parsed->header;
  std::shared_ptr<const storage::OriginalBuffer> base = storage::OriginalBuffer::untitled();
  if (!h.untitled) {
    std::error_code ec;
    if (fs::equivalent(h.path, target, ec)) {
      err << "quorin-cli: --restore-to must name a new file, not the journal's own file\n";
      return kExitFailure;
    }
    if (h.encoding != "utf8" && h.encoding != "utf8WithBOM") {
      err << "quorin-cli: the document was converted from " << h.encoding
          << " when opened; restore it in the editor\n";
      return kExitFailure;
    }
    const auto identity = storage::FileIdentity::ofPath(h.path);
    if (!identity || !recovery::baseMatches(h, *identity)) {
      err << "quorin-cli: " << h.path
          << (identity ? " changed since its edits were journaled: they cannot be applied to it\n"
                       : " is gone: the edits have nothing to apply to\n");
      return kExitFailure;
    }
    auto mapped = storage::MMapWrapper::open(h.path);
    if (!mapped) {
      err << "quorin-cli: " << mapped.error().describe() << '\n';
      return kExitFailure;
    }
    base = storage::OriginalBuffer::make(*mapped);
  }
  storage::PieceTable table(base);
  if (auto replayed = recovery::replayRecords(table, parsed->records); !replayed) {
    err << "quorin-cli: " << replayed.error().describe() << '\n';
    return kExitFailure;
  }
  const fs::path partial = target.string() + ".partial";
  {
    std::ofstream outFile(partial, std::ios::binary | std::ios::trunc);
    const auto snapshot = table.snapshot();
    std::string chunk(1 << 20, '\0');
    for (int64_t at = 0; outFile && at < snapshot.totalLength();) {
      const int64_t n = snapshot.copyBytes({at, std::min(snapshot.totalLength(), at + int64_t{1 << 20})},
                                           reinterpret_cast<uint8_t*>(chunk.data()));
      if (n <= 0) break;
      outFile.write(chunk.data(), n);
      at += n;
    }
    outFile.flush();
    if (!outFile) {
      std::error_code ec;
      fs::remove(partial, ec);
      err << "quorin-cli: cannot write " << target.string() << '\n';
      return kExitFailure;
    }
  }
  std::error_code ec;
  fs::rename(partial, target, ec);
  if (ec) {
    err << "quorin-cli: cannot write " << target.string() << ": " << ec.message() << '\n';
    return kExitFailure;
  }
  return kExitOk;
}

}  // namespace

int runUnsaved(const ParsedOptions& parsed, std::ostream& out, std::ostream& err) {
  if (const auto target = parsed.value("--restore-to")) {
    if (parsed.positionals.size() != 1) {
      printUsageError(err, "recover", "--restore-to needs exactly one JOURNAL");
      return kExitFailure;
    }
    return restoreTo(parsed.positionals.front(), *target, err);
  }
  const auto root = storage::ScratchDirectory::root();
  if (!root) {
    err << "quorin-cli: " << root.error() << '\n';
    return kExitFailure;
  }
  return list(recovery::listJournals(*root), parsed.has("--json"), out);
}

}  // namespace quorin::cli
