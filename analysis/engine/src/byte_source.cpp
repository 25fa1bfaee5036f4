// Raw file and memory sources, the gzip and bzip2 decoders, and the read-ahead thread.
#include "genostat/byte_source.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#ifdef GENOSTAT_HAVE_BZIP2
#include <bzlib.h>
#endif
#ifdef GENOSTAT_HAVE_ISAL
#include <isa-l/igzip_lib.h>
#endif

#include "bgzf_codec.h"
#include "bzip2_codec.h"
#include "genostat/input_error.h"
#include "parallel_decode.h"
#include "platform/system.h"

namespace genostat {
namespace {

// Compressed input is taken from the file in pieces of this size: large enough that a read call
// costs nothing next to inflating it, small enough to stay in the second-level cache.
constexpr std::size_t kCompressedChunk = std::size_t{256} << 10;

// The most threads a BGZF file is inflated on. The reader parses about twice as fast as one thread
// inflates, so a few threads keep it busy; more would only hold more pieces (about 1.4 MiB each,
// three per thread) in memory.
constexpr unsigned kMostBgzfThreads = 8;

// The most threads a bzip2 file is decoded on. The reader parses some fifty times faster than one
// thread decodes bzip2, so every thread helps; each holds about 9 MiB (three pieces of up to
// 1.7 MiB, libbz2's 3.6 MiB of tables), which this bounds.
[[maybe_unused]] constexpr unsigned kMostBzip2Threads = 16;

// Said of a bzip2 file by a build made without the bzip2 library (Windows has none to link).
[[maybe_unused]] constexpr const char* kNoBzip2 =
    "is compressed with bzip2, which this build of genostat-qc cannot read; decompress it, or "
    "compress it with gzip instead";

class FileSource final : public ByteSource {
 public:
  FileSource(int fd, std::string path, std::atomic<std::uint64_t>* bytesRead)
      : fd_(fd), path_(std::move(path)), bytesRead_(bytesRead) {}
  ~FileSource() override {
    platform::SystemError ignored;  // nothing was written: a failed close loses nothing
    platform::closeFile(fd_, ignored);
  }
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) override {
    platform::SystemError error;
    const std::int64_t n = platform::readSome(fd_, buffer, capacity, error);
    if (n < 0) throw InputError(InputErrorKind::ReadFailed, path_, "cannot read: " + error.text);
    if (bytesRead_ != nullptr) bytesRead_->fetch_add(static_cast<std::uint64_t>(n));
    return static_cast<std::size_t>(n);
  }

 private:
  int fd_;
  std::string path_;
  std::atomic<std::uint64_t>* bytesRead_;
};

class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(std::string_view data) : data_(data) {}
  std::size_t read(char* buffer, std::size_t capacity) override {
    const std::size_t n = std::min(capacity, data_.size());
    if (n != 0) std::memcpy(buffer, data_.data(), n);
    data_.remove_prefix(n);
    return n;
  }

 private:
  std::string_view data_;
};

// Hands out bytes already taken from a stream (to sniff it), then the rest of the stream.
class PrefixedSource final : public ByteSource {
 public:
  PrefixedSource(std::string prefix, std::unique_ptr<ByteSource> rest)
      : prefix_(std::move(prefix)), rest_(std::move(rest)) {}
  std::size_t read(char* buffer, std::size_t capacity) override {
    if (used_ < prefix_.size()) {
      const std::size_t n = std::min(capacity, prefix_.size() - used_);
      std::memcpy(buffer, prefix_.data() + used_, n);
      used_ += n;
      return n;
    }
    return rest_->read(buffer, capacity);
  }

 private:
  std::string prefix_;
  std::size_t used_ = 0;
  std::unique_ptr<ByteSource> rest_;
};

// The compressed input of a decoder: a window over the raw stream that is refilled on demand.
class CompressedInput {
 public:
  explicit CompressedInput(std::unique_ptr<ByteSource> raw)
      : raw_(std::move(raw)), buffer_(new unsigned char[kCompressedChunk]) {}

