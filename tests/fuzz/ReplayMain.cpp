// Runs every file of a corpus directory through one fuzz target, so that the
// inputs the fuzzer once found are checked by every ordinary test run.
// Usage: quorin_fuzz_replay <Target> <corpus directory or file>...
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#define QUORIN_FUZZ_TARGET(name) extern "C" int quorinFuzz##name(const uint8_t* data, size_t size);
#include "FuzzTargets.inc"
#undef QUORIN_FUZZ_TARGET

namespace {

struct Target {
  std::string_view name;
  int (*run)(const uint8_t*, size_t);
};

#define QUORIN_FUZZ_TARGET(name) Target{#name, quorinFuzz##name},
constexpr Target kTargets[] = {
#include "FuzzTargets.inc"
};
#undef QUORIN_FUZZ_TARGET

// The input being replayed, named when a target aborts or crashes on it.
std::string gCurrentInput;

extern "C" void nameCurrentInput(int signal) {
  const char prefix[] = "fuzz replay: failed on ";
  (void)!::write(2, prefix, sizeof prefix - 1);
  (void)!::write(2, gCurrentInput.data(), gCurrentInput.size());
  (void)!::write(2, "\n", 1);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
}

int replay(const Target& target, const std::filesystem::path& file) {
  gCurrentInput = file.string();
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", file.c_str());
    return 1;
  }
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  // A copy of exactly the input's size, as libFuzzer hands it, so that a read
  // past the end is caught by the address sanitizer.
  std::vector<uint8_t> data(bytes.begin(), bytes.end());
  target.run(data.empty() ? nullptr : data.data(), data.size());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <target> <corpus>...\n", argv[0]);
    return 2;
  }
  const Target* target = nullptr;
  for (const Target& candidate : kTargets)
    if (candidate.name == argv[1]) target = &candidate;
  if (target == nullptr) {
    std::fprintf(stderr, "unknown target %s\n", argv[1]);
    return 2;
  }
  for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(signal, nameCurrentInput);
  int failures = 0;
  size_t inputs = 0;
  for (int i = 2; i < argc; ++i) {
    const std::filesystem::path root(argv[i]);
    std::vector<std::filesystem::path> files;
    if (std::filesystem::is_directory(root)) {
      for (const auto& entry : std::filesystem::recursive_directory_iterator(root))
        if (entry.is_regular_file()) files.push_back(entry.path());
    } else {
      files.push_back(root);
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
      failures += replay(*target, file);
      ++inputs;
    }
  }
  if (inputs == 0) {
    std::fprintf(stderr, "no inputs for %s\n", argv[1]);
    return 1;
  }
  std::printf("%s: %zu inputs replayed\n", argv[1], inputs);
  return failures == 0 ? 0 : 1;
}
