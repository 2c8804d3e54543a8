#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "storage/AppendBuffer.h"
#include "storage/ByteRange.h"
#include "storage/OriginalBuffer.h"
#include "storage/Piece.h"
#include "text/DetectedEncoding.h"

namespace quorin::storage {

// The document's text at one version, immutable. Cheap to take (a shared
// piece list and two shared buffer references, no text) and readable on any
// thread without the table's lock, however the table changes afterwards. It
// keeps the mapping alive, so a job still reading an old snapshot is safe
// after the document has moved on.
//
// Reads never fail: out-of-range reads are absent or clamped. Original bytes
// lost to an outside truncation read as NUL (byte) or are left out (range).
class PieceTableSnapshot {
 public:
  PieceTableSnapshot(std::shared_ptr<const PieceList> list, std::shared_ptr<const OriginalBuffer> original,
                     std::shared_ptr<const AppendBuffer> append, int64_t version);

  int64_t totalLength() const { return list_->totalLength(); }
  int64_t version() const { return version_; }
  text::DetectedEncoding encoding() const { return original_->encoding(); }
  const std::vector<Piece>& pieces() const { return list_->pieces; }
  const std::vector<int64_t>& prefixLengths() const { return list_->prefixLengths; }
  const OriginalBuffer& originalBuffer() const { return *original_; }

  // Index of the piece holding byte `offset`; the piece count past the end.
  size_t pieceIndex(int64_t offset) const { return list_->pieceIndex(offset); }

  // Absent past the end; NUL for an original byte the file no longer has.
  std::optional<uint8_t> byte(int64_t offset) const;
  // The bytes of [start, end) clamped to the document; absent when that is empty.
  std::optional<std::string> readBytes(ByteRange range) const;
  // Copies the bytes of [start, end) clamped to the document into dest, which
  // must have room for range.length() bytes; returns how many were copied.
  // For scans that reuse one buffer instead of allocating per read.
  int64_t copyBytes(ByteRange range, uint8_t* dest) const;
  // readBytes decoded to UTF-8 with the snapshot's encoding (lossy); empty when absent.
  std::string text(ByteRange range) const;

 private:
  std::shared_ptr<const PieceList> list_;
  std::shared_ptr<const OriginalBuffer> original_;
  std::shared_ptr<const AppendBuffer> append_;
  int64_t version_;
};

}  // namespace quorin::storage