  const unsigned char* data() const { return buffer_.get() + begin_; }
  std::size_t size() const { return end_ - begin_; }
  bool atEnd() const { return eof_ && size() == 0; }
  bool eof() const { return eof_; }
  void consume(std::size_t n) { begin_ += n; }

  // Reads more, keeping the unconsumed bytes; false once the raw stream is exhausted.
  bool refill() {
    if (eof_) return false;
    if (begin_ != 0) {
      std::memmove(buffer_.get(), buffer_.get() + begin_, size());
      end_ -= begin_;
      begin_ = 0;
    }
    if (end_ == kCompressedChunk) return true;  // the window is already full
    const std::size_t n =
        raw_->read(reinterpret_cast<char*>(buffer_.get() + end_), kCompressedChunk - end_);
    if (n == 0) {
      eof_ = true;
      return false;
    }
    end_ += n;
    return true;
  }

  // Makes at least `n` bytes available if the stream has them.
  void ensure(std::size_t n) {
    while (size() < n && refill()) {
    }
  }

 private:
  std::unique_ptr<ByteSource> raw_;
  std::unique_ptr<unsigned char[]> buffer_;  // kCompressedChunk bytes, filled before use
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
};

// After one member of a concatenated stream ends, decides whether another follows: true when the
// next bytes carry `magic`, false at the end of the stream or when only zero padding is left
// (some archivers pad compressed files to a block size). Anything else is damage.
bool anotherMemberFollows(CompressedInput& in, std::string_view magic, const char* format) {
  for (;;) {
    in.ensure(magic.size());
    if (in.size() == 0) return false;
    if (in.data()[0] == 0) {
      std::size_t zeros = 0;
      while (zeros < in.size() && in.data()[zeros] == 0) ++zeros;
      in.consume(zeros);
      if (in.size() == 0 && !in.refill()) return false;
      if (in.size() != 0 && in.data()[0] != 0) {
        throw StreamDamaged(std::string("damaged ") + format +
                            " stream: unexpected data after the zero padding at its end");
      }
      continue;
    }
    if (in.size() >= magic.size() && std::memcmp(in.data(), magic.data(), magic.size()) == 0) {
      return true;
    }
    throw StreamDamaged(std::string("damaged ") + format +
                        " stream: data after the end of a member is not another member");
  }
}

[[noreturn]] void throwTruncated(const char* format) {
  throw StreamDamaged(std::string("truncated ") + format +
                      " stream: the file ends in the middle of compressed data");
}

#ifdef GENOSTAT_HAVE_ISAL
class IsalGzipSource final : public ByteSource {
 public:
  explicit IsalGzipSource(std::unique_ptr<ByteSource> raw) : in_(std::move(raw)) {
    state_ = std::make_unique<inflate_state>();
  }

  std::size_t read(char* buffer, std::size_t capacity) override {
    if (finished_ || capacity == 0) return 0;
    for (;;) {
      if (!inMember_) {
        if (!anotherMemberFollows(in_, "\x1f\x8b", "gzip")) {
          finished_ = true;
          return 0;
        }
        isal_inflate_init(state_.get());
        state_->crc_flag = ISAL_GZIP;
        inMember_ = true;
      }
      if (in_.size() == 0) in_.refill();
      state_->next_in = const_cast<std::uint8_t*>(in_.data());
      state_->avail_in = static_cast<std::uint32_t>(in_.size());
      state_->next_out = reinterpret_cast<std::uint8_t*>(buffer);
      state_->avail_out = static_cast<std::uint32_t>(std::min<std::size_t>(capacity, 1u << 30));
      const int rc = isal_inflate(state_.get());
      in_.consume(in_.size() - state_->avail_in);
      const std::size_t produced =
          static_cast<std::size_t>(reinterpret_cast<char*>(state_->next_out) - buffer);
      if (rc < 0) throw StreamDamaged(describe(rc));
      if (state_->block_state == ISAL_BLOCK_FINISH) inMember_ = false;
      if (produced != 0) return produced;
      if (inMember_ && in_.size() == 0 && !in_.refill()) throwTruncated("gzip");
    }
  }

