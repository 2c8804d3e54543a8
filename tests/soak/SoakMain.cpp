// quorin-soak: random edits, bulk replaces, undo/redo, compactions, searches,
// line-index checks and saves (in place and by rewrite) on one document for a
// set time, while a second process appends to and truncates the file.
// After every step the document's text is compared with a std::string model,
// and after every save the file's bytes with the model.
//
// The two processes take turns through an flock on a lock file: the outside
// writer changes the file only between steps, so each step sees a file that
// is either as the document last left it or visibly changed (another inode,
// size or time), which the step then treats as the user would: reload, or,
// when the document's text is intact, keep it and save over the change.
//
//   quorin-soak [--seconds N] [--seed S] [--dir DIR] [--without KIND,...]
//   quorin-soak --hostile [--dir DIR]   full-size hostile files, each opened, searched, indexed,
//                                       compared and saved
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "compare/Comparison.h"
#include "csv/CSVRecordIndex.h"
#include "csv/DelimiterDetection.h"
#include "dispatch/Clock.h"
#include "dispatch/ManualMainQueue.h"
#include "document/Document.h"
#include "search/SearchEngine.h"
#include "storage/FileIdentity.h"
#include "support/TempDir.h"

using namespace quorin;
using document::Document;

namespace {

[[noreturn]] void fail(const std::string& what) {
  std::fprintf(stderr, "quorin-soak: FAILED: %s\n", what.c_str());
  std::fflush(stderr);
  std::_Exit(1);
}

std::optional<storage::FileIdentity> identityOf(const std::filesystem::path& path) {
  return storage::FileIdentity::ofPath(path.string());
}

class FileLock {
 public:
  explicit FileLock(const std::filesystem::path& path) : fd_(::open(path.c_str(), O_RDWR | O_CREAT, 0600)) {
    if (fd_ < 0) fail("cannot open the lock file");
  }
  ~FileLock() { ::close(fd_); }
  void lock() { ::flock(fd_, LOCK_EX); }
  void unlock() { ::flock(fd_, LOCK_UN); }

 private:
  int fd_;
};

// The second process: between the soak's steps it appends a few lines or
// cuts the file short.
pid_t startOutsideWriter(const std::filesystem::path& file, const std::filesystem::path& lockPath,
                         uint64_t seed) {
  const pid_t pid = ::fork();
  if (pid != 0) return pid;
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  std::mt19937_64 rng(seed ^ 0x5eed);
  FileLock lock(lockPath);
  for (uint64_t n = 0;; ++n) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + rng() % 400));
    lock.lock();
    if (rng() % 5 != 0) {
      const int fd = ::open(file.c_str(), O_WRONLY | O_APPEND);
      if (fd >= 0) {
        std::string lines;
        for (uint64_t k = 1 + rng() % 4; k > 0; --k)
          lines += "appended by the other process " + std::to_string(n) + "\n";
        (void)!::write(fd, lines.data(), lines.size());
        ::close(fd);
      }
    } else {
      if (const auto id = identityOf(file); id && id->size > 0)
        (void)!::truncate(file.c_str(), static_cast<off_t>(rng() % static_cast<uint64_t>(id->size)));
    }
    lock.unlock();
  }
}

struct Args {
  double seconds = 600;
  uint64_t seed = std::random_device{}();
  std::optional<std::filesystem::path> dir;
  bool hostile = false;
  std::string without;  // comma-separated step kinds to leave out, to narrow a failure down
};

Args parseArgs(int argc, char** argv) {
  Args args;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    auto value = [&]() -> std::string {
      if (i + 1 >= argc) fail("missing value after " + arg);
      return argv[++i];
    };
    if (arg == "--seconds") {
      args.seconds = std::stod(value());
    } else if (arg == "--seed") {
      args.seed = std::stoull(value());
    } else if (arg == "--dir") {
      args.dir = value();
    } else if (arg == "--without") {
      args.without = "," + value() + ",";
    } else if (arg == "--hostile") {
      args.hostile = true;
    } else {
      std::fprintf(
          stderr,
          "usage: quorin-soak [--seconds N] [--seed S] [--dir DIR] [--without KIND,...] [--hostile]\n");
      std::exit(2);
    }
  }
  return args;
}

