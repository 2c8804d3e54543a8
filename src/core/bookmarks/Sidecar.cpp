#include "bookmarks/Sidecar.h"

#include <nlohmann/json.hpp>

namespace quorin::bookmarks {
namespace {

using nlohmann::json;

constexpr size_t kMaxBookmarks = 10'000'000;

struct Refusal {
  std::string reason;
};

const json& field(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end()) throw Refusal{std::string("missing \"") + key + "\""};
  return *found;
}

std::string text(const json& object, const char* key) {
  const json& value = field(object, key);
  if (!value.is_string()) throw Refusal{std::string("\"") + key + "\" is not a string"};
  return value.get<std::string>();
}

// A whole number in range, refused otherwise (get<> would convert 1e300 or wrap 2^64 - 1).
template <typename T>
T whole(const json& object, const char* key) {
  const json& value = field(object, key);
  if (!value.is_number_integer()) throw Refusal{std::string("\"") + key + "\" is not a whole number"};
  if constexpr (std::is_unsigned_v<T>) {
    if (!value.is_number_unsigned()) throw Refusal{std::string("\"") + key + "\" is negative"};
    return value.get<uint64_t>();
  } else {
    if (value.is_number_unsigned() && value.get<uint64_t>() > uint64_t{INT64_MAX})
      throw Refusal{std::string("\"") + key + "\" is too large"};
    return value.get<int64_t>();
  }
}

json bookmarksJson(const std::vector<SidecarBookmark>& bookmarks) {
  json list = json::array();
  for (const auto& b : bookmarks) {
    json entry{{"line", b.line}, {"textHash", b.textHash}};
    if (!b.note.empty()) entry["note"] = b.note;
    list.push_back(std::move(entry));
  }
  return list;
}

std::vector<SidecarBookmark> bookmarksFrom(const json& document, const char* key) {
  const auto found = document.find(key);
  if (found == document.end()) return {};
  if (!found->is_array()) throw Refusal{std::string("\"") + key + "\" is not a list"};
  if (found->size() > kMaxBookmarks) throw Refusal{std::string("too many entries in \"") + key + "\""};
  std::vector<SidecarBookmark> out;
  out.reserve(found->size());
  for (const json& entry : *found) {
    if (!entry.is_object()) throw Refusal{"a bookmark is not an object"};
    SidecarBookmark b{whole<int64_t>(entry, "line"), whole<uint64_t>(entry, "textHash"), ""};
    if (entry.contains("note")) b.note = text(entry, "note");
    if (b.line < 0) throw Refusal{"a bookmark's line is negative"};
    if (!out.empty() && b.line <= out.back().line) throw Refusal{"bookmarks are not in line order"};
    out.push_back(std::move(b));
  }
  return out;
}

}  // namespace

uint64_t lineTextHash(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325ull;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3ull;
  }
  return hash;
}

std::string sidecarToJson(const Sidecar& sidecar) {
  const SidecarFile& f = sidecar.file;
  const json document{{"quorinSidecar", kSidecarVersion},
                      {"file",
                       {{"path", f.path},
                        {"device", f.device},
                        {"inode", f.inode},
                        {"size", f.size},
                        {"modifiedNanos", f.modifiedNanos},
                        {"headSha256", f.headSha256}}},
                      {"bookmarks", bookmarksJson(sidecar.bookmarks)},
                      {"lost", bookmarksJson(sidecar.lost)},
                      {"notes", sidecar.notes},
                      {"writtenNanos", sidecar.writtenNanos}};
  return document.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::expected<Sidecar, SidecarError> sidecarFromJson(std::string_view input) {
  try {
    const json document = json::parse(input);
    if (!document.is_object()) return std::unexpected(SidecarError{"not a JSON object"});
    const int64_t version = whole<int64_t>(document, "quorinSidecar");
    if (version < 1 || version > kSidecarVersion) {
      return std::unexpected(
          SidecarError{"version " + std::to_string(version) + " is not one this version of Quorin reads"});
    }
    const json& file = field(document, "file");
    if (!file.is_object()) throw Refusal{"\"file\" is not an object"};
    Sidecar sidecar;
    sidecar.file = {
        text(file, "path"),           whole<uint64_t>(file, "device"),       whole<uint64_t>(file, "inode"),
        whole<int64_t>(file, "size"), whole<int64_t>(file, "modifiedNanos"), text(file, "headSha256")};
    sidecar.bookmarks = bookmarksFrom(document, "bookmarks");
    sidecar.lost = bookmarksFrom(document, "lost");
    if (document.contains("notes")) sidecar.notes = text(document, "notes");
    if (document.contains("writtenNanos")) sidecar.writtenNanos = whole<int64_t>(document, "writtenNanos");
    return sidecar;
  } catch (const json::parse_error& error) {
    return std::unexpected(SidecarError{"not valid JSON (byte " + std::to_string(error.byte) + ")"});
  } catch (const Refusal& refusal) {
    return std::unexpected(SidecarError{refusal.reason});
  } catch (const json::exception& error) {
    return std::unexpected(SidecarError{error.what()});
  }
}

}  // namespace quorin::bookmarks
