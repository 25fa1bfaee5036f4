// Feeds arbitrary bytes to the reader as a whole file: plain text, or gzip/bzip2 when the bytes
// start with their magic. The reader must either accept the input or refuse it with a positioned
// InputError; anything else (a crash, a sanitizer report, another exception) is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "genostat/input_error.h"
#include "genostat/reader.h"

namespace {

class CheckingSink final : public genostat::RecordSink {
 public:
  void onRecord(const genostat::FastqRecord& record) override {
    // What the reader promises the metrics: '@' header, equal lengths, upper-case printable text.
    if (record.header.empty() || record.header[0] != '@') __builtin_trap();
    if (record.sequence.size() != record.quality.size()) __builtin_trap();
    for (char c : record.sequence) {
      if (c < '!' || c > '~' || (c >= 'a' && c <= 'z')) __builtin_trap();
    }
    for (char c : record.quality) {
      if (c < '!' || c > '~') __builtin_trap();
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  CheckingSink sink;
  try {
    // Both inflaters see gzip input: the input's length picks one.
    const auto inflater = size % 2 == 0 ? genostat::Inflater::Isal : genostat::Inflater::Zlib;
    genostat::readFastqMemory(input, "fuzz.fastq", sink, inflater);
  } catch (const genostat::InputError& error) {
    // A build without bzip2 refuses such input whole, before any record.
    if (error.kind() == genostat::InputErrorKind::Unsupported) return 0;
    if (error.kind() != genostat::InputErrorKind::Malformed) __builtin_trap();
    if (error.message().rfind("record ", 0) != 0) __builtin_trap();
  }
  return 0;
}
