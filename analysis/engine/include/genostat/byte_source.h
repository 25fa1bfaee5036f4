// Byte streams under the FASTQ parser: the raw file, the decompressors stacked on it, and a
// thread that runs a stream ahead of its reader.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "genostat/input_error.h"

namespace genostat {

namespace platform {
struct SystemError;
}

// A compressed stream that is damaged or ends early. The reader turns it into a malformed-input
// error positioned at the record and line where the good text stops.
class StreamDamaged : public std::runtime_error {
 public:
  explicit StreamDamaged(const std::string& reason) : std::runtime_error(reason) {}
};

// A forward-only stream. read() fills at most `capacity` bytes and returns how many; 0 means the
// end. Failures throw (InputError for the data's or the file's fault, std::exception otherwise).
// A source that fails hands out every good byte it produced before throwing.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::size_t read(char* buffer, std::size_t capacity) = 0;
};

// Bgzf is gzip written as independent members that state their sizes (see bgzf_codec.h).
enum class Compression { Plain, Gzip, Bgzf, Bzip2 };

// Which gzip inflater to use. ISA-L is the default when the build has it; GENOSTAT_INFLATER=zlib
// in the environment or an explicit choice selects zlib.
enum class Inflater { Default, Isal, Zlib };
bool isalAvailable();
Inflater resolveInflater(Inflater requested);

// Whether this build reads bzip2 (builds without the library refuse such files as Unsupported).
bool bzip2Available();

// Looks at a stream's first bytes: 1F 8B is gzip (Bgzf when they hold a whole member header with
// BGZF's block size), "BZh" bzip2, anything else plain text.
Compression sniffCompression(std::string_view firstBytes);

// Opens `path` for reading. `bytesRead`, when given, counts the raw (compressed) bytes taken from
// the file so far, for progress reports; `fileSize` receives the file's size. Throws InputError
// (NotFound for a missing path or a folder, PermissionDenied, ReadFailed). `path` is UTF-8 on
// every system.
std::unique_ptr<ByteSource> openFileSource(const std::string& path,
                                           std::atomic<std::uint64_t>* bytesRead = nullptr,
                                           std::uint64_t* fileSize = nullptr);

// The error for a failed open of `path`, from the system's reason.
InputError openFailure(const std::string& path, const platform::SystemError& reason);

// A source over memory the caller keeps alive.
std::unique_ptr<ByteSource> memorySource(std::string_view data);

// Wraps `raw` in the decompressor its first bytes call for. `path` names the file in errors.
// Throws InputError (Unsupported) for a compression this build cannot read. With `threads` of 2
// or more the stream is decoded ahead of the reader: BGZF and bzip2 on that many threads (at most
// 8 and 16), the calling thread among them (it decodes while it would otherwise wait), anything
// else on a thread of its own (asyncSource).
std::unique_ptr<ByteSource> openDecodedSource(std::unique_ptr<ByteSource> raw,
                                              const std::string& path,
                                              Inflater inflater = Inflater::Default,
                                              Compression* detected = nullptr,
                                              unsigned threads = 1);

// Runs `inner` on a thread of its own, handing its output over in blocks of `blockSize` bytes
// through a queue of at most `queueDepth` blocks, so decompression overlaps parsing. Errors of the
// inner source reach the reader after the bytes that preceded them. Destroying the source stops
// the thread.
std::unique_ptr<ByteSource> asyncSource(std::unique_ptr<ByteSource> inner,
                                        std::size_t blockSize = std::size_t{1} << 20,
                                        std::size_t queueDepth = 4);

}  // namespace genostat
