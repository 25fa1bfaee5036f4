// Per-read cost of the engine's accumulation, without file reading: synthetic 150-bp reads (tile
// headers, a few adapters, an N now and then) held in memory and fed to SampleMetrics::add, then
// to the base counter and the adapter search alone at every vector level.
//
// usage: genostat-bench-metrics [READS] [ROUNDS]      (defaults 200000 and 5; best round counts)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "genostat/metrics.h"
#include "metrics_internal.h"

namespace {

using genostat::FastqRecord;
using genostat::metrics_detail::Simd;

struct Read {
  std::string_view header;
  std::string_view sequence;
  std::string_view quality;
};

// The reads' text lies back to back in `arena`, as in the reader's buffer.
std::vector<Read> makeReads(std::size_t count, std::string& arena) {
  std::uint64_t state = 0x2545F4914F6CDD1DULL;
  auto next = [&state] {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  };
  const std::string adapter = "AGATCGGAAGAGCACACGTCTGAACTCCAGTCAC";
  struct Span {
    std::size_t header, sequence, quality, headerSize;
  };
  std::vector<Span> spans(count);
  for (std::size_t r = 0; r < count; ++r) {
    const std::string header = "@BENCH01:7:FC0001:1:" + std::to_string(1101 + next() % 16) + ":" +
                               std::to_string(next() % 30000) + ":" +
                               std::to_string(next() % 30000) + " 1:N:0:ACGTACGT";
    std::string sequence(150, 'A');
    std::string quality(150, 'I');
    for (std::size_t i = 0; i < 150; ++i) {
      const std::uint64_t x = next();
      sequence[i] = x % 1000 == 0 ? 'N' : "ACGT"[x & 3];
      quality[i] = static_cast<char>('!' + 20 + (x >> 8) % 21);
    }
    if (next() % 20 == 0) {
      const std::size_t at = 60 + next() % 80;
      sequence.replace(at, 150 - at, adapter.substr(0, 150 - at));
    }
    spans[r] = {arena.size(), arena.size() + header.size() + 1,
                arena.size() + header.size() + 152, header.size()};
    arena += header + "\n" + sequence + "\n+\n" + quality + "\n";
  }
  std::vector<Read> reads(count);
  const std::string_view text(arena);
  for (std::size_t r = 0; r < count; ++r) {
    reads[r] = {text.substr(spans[r].header, spans[r].headerSize),
                text.substr(spans[r].sequence, 150), text.substr(spans[r].quality + 2, 150)};
  }
  return reads;
}

// Best of `rounds` runs of `body`, in nanoseconds per read.
double bestNsPerRead(std::size_t reads, int rounds, const std::function<void()>& body) {
  double best = 0;
  for (int round = 0; round < rounds; ++round) {
    const auto start = std::chrono::steady_clock::now();
    body();
    const double ns =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
    if (round == 0 || ns < best) best = ns;
  }
  return best / static_cast<double>(reads);
}

const char* levelName(Simd simd) {
  switch (simd) {
    case Simd::Avx2: return "AVX2";
    case Simd::Sse2: return "SSE2";
    case Simd::None: break;
  }
  return "bytewise";
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 200000;
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 5;
  if (count == 0 || rounds <= 0) {
    std::fprintf(stderr, "usage: genostat-bench-metrics [READS > 0] [ROUNDS > 0]\n");
    return 2;
  }
  std::string arena;
  const std::vector<Read> reads = makeReads(count, arena);
  std::printf("%zu reads of 150 bp, best of %d rounds; vector level in use: %s\n\n", count, rounds,
              levelName(genostat::metrics_detail::bestSimd()));

  std::string row;
  for (const auto adapter : {genostat::AdapterSetting::None, genostat::AdapterSetting::Illumina}) {
    const double ns = bestNsPerRead(count, rounds, [&] {
      genostat::MetricsOptions options;
      options.adapter = adapter;
      genostat::SampleMetrics metrics(options);
      for (const Read& r : reads) metrics.add(FastqRecord{r.header, r.sequence, r.quality});
      row = metrics.finish("bench")[2];  // keeps the work observable
    });
    std::printf("SampleMetrics::add + finish, adapter %-8s %8.1f ns/read\n",
                adapter == genostat::AdapterSetting::None ? "NONE" : "ILLUMINA", ns);
  }

  const auto adapters = genostat::metrics_detail::adapterSequences(0, "");
  for (const Simd simd : {Simd::Avx2, Simd::Sse2, Simd::None}) {
    if (genostat::metrics_detail::usableSimd(simd) != simd) continue;
    std::size_t gc = 0;
    const double bases = bestNsPerRead(count, rounds, [&] {
      genostat::metrics_detail::BaseCounts counts(simd);
      for (const Read& r : reads) {
        gc += counts.add(reinterpret_cast<const unsigned char*>(r.sequence.data()),
                         r.sequence.size(), 100);
      }
    });
    const double search = bestNsPerRead(count, rounds, [&] {
      genostat::metrics_detail::AdapterScanner scanner(adapters, simd);
      for (const Read& r : reads) scanner.add(r.sequence);
      gc += static_cast<std::size_t>(scanner.verdict());
    });
    std::printf("%-8s base classes %6.1f ns/read, six-adapter search %6.1f ns/read\n",
                levelName(simd), bases, search);
    if (gc == 1) std::printf(" ");  // keeps the counts observable
  }
  std::printf("\n(total reads counted: %s)\n", row.c_str());
  return 0;
}
