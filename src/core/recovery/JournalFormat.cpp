#include "recovery/JournalFormat.h"

#include <cstring>
#include <nlohmann/json.hpp>

#include "recovery/Crc32c.h"

namespace quorin::recovery {
namespace {

using nlohmann::json;

constexpr std::string_view kMagic = "QRUJ";

template <typename T>
void put(std::string& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));  // the build targets are little-endian
  out.append(bytes, sizeof(T));
}

// Reads fixed-size values off the front of a view; false once it runs out.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : bytes_(bytes) {}
  template <typename T>
  bool get(T& value) {
    if (bytes_.size() < sizeof(T)) return false;
    std::memcpy(&value, bytes_.data(), sizeof(T));
    bytes_.remove_prefix(sizeof(T));
    return true;
  }
  bool take(uint64_t n, std::string_view& out) {
    if (bytes_.size() < n) return false;
    out = bytes_.substr(0, n);
    bytes_.remove_prefix(n);
    return true;
  }
  size_t left() const { return bytes_.size(); }

 private:
  std::string_view bytes_;
};

std::optional<JournalRecord> decodeRecord(std::string_view payload) {
  Reader in(payload);
  uint32_t count = 0;
  if (!in.get(count)) return std::nullopt;
  JournalRecord record;
  for (uint32_t i = 0; i < count; ++i) {
    int64_t offset = 0, removed = 0;
    uint64_t inserted = 0;
    std::string_view bytes;
    if (!in.get(offset) || !in.get(removed) || !in.get(inserted) || offset < 0 || removed < 0 ||
        !in.take(inserted, bytes)) {
      return std::nullopt;
    }
    record.push_back({offset, removed, std::string(bytes)});
  }
  if (in.left() != 0) return std::nullopt;
  return record;
}

}  // namespace

std::string encodeJournalHeader(const JournalHeader& h) {
  const json header{{"path", h.path},
                    {"title", h.title},
                    {"identity",
                     {{"device", h.device},
                      {"inode", h.inode},
                      {"size", h.size},
                      {"mtimeSeconds", h.mtimeSeconds},
                      {"mtimeNanos", h.mtimeNanos}}},
                    {"encoding", h.encoding},
                    {"lineEnding", h.lineEnding},
                    {"openMode", h.openMode},
                    {"windowStart", h.windowStart},
                    {"windowEnd", h.windowEnd},
                    {"untitled", h.untitled},
                    {"pid", h.pid},
                    {"created", h.createdSeconds}};
  const std::string text = header.dump(-1, ' ', false, json::error_handler_t::replace);
  std::string out(kMagic);
  put<uint32_t>(out, kJournalVersion);
  put<uint32_t>(out, static_cast<uint32_t>(text.size()));
  out += text;
  return out;
}

std::string encodeRecord(const std::vector<SiteView>& sites) {
  std::string payload;
  put<uint32_t>(payload, static_cast<uint32_t>(sites.size()));
  for (const SiteView& site : sites) {
    put<int64_t>(payload, site.offset);
    put<int64_t>(payload, site.removed);
    put<uint64_t>(payload, site.inserted.size());
    payload += site.inserted;
  }
  std::string out;
  out.reserve(payload.size() + 12);
  put<uint64_t>(out, payload.size());
  put<uint32_t>(out, crc32c(payload));
  return out + payload;
}

std::expected<ParsedJournal, JournalError> parseJournal(std::string_view bytes) {
  Reader in(bytes);
  std::string_view magic, headerText;
  uint32_t version = 0, headerLength = 0;
  if (!in.take(kMagic.size(), magic) || magic != kMagic) return std::unexpected(JournalError{"no QRUJ mark"});
  if (!in.get(version) || version != kJournalVersion) {
    return std::unexpected(
        JournalError{"version " + std::to_string(version) + " is not one this version reads"});
  }
  if (!in.get(headerLength) || !in.take(headerLength, headerText)) {
    return std::unexpected(JournalError{"the header is cut short"});
  }
  ParsedJournal parsed;
  try {
    const json h = json::parse(headerText);
    const json& id = h.at("identity");
    parsed.header = {.path = h.at("path").get<std::string>(),
                     .title = h.value("title", std::string()),
                     .device = id.at("device").get<uint64_t>(),
                     .inode = id.at("inode").get<uint64_t>(),
                     .size = id.at("size").get<int64_t>(),
                     .mtimeSeconds = id.at("mtimeSeconds").get<int64_t>(),
                     .mtimeNanos = id.at("mtimeNanos").get<int64_t>(),
                     .encoding = h.at("encoding").get<std::string>(),
                     .lineEnding = h.at("lineEnding").get<std::string>(),
                     .openMode = h.at("openMode").get<std::string>(),
                     .windowStart = h.at("windowStart").get<int64_t>(),
                     .windowEnd = h.at("windowEnd").get<int64_t>(),
                     .untitled = h.at("untitled").get<bool>(),
                     .pid = h.value("pid", int64_t{0}),
                     .createdSeconds = h.value("created", int64_t{0})};
  } catch (const json::exception& e) {
    return std::unexpected(JournalError{std::string("the header is not readable (") + e.what() + ")"});
  }
  while (in.left() > 0) {
    uint64_t length = 0;
    uint32_t crc = 0;
    std::string_view payload;
    if (!in.get(length) || length > kMaxRecordBytes || !in.get(crc) || !in.take(length, payload) ||
        crc32c(payload) != crc) {
      parsed.torn = true;
      break;
    }
    auto record = decodeRecord(payload);
    if (!record) {
      parsed.torn = true;
      break;
    }
    parsed.records.push_back(std::move(*record));
  }
  return parsed;
}

}  // namespace quorin::recovery