 private:
  static std::string describe(int rc) {
    switch (rc) {
      case ISAL_INCORRECT_CHECKSUM:
        return "damaged gzip stream: checksum mismatch";
      case ISAL_INVALID_WRAPPER:
      case ISAL_UNSUPPORTED_METHOD:
        return "damaged gzip stream: invalid member header";
      default:
        return "damaged gzip stream: invalid compressed data";
    }
  }

  CompressedInput in_;
  std::unique_ptr<inflate_state> state_;  // large; kept off the stack and out of the object
  bool inMember_ = false;
  bool finished_ = false;
};
#endif

class ZlibGzipSource final : public ByteSource {
 public:
  explicit ZlibGzipSource(std::unique_ptr<ByteSource> raw) : in_(std::move(raw)) {
    std::memset(&z_, 0, sizeof z_);
    if (inflateInit2(&z_, 16 + MAX_WBITS) != Z_OK) throw std::bad_alloc();
  }
  ~ZlibGzipSource() override { inflateEnd(&z_); }
  ZlibGzipSource(const ZlibGzipSource&) = delete;
  ZlibGzipSource& operator=(const ZlibGzipSource&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) override {
    if (finished_ || capacity == 0) return 0;
    for (;;) {
      if (!inMember_) {
        if (!anotherMemberFollows(in_, "\x1f\x8b", "gzip")) {
          finished_ = true;
          return 0;
        }
        inflateReset(&z_);
        inMember_ = true;
      }
      if (in_.size() == 0) in_.refill();
      z_.next_in = const_cast<Bytef*>(in_.data());
      z_.avail_in = static_cast<uInt>(std::min<std::size_t>(in_.size(), 1u << 30));
      z_.next_out = reinterpret_cast<Bytef*>(buffer);
      z_.avail_out = static_cast<uInt>(std::min<std::size_t>(capacity, 1u << 30));
      const std::size_t availIn = z_.avail_in;
      const int rc = inflate(&z_, Z_NO_FLUSH);
      in_.consume(availIn - z_.avail_in);
      const std::size_t produced =
          static_cast<std::size_t>(reinterpret_cast<char*>(z_.next_out) - buffer);
      if (rc == Z_MEM_ERROR) throw std::bad_alloc();
      if (rc == Z_DATA_ERROR || rc == Z_NEED_DICT || rc == Z_STREAM_ERROR) {
        const std::string detail = z_.msg != nullptr ? z_.msg : "invalid compressed data";
        throw StreamDamaged("damaged gzip stream: " + detail);
      }
      if (rc == Z_STREAM_END) inMember_ = false;
      if (produced != 0) return produced;
      if (inMember_ && in_.size() == 0 && !in_.refill()) throwTruncated("gzip");
    }
  }

 private:
  CompressedInput in_;
  z_stream z_;
  bool inMember_ = false;
  bool finished_ = false;
};

