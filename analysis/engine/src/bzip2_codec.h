// bzip2 cut into its blocks, so that libbz2 decodes several blocks at once on several threads.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "genostat/byte_source.h"
#include "parallel_decode.h"

namespace genostat {

// The blocks of the bzip2 file `raw` (read from its first byte, "BZh"), each re-framed as a
// stream of its own. Concatenated streams, zero padding after the last one and the refusals of
// damage read as in the one-thread decoder. Only in builds with libbz2 (bzip2Available()).
//
// For tests: a bit offset in the file where the cutter acts as if it had found a block marker (or
// the end marker), as happens when a marker's 48-bit pattern occurs by chance inside compressed
// data.
struct ChanceMarker {
  std::uint64_t bit;
  bool end = false;
};

// `chanceMarkers` must be sorted by offset.
std::unique_ptr<PieceCodec> bzip2PieceCodec(std::unique_ptr<ByteSource> raw,
                                            std::vector<ChanceMarker> chanceMarkers = {});

}  // namespace genostat
