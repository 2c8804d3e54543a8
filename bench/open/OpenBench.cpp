// quorin-bench-open FILE [--index]
//
// One measurement per process, so that bench/run can time it from nothing
// against a command-line baseline and read the peak memory with GNU time:
//   (default)  open FILE as the editor does and produce the first screen's
//              text (its first 60 lines) from a snapshot: what the user
//              waits for before seeing anything; baseline `head -n 60`.
//   --index    open FILE and let the whole line index finish: the memory a
//              window holds for a big file once everything is known.
// The text goes to stdout, so the work cannot be skipped.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>

#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"

namespace {

constexpr int64_t kFirstScreenLines = 60;

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: quorin-bench-open FILE [--index]\n");
    return 2;
  }
  const bool wholeIndex = argc > 2 && std::strcmp(argv[2], "--index") == 0;
  quorin::dispatch::ManualMainQueue main;
  quorin::document::OpenOptions options;
  options.mainQueue = &main;
  options.watchFile = false;  // a watcher thread is no part of showing the text
  options.watchMemoryPressure = false;
  auto doc = quorin::document::Document::open(argv[1], std::move(options));
  if (!doc) {
    std::fprintf(stderr, "%s\n", doc.error().describe().c_str());
    return 2;
  }
  if (wholeIndex) {
    while (!(*doc)->waitForLineIndex(std::chrono::milliseconds(100))) main.runPending();
    main.runPending();
  }
  const auto snapshot = (*doc)->snapshot();
  // The end of the first screen: the start of line 61, or what is known so far.
  const int64_t lines = std::min(kFirstScreenLines, snapshot.lines.knownLineCount());
  int64_t end = snapshot.text.totalLength();
  if (lines < snapshot.lines.knownLineCount()) end = snapshot.lines.lineStart(lines).value_or(end);
  const std::string text = snapshot.text.readBytes({0, end}).value_or("");
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);  // the screen is shown now, not when the document has been closed
  if (wholeIndex) std::fprintf(stderr, "lines: %lld\n", static_cast<long long>(snapshot.lines.lineCount()));
  return 0;
}
