#include "support/TempDir.h"

#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace quorin::testing {

TempDir::TempDir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "quorin-test-XXXXXX").string();
  if (::mkdtemp(tmpl.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

std::filesystem::path TempDir::write(const std::string& name, std::string_view bytes) const {
  auto file = path_ / name;
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!out) throw std::runtime_error("cannot write " + file.string());
  return file;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string utf16LEWithMark(std::u16string_view text) {
  std::string bytes = "\xFF\xFE";
  for (const char16_t unit : text) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

}  // namespace quorin::testing
