#include "storage/Piece.h"

#include <algorithm>

namespace quorin::storage {

size_t PieceList::pieceIndex(int64_t offset) const {
  if (pieces.empty() || offset >= totalLength()) return pieces.size();
  if (pieces.size() == 1) return 0;
  // The first piece whose end lies past the offset.
  return static_cast<size_t>(std::upper_bound(prefixLengths.begin(), prefixLengths.end(), offset) -
                             prefixLengths.begin());
}

PieceList PieceList::fromPieces(std::vector<Piece> pieces) {
  std::erase_if(pieces, [](const Piece& p) { return p.length <= 0; });
  PieceList list;
  list.prefixLengths.reserve(pieces.size());
  int64_t sum = 0;
  for (const auto& p : pieces) list.prefixLengths.push_back(sum += p.length);
  list.pieces = std::move(pieces);
  return list;
}

}  // namespace quorin::storage
