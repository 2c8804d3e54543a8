// Saving a multi-gigabyte file: ten same-length edits patched in place, one
// length-changing edit (an atomic rewrite, flushed), and `cp` + `sync` of the
// same file as the baseline, each timed in this process, interleaved, medians.
//
// usage: quorin-bench-save FILE [REPETITIONS]
// FILE is copied to FILE.bench-work first (the bench edits the copy).

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "persistence/SaveCoordinator.h"
#include "storage/MMapWrapper.h"
#include "storage/OriginalBuffer.h"
#include "storage/PieceTable.h"

using namespace quorin;
using Clock = std::chrono::steady_clock;

namespace {

double seconds(Clock::time_point since) {
  return std::chrono::duration<double>(Clock::now() - since).count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

int run(const std::string& command) { return std::system(command.c_str()); }

// Opens `path` as the editor would and makes `edits` same-length (or, with
// grow, one longer) edits spread over the file.
struct Session {
  std::shared_ptr<storage::PieceTable> table;
  std::vector<persistence::PatchEdit> edits;
  storage::FileIdentity identity;

  Session(const std::string& path, int edits, bool grow) {
    auto mapped = storage::MMapWrapper::open(path).value();
    identity = *storage::FileIdentity::ofPath(path);
    table = std::make_shared<storage::PieceTable>(storage::OriginalBuffer::make(mapped));
    const int64_t length = table->totalLength();
    for (int i = 0; i < edits; ++i) {
      const int64_t at = length / (edits + 1) * (i + 1);
      const std::string before = table->readBytes({at, at + 8}).value();
      const std::string after = grow ? std::string("QUORIN-BENCH") : std::string("QUORIN!!");
      table->replace({at, at + 8}, after);
      this->edits.push_back({static_cast<uint64_t>(at), before, after});
    }
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorin-bench-save FILE [REPETITIONS]\n");
    return 2;
  }
  const std::string source = argv[1];
  const int reps = argc > 2 ? std::atoi(argv[2]) : 3;
  const std::string work = source + ".bench-work";
  const std::string copy = source + ".bench-cp";
  if (run("cp '" + source + "' '" + work + "'") != 0) return 1;

  std::vector<double> patch, rewrite, cp;
  persistence::SaveCoordinator coordinator;
  for (int r = 0; r < reps; ++r) {
    {
      Session s(work, 10, false);
      const auto t = Clock::now();
      const auto contentStart = static_cast<uint64_t>(s.table->snapshot().originalBuffer().contentStart());
      const auto result = coordinator.tryInPlacePatch(work, s.edits, s.identity, contentStart);
      patch.push_back(seconds(t));
      if (!result) std::fprintf(stderr, "patch rejected: %s\n", result.error().describe().c_str());
    }
    {
      Session s(work, 1, true);
      const auto t = Clock::now();
      const auto result = coordinator.atomicRewrite(work, s.table->snapshot(), nullptr);
      rewrite.push_back(seconds(t));
      if (!result) std::fprintf(stderr, "rewrite failed: %s\n", result.error().describe().c_str());
    }
    {
      const auto t = Clock::now();
      run("cp '" + work + "' '" + copy + "' && sync '" + copy + "'");
      cp.push_back(seconds(t));
      std::filesystem::remove(copy);
    }
  }
  std::filesystem::remove(work);
  const double p = median(patch), w = median(rewrite), c = median(cp);
  std::printf("file: %s (%.2f GiB), %d repetitions, medians\n", source.c_str(),
              static_cast<double>(std::filesystem::file_size(source)) / (1 << 30), reps);
  std::printf("%-46s %10.4f s\n", "in-place save, 10 same-length edits", p);
  std::printf("%-46s %10.4f s\n", "atomic rewrite (one length-changing edit)", w);
  std::printf("%-46s %10.4f s\n", "cp + sync of the copy", c);
  std::printf("%-46s %10.1fx\n", "rewrite / in-place (target >= 100)", w / p);
  std::printf("%-46s %10.2f\n", "rewrite / (cp + sync) (target <= 1.2)", w / c);
  return 0;
}