#ifdef GENOSTAT_HAVE_BZIP2
class Bzip2Source final : public ByteSource {
 public:
  explicit Bzip2Source(std::unique_ptr<ByteSource> raw) : in_(std::move(raw)) {
    std::memset(&bz_, 0, sizeof bz_);
  }
  ~Bzip2Source() override {
    if (initialised_) BZ2_bzDecompressEnd(&bz_);
  }
  Bzip2Source(const Bzip2Source&) = delete;
  Bzip2Source& operator=(const Bzip2Source&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) override {
    if (finished_ || capacity == 0) return 0;
    for (;;) {
      if (!inStream_) {
        if (!anotherMemberFollows(in_, "BZh", "bzip2")) {
          finished_ = true;
          return 0;
        }
        if (initialised_) BZ2_bzDecompressEnd(&bz_);
        std::memset(&bz_, 0, sizeof bz_);
        const int rc = BZ2_bzDecompressInit(&bz_, 0, 0);
        if (rc == BZ_MEM_ERROR) throw std::bad_alloc();
        if (rc != BZ_OK) throw std::runtime_error("bzip2 decoder failed to start");
        initialised_ = true;
        inStream_ = true;
      }
      if (in_.size() == 0) in_.refill();
      bz_.next_in = const_cast<char*>(reinterpret_cast<const char*>(in_.data()));
      bz_.avail_in = static_cast<unsigned>(std::min<std::size_t>(in_.size(), 1u << 30));
      bz_.next_out = buffer;
      bz_.avail_out = static_cast<unsigned>(std::min<std::size_t>(capacity, 1u << 30));
      const std::size_t availIn = bz_.avail_in;
      const int rc = BZ2_bzDecompress(&bz_);
      in_.consume(availIn - bz_.avail_in);
      const std::size_t produced = static_cast<std::size_t>(bz_.next_out - buffer);
      if (rc == BZ_MEM_ERROR) throw std::bad_alloc();
      if (rc == BZ_DATA_ERROR || rc == BZ_DATA_ERROR_MAGIC) {
        throw StreamDamaged("damaged bzip2 stream: invalid compressed data");
      }
      if (rc != BZ_OK && rc != BZ_STREAM_END) {
        throw StreamDamaged("damaged bzip2 stream: decoder error " + std::to_string(rc));
      }
      if (rc == BZ_STREAM_END) inStream_ = false;
      if (produced != 0) return produced;
      if (inStream_ && in_.size() == 0 && !in_.refill()) throwTruncated("bzip2");
    }
  }

 private:
  CompressedInput in_;
  bz_stream bz_;
  bool initialised_ = false;
  bool inStream_ = false;
  bool finished_ = false;
};
#endif

class AsyncSource final : public ByteSource {
 public:
  AsyncSource(std::unique_ptr<ByteSource> inner, std::size_t blockSize, std::size_t queueDepth)
      : inner_(std::move(inner)), blockSize_(blockSize == 0 ? 1 : blockSize) {
    for (std::size_t i = 0; i < (queueDepth == 0 ? 1 : queueDepth); ++i) {
      free_.push_back(std::make_unique<char[]>(blockSize_));
    }
    thread_ = std::thread([this] { produce(); });
  }

  ~AsyncSource() override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
  }
  AsyncSource(const AsyncSource&) = delete;
  AsyncSource& operator=(const AsyncSource&) = delete;

  std::size_t read(char* buffer, std::size_t capacity) override {
    std::size_t copied = 0;
    while (copied < capacity) {
      if (current_.data == nullptr || current_.used == current_.size) {
        if (copied != 0) return copied;  // hand over what we have before waiting
        if (!nextBlock()) return 0;
        continue;
      }
      const std::size_t n = std::min(capacity - copied, current_.size - current_.used);
      std::memcpy(buffer + copied, current_.data.get() + current_.used, n);
      current_.used += n;
      copied += n;
    }
    return copied;
  }

 private:
  struct Block {
    std::unique_ptr<char[]> data;
    std::size_t size = 0;
    std::size_t used = 0;
  };

  // Gives the consumed block back and waits for the next; false at the end of the stream.
  bool nextBlock() {
    std::unique_lock<std::mutex> lock(mutex_);
    if (current_.data != nullptr) {
      free_.push_back(std::move(current_.data));
      current_ = Block{};
      changed_.notify_all();
    }
    changed_.wait(lock, [this] { return !full_.empty() || producerDone_; });
    if (!full_.empty()) {
      current_ = std::move(full_.front());
      full_.pop_front();
      return true;
    }
    if (error_) std::rethrow_exception(error_);
    return false;
  }

  void produce() {
    for (;;) {
      std::unique_ptr<char[]> data;
      {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait(lock, [this] { return !free_.empty() || stopping_; });
        if (stopping_) break;
        data = std::move(free_.back());
        free_.pop_back();
      }
      std::size_t size = 0;
      std::exception_ptr error;
      try {
        while (size < blockSize_) {
          const std::size_t n = inner_->read(data.get() + size, blockSize_ - size);
          if (n == 0) break;
          size += n;
        }
      } catch (...) {
        error = std::current_exception();
      }
      const bool end = error != nullptr || size < blockSize_;
      {
        std::lock_guard<std::mutex> lock(mutex_);
        if (size != 0) full_.push_back(Block{std::move(data), size, 0});
        if (end) {
          error_ = error;
          producerDone_ = true;
        }
      }
      changed_.notify_all();
      if (end) return;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    producerDone_ = true;
  }

  std::unique_ptr<ByteSource> inner_;
  const std::size_t blockSize_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::unique_ptr<char[]>> free_;
  std::deque<Block> full_;
  bool stopping_ = false;
  bool producerDone_ = false;
  std::exception_ptr error_;
  Block current_;  // the consumer's block; only the consumer touches it
  std::thread thread_;
};

}  // namespace

