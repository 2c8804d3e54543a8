#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "text/DetectedEncoding.h"

namespace quorin::text {

// How many leading bytes of a file the caller should hand to detectEncoding:
// enough for the statistics to be sure of a legacy encoding, small enough to
// read at once when the file opens.
inline constexpr size_t kDetectionSampleBytes = 64 * 1024;

// Picks the encoding of a file from its first bytes (normally the first
// kDetectionSampleBytes; pass sampleIsWholeFile when the file is no longer
// than that). In this order:
//
// 1. A byte-order mark decides (UTF-32LE's mark is tested before UTF-16LE's).
// 2. An empty sample is `utf8`.
// 3. UTF-32 or UTF-16 without a mark is recognised by its zero bytes.
//    UTF-32: every 32-bit unit is a character outside the nearly empty
//    planes 3–13, and at most an eighth are NUL. UTF-16: at least a fifth of
//    the units have a zero high byte, ten times fewer a zero low byte, and no
//    surrogate is unpaired — a pattern only text in mostly Latin script
//    shows; CJK text in UTF-16 without a mark is not recognised (the user
//    reopens it with the encoding named).
// 4. Valid UTF-8 (pure ASCII included) is `utf8`. A multi-byte sequence cut
//    off at the end of the sample is tolerated, since the sample's end is
//    arbitrary; when the sample is the whole file it is tolerated only after
//    at least one complete multi-byte sequence, so that a short Latin-1 file
//    ending in "é" (a lone E9) is not taken for UTF-8.
// 5. ICU's charset detector ranks the candidates; the best one that is a
//    legacy encoding of ours wins: Shift_JIS, EUC-JP, GB18030, Big5, EUC-KR
//    (each only with a confidence of at least 25, below which ICU reports
//    them for any input), Windows-1252 (ICU says so when bytes 0x80–0x9F
//    occur) and ISO-8859-1.
// 6. Otherwise `windows1252`: it maps every byte, so even a binary file
//    survives the round trip through a working copy unchanged.
//
// Only the sample is looked at: a file whose first 64 KiB are ASCII and
// whose later text is Shift_JIS is taken for UTF-8.
//
// Thread-safe; allocates ICU's detector for the call.
DetectedEncoding detectEncoding(std::span<const uint8_t> sample, bool sampleIsWholeFile);

}  // namespace quorin::text
