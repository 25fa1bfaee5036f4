// The strict FASTQ reader: four-line records, empty lines skipped between records, CRLF accepted,
// sequences upper-cased, everything else that is not well-formed refused with the record, the line
// and the reason.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "genostat/byte_source.h"
#include "genostat/metrics.h"

namespace genostat {

class RecordSink {
 public:
  virtual ~RecordSink() = default;
  virtual void onRecord(const FastqRecord& record) = 0;
};

// Thrown (from readFastq) when `cancel` was set while reading.
class ReadCancelled : public std::exception {
 public:
  const char* what() const noexcept override { return "reading cancelled"; }
};

struct ReadOptions {
  // Checked between buffer fills; when it becomes true the read stops with ReadCancelled.
  const std::atomic<bool>* cancel = nullptr;
  // Updated between buffer fills with the number of records read so far.
  std::atomic<std::uint64_t>* recordsRead = nullptr;
  // First size of the parse buffer; it grows when one record does not fit.
  std::size_t bufferSize = std::size_t{1} << 20;
  // A record (with the empty lines before it) longer than this is refused rather than buffered:
  // no sequencer writes one, and a file without line ends must not take all memory.
  std::size_t maxRecordBytes = std::size_t{256} << 20;
};

// Parses the whole of `source` (already decompressed text), handing every record to `sink` in
// order. `path` names the file in errors. Returns the number of records. Throws InputError
// (Malformed) naming record, line and reason, and lets the source's own errors through, turning
// a malformed-stream error of the source into one positioned at the record and line it cut.
std::uint64_t readFastq(ByteSource& source, const std::string& path, RecordSink& sink,
                        const ReadOptions& options = {});

// Convenience for whole in-memory files (tests, fuzzing): sniffs and decompresses as a file would.
std::uint64_t readFastqMemory(std::string_view data, const std::string& path, RecordSink& sink,
                              Inflater inflater = Inflater::Default);

}  // namespace genostat