bool isalAvailable() {
#ifdef GENOSTAT_HAVE_ISAL
  return true;
#else
  return false;
#endif
}

Inflater resolveInflater(Inflater requested) {
  if (requested == Inflater::Default) {
    const char* choice = std::getenv("GENOSTAT_INFLATER");
    if (choice != nullptr && std::strcmp(choice, "zlib") == 0) return Inflater::Zlib;
    return isalAvailable() ? Inflater::Isal : Inflater::Zlib;
  }
  if (requested == Inflater::Isal && !isalAvailable()) return Inflater::Zlib;
  return requested;
}

Compression sniffCompression(std::string_view firstBytes) {
  if (firstBytes.size() >= 2 && static_cast<unsigned char>(firstBytes[0]) == 0x1f &&
      static_cast<unsigned char>(firstBytes[1]) == 0x8b) {
    const BgzfHeader header = inspectBgzfHeader(
        reinterpret_cast<const unsigned char*>(firstBytes.data()), firstBytes.size());
    return header.verdict == BgzfHeader::Verdict::Bgzf ? Compression::Bgzf : Compression::Gzip;
  }
  if (firstBytes.substr(0, 3) == "BZh") return Compression::Bzip2;
  return Compression::Plain;
}

bool bzip2Available() {
#ifdef GENOSTAT_HAVE_BZIP2
  return true;
#else
  return false;
#endif
}

InputError openFailure(const std::string& path, const platform::SystemError& reason) {
  switch (reason.kind) {
    case platform::SystemError::Kind::NotFound:
      return InputError(InputErrorKind::NotFound, path, "no such file");
    case platform::SystemError::Kind::IsFolder:
      return InputError(InputErrorKind::NotFound, path, "is a folder, not a file");
    case platform::SystemError::Kind::PermissionDenied:
      return InputError(InputErrorKind::PermissionDenied, path, "permission denied");
    case platform::SystemError::Kind::Other:
      break;
  }
  return InputError(InputErrorKind::ReadFailed, path, "cannot open: " + reason.text);
}

std::unique_ptr<ByteSource> openFileSource(const std::string& path,
                                           std::atomic<std::uint64_t>* bytesRead,
                                           std::uint64_t* fileSize) {
  platform::SystemError error;
  const int fd = platform::openForReading(path, error);
  if (fd < 0) throw openFailure(path, error);
  platform::FileKind kind;
  if (!platform::describeOpenFile(fd, kind, error) || kind.folder) {
    platform::SystemError ignored;
    platform::closeFile(fd, ignored);
    if (kind.folder) error.kind = platform::SystemError::Kind::IsFolder;
    throw openFailure(path, error);
  }
  if (!kind.regular && !kind.pipe) {
    // A device may never end (/dev/zero) or never answer (a terminal). A pipe stays readable:
    // process substitution, `genostat-qc <(zcat run.fq.gz)`, is a deliberate use of the engine;
    // the module refuses pipes as job inputs, and a folder job lists regular files only.
    platform::SystemError ignored;
    platform::closeFile(fd, ignored);
    throw InputError(InputErrorKind::ReadFailed, path,
                     "is a device, not a file; name a FASTQ file");
  }
  if (fileSize != nullptr) *fileSize = kind.size;
  platform::adviseSequential(fd);
  return std::make_unique<FileSource>(fd, path, bytesRead);
}

