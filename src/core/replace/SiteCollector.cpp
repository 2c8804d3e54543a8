#include "replace/SiteCollector.h"

namespace quorin::replace {

using storage::ByteRange;
using Site = storage::PieceTable::BulkEditSite;

void SiteCollector::add(int64_t start, int64_t end, std::string_view bytes) {
  // Matches come in order without overlap; one that does not is dropped
  // rather than given to the document, which would skip it anyway.
  if (start > end || (!sites_.empty() && start < sites_.back().range.end)) return;
  keepsLength_ = keepsLength_ && end - start == static_cast<int64_t>(bytes.size());
  sites_.push_back({{start, end}, std::string(bytes)});
}

std::vector<Site> SiteCollector::take(bool& merged, int64_t mergeAbove, int64_t chunkBytes) {
  merged = false;
  if (static_cast<int64_t>(sites_.size()) <= mergeAbove) return std::move(sites_);
  merged = true;
  std::vector<Site> out;
  std::string original;
  size_t i = 0;
  while (i < sites_.size()) {
    // The run of sites that ends within chunkBytes of this one's start.
    const int64_t runStart = sites_[i].range.start;
    size_t j = i + 1;
    while (j < sites_.size() && sites_[j].range.end - runStart <= chunkBytes) ++j;
    if (j == i + 1) {
      out.push_back(std::move(sites_[i++]));
      continue;
    }
    const ByteRange span{runStart, sites_[j - 1].range.end};
    original.resize(static_cast<size_t>(span.length()));
    text_.copyBytes(span, reinterpret_cast<uint8_t*>(original.data()));
    std::string bytes;
    bytes.reserve(original.size());
    int64_t at = span.start;
    for (size_t k = i; k < j; ++k) {
      bytes.append(original, static_cast<size_t>(at - span.start),
                   static_cast<size_t>(sites_[k].range.start - at));
      bytes += sites_[k].bytes;
      at = sites_[k].range.end;
    }
    out.push_back({span, std::move(bytes)});
    i = j;
  }
  sites_.clear();
  return out;
}

}  // namespace quorin::replace
