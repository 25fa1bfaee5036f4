// Feeds arbitrary bytes to the bzip2 block cutter, driven as the parallel source drives it: pieces
// in order, a refused piece joined to the next, the stream-wide check at the end. An odd first
// byte also plants chance block markers at a spacing taken from it, so that joining is reached
// with any data. Every input must end, with text or with StreamDamaged; anything else (a crash,
// a hang, a sanitizer report, another exception) is a finding.
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "bzip2_codec.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<genostat::ChanceMarker> chance;
  if (size > 1 && (data[0] & 1) != 0) {
    const std::uint64_t step = 24 + data[0];
    for (std::uint64_t bit = 40; bit < 8 * size; bit += step) chance.push_back({bit, bit % 3 == 0});
    input.remove_prefix(1);
  }
  auto codec = genostat::bzip2PieceCodec(genostat::memorySource(input), chance);
  std::vector<char> text;
  try {
    genostat::Piece piece, next;
    for (bool have = codec->split(piece); have;) {
      bool haveNext = codec->split(next);
      while (!codec->decode(piece, text)) {
        if (!codec->join(piece, haveNext ? &next : nullptr)) throw codec->damaged(piece);
        haveNext = codec->split(next);
      }
      std::swap(piece, next);
      have = haveNext;
    }
    codec->finish();
  } catch (const genostat::StreamDamaged&) {
  }
  return 0;
}
