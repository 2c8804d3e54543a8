#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace quorin::testing {

// Files users open by mistake or receive broken, made fresh in `dir`.
// Sizes are scaled down so that every operation on every file stays fast;
// the full-size shapes (a 1 GiB line, 10 million empty lines) are made by
// quorin-soak --hostile.
struct HostileFile {
  std::string name;
  std::filesystem::path path;
  bool regular = true;  // a regular file we made (and may write to)
};

inline std::string invalidUtf8Bytes() {
  // Lone continuations, overlongs, surrogates, code points past U+10FFFF,
  // leads cut off by a line break or by the end: every shape UTF-8 forbids.
  static const std::string kShapes[] = {"\x80",
                                        "\xBF\xBF",
                                        "\xC0\x80",
                                        "\xC1\xBF",
                                        "\xE0\x80\x80",
                                        "\xED\xA0\x80",
                                        "\xF4\x90\x80\x80",
                                        "\xF8\x88\x80\x80\x80",
                                        "\xFE",
                                        "\xFF",
                                        "\xC3",
                                        "\xE2\x82"};
  std::string out;
  for (int i = 0; i < 4000; ++i) {
    out += kShapes[static_cast<size_t>(i) % std::size(kShapes)];
    if (i % 7 == 6) out += '\n';
  }
  return out + "\xE2\x82";
}

inline std::string utf16LEWithoutMark(std::u16string_view text) {
  std::string out;
  for (const char16_t unit : text) {
    out += static_cast<char>(unit & 0xFF);
    out += static_cast<char>(unit >> 8);
  }
  return out;
}

inline std::vector<HostileFile> makeHostileCorpus(const TempDir& dir) {
  std::vector<HostileFile> files;
  auto regular = [&](const std::string& name, const std::string& bytes) {
    files.push_back({name, dir.write(name, bytes), true});
  };
  regular("empty.txt", "");
  regular("nul-bytes.bin", std::string(64 * 1024, '\0'));
  regular("one-long-line.txt", std::string(256 << 10, 'x'));
  regular("empty-lines.txt", std::string(50'000, '\n'));
  regular("invalid-utf8.txt", invalidUtf8Bytes());
  std::u16string utf16;
  for (int i = 0; i < 200; ++i)
    utf16 += u"line " + std::u16string(1, static_cast<char16_t>(u'a' + i % 26)) + u"\r\n";
  regular("utf16-no-mark.txt", utf16LEWithoutMark(utf16));
  regular("mixed-endings.txt", "crlf\r\nlf\ncr\rlast crlf\r\n\n\r\rend");
  {
    const auto path = dir.path() / "executable";
    std::filesystem::copy_file("/bin/true", path);
    files.push_back({"executable", path, true});
  }
  {
    const auto path = dir.write("unreadable.txt", "secret\n");
    ::chmod(path.c_str(), 0);
    files.push_back({"unreadable.txt", path, true});
  }
  {
    const auto path = dir.path() / "a-directory";
    std::filesystem::create_directory(path);
    files.push_back({"a-directory", path, false});
  }
  {
    const auto path = dir.path() / "a-fifo";
    ::mkfifo(path.c_str(), 0600);
    files.push_back({"a-fifo", path, false});
  }
  files.push_back({"proc-status", "/proc/self/status", false});
  return files;
}

}  // namespace quorin::testing
