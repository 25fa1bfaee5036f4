// Feeds arbitrary bytes that start with a BGZF header to the reader through the several-thread
// BGZF decoder (2 to 4 threads, either inflater) and through the one-thread gzip decoder. Each
// must accept the input or refuse it with a positioned InputError, without hanging or crashing;
// when both accept, they must have read the same records.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "genostat/input_error.h"
#include "genostat/reader.h"

namespace {

class HashingSink final : public genostat::RecordSink {
 public:
  void onRecord(const genostat::FastqRecord& record) override {
    for (std::string_view part : {record.header, record.sequence, record.quality}) {
      for (char c : part) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
      hash = (hash ^ 0xff) * 1099511628211u;
    }
  }
  std::uint64_t hash = 14695981039346656037u;
};

// The records' hash, or 0 when the input was refused.
std::uint64_t readAll(std::string_view input, genostat::Inflater inflater, unsigned threads) {
  HashingSink sink;
  try {
    auto source = genostat::openDecodedSource(genostat::memorySource(input), "fuzz.fastq.gz",
                                              inflater, nullptr, threads);
    genostat::ReadOptions options;
    options.bufferSize = 4096;
    genostat::readFastq(*source, "fuzz.fastq.gz", sink, options);
  } catch (const genostat::InputError& error) {
    if (error.kind() == genostat::InputErrorKind::Unsupported) return 0;  // bzip2 without libbz2
    if (error.kind() != genostat::InputErrorKind::Malformed) __builtin_trap();
    if (error.message().rfind("record ", 0) != 0) __builtin_trap();
    return 0;
  }
  return sink.hash | 1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Other input is the reader fuzzer's: here it would only cost the time of two ordinary reads.
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (genostat::sniffCompression(input) != genostat::Compression::Bgzf) return 0;
  const auto inflater = size % 2 == 0 ? genostat::Inflater::Isal : genostat::Inflater::Zlib;
  const std::uint64_t parallel = readAll(input, inflater, 2 + static_cast<unsigned>(size % 3));
  const std::uint64_t serial = readAll(input, inflater, 1);
  // A member whose stated size is wrong may be refused by the first and read by the second.
  if (parallel != 0 && serial != 0 && parallel != serial) __builtin_trap();
  return 0;
}
