// Feeds arbitrary bytes to the bzip2 block cutter, driven on one thread as the parallel source
// drives it (pieces in order, a refused piece joined to the next, the stream-wide check at the
// end), then through the parallel source itself on two threads: both must hand out the same text
// and end the same way. An odd first byte also plants chance block and end markers (two dozen at
// most) at a spacing taken from it, so that joining is reached with any data. A crash, a hang, a
// sanitizer report, another exception or a difference is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bzip2_codec.h"
#include "parallel_decode.h"

namespace {

struct Outcome {
  std::string text;
  std::string error;
};

Outcome oneThread(std::string_view input, const std::vector<genostat::ChanceMarker>& chance) {
  Outcome out;
  auto codec = genostat::bzip2PieceCodec(genostat::memorySource(input), chance);
  std::vector<char> text;
  try {
    genostat::Piece piece, next;
    for (bool have = codec->split(piece); have;) {
      bool haveNext = false;
      std::string splitError;
      try {
        haveNext = codec->split(next);
      } catch (const genostat::StreamDamaged& error) {
        splitError = error.what();
      }
      try {
        while (!codec->decode(piece, text)) {
          if (!codec->join(piece, haveNext ? &next : nullptr)) throw codec->damaged(piece);
          splitError.clear();
          try {
            haveNext = codec->split(next);
          } catch (const genostat::StreamDamaged& error) {
            haveNext = false;
            splitError = error.what();
          }
        }
      } catch (const genostat::StreamDamaged&) {
        out.text.append(text.data(), text.size());
        throw;
      }
      out.text.append(text.data(), text.size());
      if (!splitError.empty()) throw genostat::StreamDamaged(splitError);
      std::swap(piece, next);
      have = haveNext;
    }
    codec->finish();
  } catch (const genostat::StreamDamaged& error) {
    out.error = error.what();
  }
  return out;
}

Outcome twoThreads(std::string_view input, const std::vector<genostat::ChanceMarker>& chance) {
  Outcome out;
  auto source = genostat::parallelDecodedSource(
      genostat::bzip2PieceCodec(genostat::memorySource(input), chance), 2);
  std::string buffer(1 << 16, '\0');
  try {
    while (const std::size_t n = source->read(buffer.data(), buffer.size())) {
      out.text.append(buffer, 0, n);
    }
  } catch (const genostat::StreamDamaged& error) {
    out.error = error.what();
  }
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);
  std::vector<genostat::ChanceMarker> chance;
  if (size > 1 && (data[0] & 1) != 0) {
    const std::uint64_t step = 24 + data[0];
    for (std::uint64_t bit = 40; bit < 8 * size && chance.size() < 24; bit += step) {
      chance.push_back({bit, bit % 3 == 0});
    }
    input.remove_prefix(1);
  }
  const Outcome one = oneThread(input, chance);
  const Outcome two = twoThreads(input, chance);
  if (one.text != two.text || one.error != two.error) __builtin_trap();
  return 0;
}