document::OpenOptions soakOptions(dispatch::ManualMainQueue& main) {
  document::OpenOptions options;
  options.mainQueue = &main;
  options.watchMemoryPressure = false;
  options.watchFile = false;  // outside changes are found by the step itself, under the lock
  options.compactionPieceThreshold = 16;
  options.compactionIdleSeconds = 0.001;
  // Small passes, so that the background index races the edits.
  options.lineIndexLimits.firstPassLines = 20;
  options.lineIndexLimits.firstPassBytes = 1024;
  options.lineIndexLimits.chunkBytes = 2048;
  return options;
}

class Soak {
 public:
  Soak(const Args& args, const std::filesystem::path& dir)
      : args_(args),
        rng_(args.seed),
        path_(dir / "soak.txt"),
        lockPath_(dir / "soak.lock"),
        lock_(lockPath_) {}

  int run() {
    std::string initial;
    for (int i = 0; i < 2000; ++i) initial += "line " + std::to_string(i) + " of the soak, caf\u00e9\n";
    std::ofstream(path_, std::ios::binary) << initial;
    auto opened = Document::open(path_.string(), soakOptions(main_));
    if (!opened) fail("open: " + opened.error().describe());
    doc_ = *opened;
    doc_->setStatusHandler([this](const std::string& text) { lastStatus_ = text; });
    resetModel(initial);
    known_ = identityOf(path_);

    const pid_t writer = excluded("outside") ? -1 : startOutsideWriter(path_, lockPath_, args_.seed);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(args_.seconds);
    auto nextReport = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < deadline) {
      lock_.lock();
      takeOutsideChange();
      step();
      recent_.push_back(lastOp_);
      if (recent_.size() > 8) recent_.erase(recent_.begin());
      lock_.unlock();
      main_.runPending();
      ++steps_;
      if (std::chrono::steady_clock::now() >= nextReport) {
        report(stdout);
        nextReport += std::chrono::seconds(60);
      }
    }
    if (writer > 0) {
      ::kill(writer, SIGTERM);
      ::waitpid(writer, nullptr, 0);
    }
    doc_.reset();
    main_.runPending();
    std::printf("quorin-soak: PASSED (seed %llu)\n", static_cast<unsigned long long>(args_.seed));
    report(stdout);
    return 0;
  }

 private:
  // --- the model ---
  void resetModel(const std::string& text) {
    model_ = text;
    history_ = {text};
    at_ = 0;
  }
  void recordEdit() {
    history_.resize(at_ + 1);
    history_.push_back(model_);
    ++at_;
  }
  std::string documentText() const {
    return doc_->snapshot().text.readBytes({0, doc_->length()}).value_or("");
  }
  std::string where() const {
    return " at step " + std::to_string(steps_) + " (seed " + std::to_string(args_.seed) + ")";
  }
  void verify(const char* after) {
    const std::string text = documentText();
    if (text == model_) return;
    size_t differs = 0;
    while (differs < std::min(text.size(), model_.size()) && text[differs] == model_[differs]) ++differs;
    fail(std::string("text differs from the model after ") + after + " (" + lastOp_ + ")" + where() +
         ": lengths " + std::to_string(text.size()) + " and " + std::to_string(model_.size()) +
         ", first difference at " + std::to_string(differs));
  }

  // --- random pieces ---
  size_t below(size_t n) { return n == 0 ? 0 : static_cast<size_t>(rng_() % n); }
  bool chance(int percent) { return below(100) < static_cast<size_t>(percent); }
  std::string randomText(size_t maxLength) {
    static const char* kPieces[] = {"a",      "b",      "x",    " ", "\n", "\r\n",
                                    "\u00e9", "\u20ac", "line", "0", "\t", ","};
    std::string out;
    for (size_t n = below(maxLength + 1); n > 0; --n) out += kPieces[below(std::size(kPieces))];
    return out;
  }
  storage::ByteRange randomRange(size_t maxLength) {
    const size_t start = below(model_.size() + 1);
    const size_t length = below(std::min(maxLength, model_.size() - start) + 1);
    return {static_cast<int64_t>(start), static_cast<int64_t>(start + length)};
  }

  // --- outside changes ---
  void takeOutsideChange() {
    if (identityOf(path_) == known_) return;
    ++counts_["outside change"];
    recent_.push_back("outside change");
    // Appends leave the mapped bytes alone: the user may keep the text and save over the change.
    // (Only with unsaved edits: keeping an unmodified text gives a save with nothing to write.)
    if (doc_->isModified() && documentText() == model_ && chance(40)) {
      doc_->setExternallyModified(true);
      doc_->resolveExternalChange(false);
      ++counts_["outside change kept and saved over"];
      save("a kept text over an outside change", chance(50));
      return;
    }
    if (!doc_->reload()) {
      ++counts_["outside change, reload failed"];
      ++failureTexts_[lastStatus_];
      // The text the document holds is all there is: write it back as the user would.
      model_ = documentText();
      resetModel(model_);
      doc_->resolveExternalChange(false);
      save("a failed reload", false);
      return;
    }
    ++counts_["outside change reloaded"];
    resetModel(testing::readFile(path_));
    verify("a reload");
    known_ = identityOf(path_);
  }

  // --- one step ---
  void step() {
    static constexpr std::pair<size_t, const char*> kKinds[] = {
        {14, "delete"},     {30, "insert"}, {44, "replace"}, {50, "bulk"}, {54, "group"}, {62, "undo"},
        {67, "compaction"}, {75, "search"}, {86, "check"},   {92, "save"}, {100, "pause"}};
    std::string_view kind;
    for (int tries = 0; tries < 1000 && (kind.empty() || excluded(kind)); ++tries) {
      const size_t op = below(100);
      kind = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const auto& k) {
               return op < k.first;
             })->second;
    }
    if (model_.size() > (256u << 10) || kind == "delete") {
      edit("delete", [&] {
        const auto range = randomRange(model_.size() > (256u << 10) ? 64u << 10 : 64);
        model_.erase(static_cast<size_t>(range.start), static_cast<size_t>(range.length()));
        return doc_->remove(range, {}, {});
      });
    } else if (kind == "insert") {
      edit("insert", [&] {
        const size_t at = below(model_.size() + 1);
        const std::string text = randomText(40);
        model_.insert(at, text);
        return doc_->insert(static_cast<int64_t>(at), text, {}, {});
      });
    } else if (kind == "replace") {
      edit("replace", [&] {
        const auto range = randomRange(32);
        // Same-length replacements are what an in-place save can patch.
        std::string text =
            chance(60) ? std::string(static_cast<size_t>(range.length()), "xyz#"[below(4)]) : randomText(32);
        model_.replace(static_cast<size_t>(range.start), static_cast<size_t>(range.length()), text);
        return doc_->replace(range, text, {}, {});
      });
    } else if (kind == "bulk") {
      bulkReplace();
    } else if (kind == "group") {
      group();
    } else if (kind == "undo") {
      undoOrRedo(chance(60));
    } else if (kind == "compaction") {
      compact();
    } else if (kind == "search") {
      search();
    } else if (kind == "check") {
      checkLineIndex();
    } else if (kind == "save") {
      if (chance(50)) {
        save("a save", chance(50));
      } else {
        // What an in-place patch is for: a few same-length replacements since the last save.
        save("a save before patching", false);
        for (size_t n = 1 + below(4); n > 0 && !model_.empty(); --n) {
          const auto range = randomRange(16);
          const std::string text(static_cast<size_t>(range.length()), "PQ"[below(2)]);
          model_.replace(static_cast<size_t>(range.start), text.size(), text);
          record(doc_->replace(range, text, {}, {}), "same-length replace");
        }
        save("a save in place", true);
      }
    } else {
      begin("pause");
      std::this_thread::sleep_for(std::chrono::microseconds(below(2000)));
    }
    verify("a step");
  }

  bool excluded(std::string_view kind) const {
    return args_.without.find("," + std::string(kind) + ",") != std::string::npos;
  }

  void begin(const char* name) {
    ++counts_[name];
    lastOp_ = name;
  }

  template <typename F>
  void edit(const char* name, F apply) {
    begin(name);
    record(apply(), name);
  }

  // An edit that changed nothing leaves no undo step.
  void record(const std::expected<document::EditOutcome, document::EditRefusal>& outcome, const char* name) {
    if (!outcome) fail(std::string(name) + " refused: " + outcome.error().describe());
    if (!outcome->undoable) fail(std::string(name) + " was too large for the undo history");
    if (outcome->edit.bytesRemoved > 0 || outcome->edit.bytesInserted > 0) recordEdit();
  }

  void bulkReplace() {
    begin("bulk replace");
    std::vector<storage::PieceTable::BulkEditSite> sites;
    std::string next;
    size_t from = 0;
    for (size_t n = 1 + below(20); n > 0 && from < model_.size(); --n) {
      const size_t start = from + below(std::min<size_t>(model_.size() - from, 400));
      const size_t length = below(std::min<size_t>(model_.size() - start, 8) + 1);
      std::string bytes = randomText(6);
      next += model_.substr(from, start - from) + bytes;
      sites.push_back(
          {{static_cast<int64_t>(start), static_cast<int64_t>(start + length)}, std::move(bytes)});
      from = start + length;
    }
    if (sites.empty()) return;
    next += model_.substr(from);
    model_ = next;
    record(doc_->replaceAll(sites, "Replace All", {}, {}), "bulk replace");
  }

  void group() {
    begin("undo group");
    doc_->beginUndoGroup("Typing", {});
    for (size_t n = 2 + below(3); n > 0; --n) {
      const size_t at = below(model_.size() + 1);
      const std::string text = "g" + randomText(5);
      model_.insert(at, text);
      if (!doc_->insert(static_cast<int64_t>(at), text, {}, {})) fail("grouped insert refused");
    }
    doc_->endUndoGroup({});
    recordEdit();
  }

  void undoOrRedo(bool undo) {
    begin(undo ? "undo" : "redo");
    const bool done = (undo ? doc_->undo() : doc_->redo()).has_value();
    if (undo) {
      if (done != (at_ > 0)) {
        // The history may have been trimmed to fit its cap: what is left starts here.
        if (!done && at_ > 0) {
          history_.erase(history_.begin(), history_.begin() + static_cast<std::ptrdiff_t>(at_));
          at_ = 0;
          return;
        }
        fail("undo disagrees with the history" + where());
      }
      if (done) model_ = history_[--at_];
    } else {
      if (done != (at_ + 1 < history_.size())) fail("redo disagrees with the history" + where());
      if (done) model_ = history_[++at_];
    }
  }

  void compact() {
    begin("compaction");
    main_.advance(5'000'000);  // the idle timer fires; the merge runs on its own queue
  }

  void search() {
    begin("search");
    std::string needle;
    if (!model_.empty() && chance(80)) {
      const size_t at = below(model_.size());
      needle = model_.substr(at, 1 + below(4));
      const char terminator = static_cast<char>(text::lineTerminator(doc_->lineEnding()));
      if (const size_t nl = needle.find(terminator); nl != std::string::npos) needle.resize(nl);
    }
    if (needle.empty()) needle = "line";
    int64_t expected = 0;
    for (size_t at = model_.find(needle); at != std::string::npos;
         at = model_.find(needle, at + needle.size()))
      ++expected;
    const auto snapshot = doc_->snapshot();
    search::SearchCancellation cancellation;
    const auto result = search::SearchEngine().search(search::kFindBarMatchCap, {.query = needle},
                                                      snapshot.text, snapshot.lines, cancellation);
    if (result.totalMatchCount != expected)
      fail("search for \"" + needle + "\" found " + std::to_string(result.totalMatchCount) + ", the model " +
           std::to_string(expected) + where());
  }

  std::string recentOps() const {
    std::string out;
    for (const auto& op : recent_) out += op + " ";
    return out;
  }

  void checkLineIndex() {
    begin("line index check");
    if (chance(30)) doc_->waitForLineIndex(std::chrono::seconds(10));
    const auto lines = doc_->snapshot().lines;
    if (!lines.isComplete) return;
    ++counts_["line index check, complete"];
    int64_t line = 0;
    if (lines.lineStart(0) != 0) fail("line 0 does not start at 0");
    // The document reads its line ending from its first line break whenever it (re)attaches a file,
    // so a save or reload after an edit left a lone CR first makes it a CR document.
    const char terminator = static_cast<char>(text::lineTerminator(doc_->lineEnding()));
    for (size_t i = 0; i < model_.size(); ++i) {
      if (model_[i] != terminator) continue;
      ++line;
      if (lines.lineStart(line) != static_cast<int64_t>(i + 1))
        fail("line " + std::to_string(line) + " starts at " +
             std::to_string(lines.lineStart(line).value_or(-1)) + ", not " + std::to_string(i + 1) + where() +
             " (" + lastOp_ + ", ops before: " + recentOps() + "; " + std::to_string(lines.lineCount()) +
             " lines, text of " + std::to_string(model_.size()) + " bytes)");
    }
    if (lines.lineCount() != line + 1)
      fail("line count " + std::to_string(lines.lineCount()) + " != " + std::to_string(line + 1) + where());
  }

  void save(const char* why, bool inPlace) {
    lastOp_ = why;
    doc_->setInPlaceSaveEnabled(inPlace);
    std::optional<std::expected<persistence::SaveOutcome, persistence::SaveError>> result;
    doc_->save([&](const auto& r) { result = r; });
    const auto started = std::chrono::steady_clock::now();
    while (!result) {
      main_.waitAndRun(std::chrono::milliseconds(100));
      if (std::chrono::steady_clock::now() - started > std::chrono::seconds(60))
        fail(std::string("no answer to ") + why);
    }
    if (!*result) {
      ++counts_["save error"];
      ++failureTexts_[result->error().describe()];
      return;
    }
    const auto& outcome = **result;
    if (outcome.kind == persistence::SaveOutcome::Kind::wrote)
      ++counts_[std::string("save: ") + std::string(persistence::name(outcome.strategy))];
    else
      ++counts_["save: nothing to write"];
    if (testing::readFile(path_) != model_)
      fail(std::string("the file differs from the model after ") + why + where());
    if (doc_->isModified()) fail(std::string("still modified after ") + why);
    known_ = identityOf(path_);
  }

  void report(FILE* out) {
    std::fprintf(out, "steps %llu\n", static_cast<unsigned long long>(steps_));
    for (const auto& [name, count] : counts_)
      std::fprintf(out, "  %-36s %llu\n", name.c_str(), static_cast<unsigned long long>(count));
    for (const auto& [text, count] : failureTexts_)
      std::fprintf(out, "  message x%llu: %s\n", static_cast<unsigned long long>(count), text.c_str());
    std::fflush(out);
  }

  const Args args_;
  std::mt19937_64 rng_;
  const std::filesystem::path path_;
  const std::filesystem::path lockPath_;
  FileLock lock_;
  dispatch::ManualMainQueue main_;
  std::shared_ptr<Document> doc_;
  std::string model_;
  std::vector<std::string> history_;
  size_t at_ = 0;
  std::optional<storage::FileIdentity> known_;
  std::string lastStatus_;
  std::string lastOp_;
  std::vector<std::string> recent_;
  uint64_t steps_ = 0;
  std::map<std::string, uint64_t> counts_;
  std::map<std::string, uint64_t> failureTexts_;
};

