#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quorin::storage {

enum class PieceSource : uint8_t { original, append };

// A run of document bytes taken from one source. For `original` the offset
// is a file offset (so a file with a byte-order mark starts at contentStart,
// not 0); for `append` it is an offset into the append buffer.
struct Piece {
  PieceSource source = PieceSource::original;
  int64_t offset = 0;
  int64_t length = 0;  // > 0 in every stored list

  int64_t sourceEnd() const { return offset + length; }
  bool operator==(const Piece&) const = default;
};

// The piece list at one version, never modified once built: edits build a
// new list, so a snapshot shares its list with the table at no cost and
// keeps reading it after later edits.
struct PieceList {
  std::vector<Piece> pieces;
  // prefixLengths[i] is the document offset at which piece i ends.
  std::vector<int64_t> prefixLengths;

  int64_t totalLength() const { return prefixLengths.empty() ? 0 : prefixLengths.back(); }
  int64_t pieceStart(size_t i) const { return i == 0 ? 0 : prefixLengths[i - 1]; }

  // The index of the piece holding byte `offset`; the piece count when the
  // offset is at or past the end. O(log n): binary search on prefixLengths.
  size_t pieceIndex(int64_t offset) const;

  // Builds a list from pieces, dropping empty ones and summing the prefixes.
  static PieceList fromPieces(std::vector<Piece> pieces);
};

}  // namespace quorin::storage