std::unique_ptr<ByteSource> memorySource(std::string_view data) {
  return std::make_unique<MemorySource>(data);
}

std::unique_ptr<ByteSource> serialGzipSource(std::string alreadyRead,
                                             std::unique_ptr<ByteSource> rest, Inflater inflater) {
  auto whole = std::make_unique<PrefixedSource>(std::move(alreadyRead), std::move(rest));
#ifdef GENOSTAT_HAVE_ISAL
  if (resolveInflater(inflater) == Inflater::Isal) {
    return std::make_unique<IsalGzipSource>(std::move(whole));
  }
#else
  (void)inflater;
#endif
  return std::make_unique<ZlibGzipSource>(std::move(whole));
}

namespace {

// Reads from `raw` until `prefix` holds `size` bytes; false when the stream ends first.
bool readUpTo(ByteSource& raw, std::string& prefix, std::size_t size) {
  std::size_t have = prefix.size();
  prefix.resize(std::max(size, have));
  while (have < prefix.size()) {
    const std::size_t n = raw.read(prefix.data() + have, prefix.size() - have);
    if (n == 0) break;
    have += n;
  }
  prefix.resize(have);
  return have >= size;
}

}  // namespace

std::unique_ptr<ByteSource> openDecodedSource(std::unique_ptr<ByteSource> raw,
                                              const std::string& path, Inflater inflater,
                                              Compression* detected, unsigned threads) {
  std::string prefix;
  readUpTo(*raw, prefix, 3);
  Compression compression = sniffCompression(prefix);
  if (compression == Compression::Gzip) {
    // BGZF is told from other gzip by the first member's header (18 bytes as usually written).
    const auto inspect = [&prefix] {
      return inspectBgzfHeader(reinterpret_cast<const unsigned char*>(prefix.data()),
                               prefix.size());
    };
    BgzfHeader header = inspect();
    while (header.verdict == BgzfHeader::Verdict::NeedMore && readUpTo(*raw, prefix, header.need)) {
      header = inspect();
    }
    if (header.verdict == BgzfHeader::Verdict::Bgzf) compression = Compression::Bgzf;
  }
  if (detected != nullptr) *detected = compression;
  auto whole = std::make_unique<PrefixedSource>(std::move(prefix), std::move(raw));
  std::unique_ptr<ByteSource> decoded;
  switch (compression) {
    case Compression::Bgzf:
      if (threads >= 2) {
        return parallelDecodedSource(bgzfCodec(std::move(whole), inflater),
                                     std::min(threads, kMostBgzfThreads));
      }
      [[fallthrough]];  // it is gzip, which one thread reads as such
    case Compression::Gzip:
      decoded = serialGzipSource("", std::move(whole), inflater);
      break;
    case Compression::Bzip2:
#ifdef GENOSTAT_HAVE_BZIP2
      (void)path;  // a decoding error is positioned and named by the reader
      if (threads >= 2) {
        return parallelDecodedSource(bzip2PieceCodec(std::move(whole)),
                                     std::min(threads, kMostBzip2Threads));
      }
      decoded = std::make_unique<Bzip2Source>(std::move(whole));
      break;
#else
      throw InputError(InputErrorKind::Unsupported, path, kNoBzip2);
#endif
    case Compression::Plain:
      decoded = std::move(whole);
      break;
  }
  // Decoded (or read) on a second thread, ahead of the reader.
  if (threads >= 2) decoded = asyncSource(std::move(decoded));
  return decoded;
}

std::unique_ptr<ByteSource> asyncSource(std::unique_ptr<ByteSource> inner, std::size_t blockSize,
                                        std::size_t queueDepth) {
  return std::make_unique<AsyncSource>(std::move(inner), blockSize, queueDepth);
}

}  // namespace genostat
