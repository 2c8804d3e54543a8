#include "storage/PieceTableSnapshot.h"

#include <algorithm>
#include <span>

#include "text/Decode.h"

namespace quorin::storage {

PieceTableSnapshot::PieceTableSnapshot(std::shared_ptr<const PieceList> list,
                                       std::shared_ptr<const OriginalBuffer> original,
                                       std::shared_ptr<const AppendBuffer> append, int64_t version)
    : list_(std::move(list)), original_(std::move(original)), append_(std::move(append)), version_(version) {}

std::optional<uint8_t> PieceTableSnapshot::byte(int64_t offset) const {
  if (offset < 0 || offset >= totalLength()) return std::nullopt;
  const size_t i = list_->pieceIndex(offset);
  const Piece& piece = list_->pieces[i];
  const int64_t at = piece.offset + (offset - list_->pieceStart(i));
  if (piece.source == PieceSource::append) return append_->byteAt(at);
  return original_->mmap().byteAt(at);
}

int64_t PieceTableSnapshot::copyBytes(ByteRange range, uint8_t* dest) const {
  const int64_t total = totalLength();
  const int64_t s = std::clamp<int64_t>(range.start, 0, total);
  const int64_t e = std::min(range.end, total);
  if (total == 0 || e <= s) return 0;
  const size_t first = list_->pieceIndex(s);
  const size_t last = list_->pieceIndex(e - 1);
  if (first > last || last >= list_->pieces.size()) return 0;

  int64_t written = 0;
  for (size_t i = first; i <= last; ++i) {
    const Piece& piece = list_->pieces[i];
    const int64_t pieceStart = list_->pieceStart(i);
    const int64_t from = std::max(s, pieceStart) - pieceStart + piece.offset;
    const int64_t to = std::min(e, list_->prefixLengths[i]) - pieceStart + piece.offset;
    written += piece.source == PieceSource::append ? append_->copy(from, to, dest + written)
                                                   : original_->mmap().copy(from, to, dest + written);
  }
  return written;
}

std::optional<std::string> PieceTableSnapshot::readBytes(ByteRange range) const {
  const int64_t s = std::max<int64_t>(range.start, 0);
  const int64_t e = std::min(range.end, totalLength());
  if (e <= s) return std::nullopt;
  std::string out(static_cast<size_t>(e - s), '\0');
  const int64_t written = copyBytes({s, e}, reinterpret_cast<uint8_t*>(out.data()));
  if (written == 0) return std::nullopt;
  out.resize(static_cast<size_t>(written));
  return out;
}

std::string PieceTableSnapshot::text(ByteRange range) const {
  const auto bytes = readBytes(range);
  if (!bytes) return {};
  return text::decodeToUtf8({reinterpret_cast<const uint8_t*>(bytes->data()), bytes->size()}, encoding());
}

}  // namespace quorin::storage