// --- full-size hostile files ---

void hostileRun(const std::filesystem::path& dir) {
  struct Shape {
    std::string name;
    std::function<void(std::ofstream&)> write;
  };
  const std::vector<Shape> shapes = {
      {"one-gib-line.txt",
       [](std::ofstream& out) {
         const std::string block(1 << 20, 'x');
         for (int i = 0; i < 1024; ++i) out << block;
       }},
      {"ten-million-empty-lines.txt", [](std::ofstream& out) { out << std::string(10'000'000, '\n'); }},
  };
  dispatch::ManualMainQueue main;
  for (const Shape& shape : shapes) {
    const auto path = dir / shape.name;
    {
      std::ofstream out(path, std::ios::binary);
      shape.write(out);
    }
    auto seconds = [start = std::chrono::steady_clock::now()] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    std::printf("%s (%lld bytes)\n", shape.name.c_str(),
                static_cast<long long>(std::filesystem::file_size(path)));
    auto options = soakOptions(main);
    options.lineIndexLimits = {};
    auto doc = Document::open(path.string(), options);
    if (!doc) {
      std::printf("  open: %s\n", doc.error().describe().c_str());
      continue;
    }
    (*doc)->waitForLineIndex(std::chrono::minutes(5));
    std::printf("  open + line index: %.2f s, %lld lines\n", seconds(),
                static_cast<long long>((*doc)->snapshot().lines.lineCount()));
    const auto snapshot = (*doc)->snapshot();
    search::SearchCancellation cancellation;
    const auto found =
        search::SearchEngine().search(1000, {.query = "y"}, snapshot.text, snapshot.lines, cancellation);
    std::printf("  search: %lld matches, timed out %d, %.2f s\n",
                static_cast<long long>(found.totalMatchCount), found.timedOut, seconds());
    csv::CSVRecordIndex index(csv::detectDelimiter(snapshot.text, '\n').value_or(csv::CSVDelimiter::comma()),
                              snapshot.text.totalLength());
    index.build(snapshot.text, '\n');
    std::printf("  CSV index: %lld rows, state %s, %.2f s\n", static_cast<long long>(index.rowCount()),
                std::string(csv::rawValue(index.parseState())).c_str(), seconds());
    const auto compared =
        compare::compareSides({.left = compare::CompareSide::of((*doc)->describedSnapshot(), "left"),
                               .right = compare::CompareSide::of((*doc)->describedSnapshot(), "right"),
                               .options = {},
                               .budget = compare::kCompareBudget,
                               .sideByteLimit = compare::kSideByteLimit});
    std::printf(
        "  compare with itself: %s, %.2f s\n",
        compared ? (compared->identical() ? "identical" : "differs") : compared.error().describe().c_str(),
        seconds());
    (void)(*doc)->insert(0, "Z", {}, {});
    std::optional<std::string> saved;
    (*doc)->save([&](const auto& r) { saved = r ? std::string("saved") : r.error().describe(); });
    while (!saved) main.waitAndRun(std::chrono::milliseconds(100));
    std::printf("  save: %s, %.2f s, size now %lld\n", saved->c_str(), seconds(),
                static_cast<long long>(std::filesystem::file_size(path)));
    doc->reset();
    main.runPending();
    std::filesystem::remove(path);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const Args args = parseArgs(argc, argv);
  std::optional<testing::TempDir> temp;
  std::filesystem::path dir;
  if (args.dir) {
    dir = *args.dir;
    std::filesystem::create_directories(dir);
  } else {
    temp.emplace();
    dir = temp->path();
  }
  if (args.hostile) {
    hostileRun(dir);
    return 0;
  }
  std::printf("quorin-soak: %.0f s, seed %llu, in %s\n", args.seconds,
              static_cast<unsigned long long>(args.seed), dir.c_str());
  std::fflush(stdout);
  return Soak(args, dir).run();
}
