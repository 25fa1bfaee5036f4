// BGZF members cut into pieces on the producer thread and inflated, each member alone, on any
// thread; every member's CRC-32 and length are checked.
#include "bgzf_codec.h"

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <vector>

#ifdef GENOSTAT_HAVE_ISAL
#include <isa-l/crc.h>
#include <isa-l/igzip_lib.h>
#endif

namespace genostat {
namespace {

// Text per piece, some 16 members as the usual compressors write them (65,280 bytes of text
// each): inflating it takes about a millisecond, next to which handing it between threads costs
// nothing, and the pieces held stay a few MiB. Pieces of 256 KiB to 2 MiB measured alike.
constexpr std::size_t kPieceText = std::size_t{1} << 20;
// BGZF's limit on a member's text; a larger stated length is not a BGZF member.
constexpr std::uint32_t kMaxMemberText = 65536;
// Compressed input is read this much at a time into a window of twice that, which always holds
// a whole member (at most 64 KiB) once it is needed.
constexpr std::size_t kReadChunk = std::size_t{256} << 10;
constexpr std::size_t kGzipTrailer = 8;

// Piece::first: what the piece's input holds.
constexpr std::uint64_t kMembers = 0;  // whole BGZF members
constexpr std::uint64_t kText = 1;     // text already decoded by the one-thread decoder

std::uint32_t le16(const unsigned char* p) {
  return static_cast<std::uint32_t>(p[0]) | static_cast<std::uint32_t>(p[1]) << 8;
}
std::uint32_t le32(const unsigned char* p) { return le16(p) | le16(p + 2) << 16; }

// A window over the compressed stream, refilled on demand.
class Window {
 public:
  explicit Window(std::unique_ptr<ByteSource> raw)
      : raw_(std::move(raw)), buffer_(2 * kReadChunk) {}

  const unsigned char* data() const { return buffer_.data() + begin_; }
  std::size_t size() const { return end_ - begin_; }
  void consume(std::size_t n) { begin_ += n; }

  // Makes `n` bytes (at most kReadChunk) available, or as many as the stream has left.
  void ensure(std::size_t n) {
    if (size() >= n || eof_) return;
    std::memmove(buffer_.data(), data(), size());
    end_ -= begin_;
    begin_ = 0;
    while (end_ < n && !eof_) {
      const std::size_t got =
          raw_->read(reinterpret_cast<char*>(buffer_.data() + end_), buffer_.size() - end_);
      eof_ = got == 0;
      end_ += got;
    }
  }

  // What is left of the stream: the bytes in the window, then the raw stream.
  std::string unread() const { return std::string(reinterpret_cast<const char*>(data()), size()); }
  std::unique_ptr<ByteSource> release() { return std::move(raw_); }

 private:
  std::unique_ptr<ByteSource> raw_;
  std::vector<unsigned char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
  bool eof_ = false;
};

// Inflates one member's deflate data into exactly the stated number of bytes. Holds the
// inflater's state, so one per thread at a time.
class MemberInflater {
 public:
  explicit MemberInflater(Inflater inflater)
      : isal_(isalAvailable() && inflater == Inflater::Isal) {
#ifdef GENOSTAT_HAVE_ISAL
    if (isal_) {
      state_ = std::make_unique<inflate_state>();
      return;
    }
#endif
    std::memset(&z_, 0, sizeof z_);
    if (inflateInit2(&z_, -MAX_WBITS) != Z_OK) throw std::bad_alloc();
    zlibReady_ = true;
  }
  ~MemberInflater() {
    if (zlibReady_) inflateEnd(&z_);
  }
  MemberInflater(const MemberInflater&) = delete;
  MemberInflater& operator=(const MemberInflater&) = delete;

  // Null when `in` inflates to exactly `size` bytes at `out` with CRC-32 `crc`; else what is
  // wrong.
  const char* inflateMember(const unsigned char* in, std::size_t inSize, char* out,
                            std::uint32_t size, std::uint32_t crc) {
    char unused;
    if (size == 0) out = &unused;  // both libraries want somewhere to write, even nothing
    const char* problem =
        isal_ ? inflateIsal(in, inSize, out, size) : inflateZlib(in, inSize, out, size);
    if (problem != nullptr) return problem;
    return checksum(out, size) == crc ? nullptr : "checksum mismatch";
  }

 private:
  const char* inflateIsal([[maybe_unused]] const unsigned char* in,
                          [[maybe_unused]] std::size_t inSize, [[maybe_unused]] char* out,
                          [[maybe_unused]] std::uint32_t size) {
#ifdef GENOSTAT_HAVE_ISAL
    isal_inflate_init(state_.get());
    state_->next_in = const_cast<std::uint8_t*>(in);
    state_->avail_in = static_cast<std::uint32_t>(inSize);
    state_->next_out = reinterpret_cast<std::uint8_t*>(out);
    state_->avail_out = size;
    const int rc = isal_inflate_stateless(state_.get());
    if (rc == ISAL_OUT_OVERFLOW) return "length mismatch";
    // Bytes left over after the deflate data's end: the trailer is not where BSIZE puts it.
    if (rc != ISAL_DECOMP_OK || state_->avail_in != 0) return "invalid compressed data";
    return state_->avail_out == 0 ? nullptr : "length mismatch";
#else
    return "invalid compressed data";  // never chosen: resolveInflater gives zlib
#endif
  }

  const char* inflateZlib(const unsigned char* in, std::size_t inSize, char* out,
                          std::uint32_t size) {
    inflateReset(&z_);
    z_.next_in = const_cast<Bytef*>(in);
    z_.avail_in = static_cast<uInt>(inSize);
    z_.next_out = reinterpret_cast<Bytef*>(out);
    z_.avail_out = size;
    const int rc = ::inflate(&z_, Z_FINISH);
    if (rc == Z_STREAM_END && z_.avail_in != 0) return "invalid compressed data";
    if (rc == Z_STREAM_END) return z_.avail_out == 0 ? nullptr : "length mismatch";
    if (rc == Z_MEM_ERROR) throw std::bad_alloc();
    if (rc == Z_DATA_ERROR) return z_.msg != nullptr ? z_.msg : "invalid compressed data";
    // Stopped early: the output is full (the stated length is short) or the data ran out.
    return z_.avail_out == 0 ? "length mismatch" : "invalid compressed data";
  }

  std::uint32_t checksum(const char* data, std::uint32_t size) const {
    const auto* bytes = reinterpret_cast<const unsigned char*>(data);
#ifdef GENOSTAT_HAVE_ISAL
    if (isal_) return crc32_gzip_refl(0, bytes, size);
#endif
    return static_cast<std::uint32_t>(crc32(0, bytes, size));
  }

  const bool isal_;
#ifdef GENOSTAT_HAVE_ISAL
  std::unique_ptr<inflate_state> state_;  // 85 KiB: kept off the stack
#endif
  z_stream z_{};
  bool zlibReady_ = false;
};

class BgzfCodec final : public PieceCodec {
 public:
  BgzfCodec(std::unique_ptr<ByteSource> compressed, Inflater inflater)
      : in_(std::move(compressed)), inflater_(inflater) {}

  bool split(Piece& piece) override {
    if (pending_) {
      const std::exception_ptr error = pending_;
      pending_ = nullptr;
      std::rethrow_exception(error);
    }
    if (serial_ != nullptr) return splitText(piece);
    piece.first = kMembers;
    piece.input.clear();
    std::uint64_t text = 0;
    try {
      while (text < kPieceText) {
        in_.ensure(1);
        if (in_.size() == 0) break;
        BgzfHeader header = inspectBgzfHeader(in_.data(), in_.size());
        if (header.verdict == BgzfHeader::Verdict::NeedMore) {
          in_.ensure(header.need);
          header = inspectBgzfHeader(in_.data(), in_.size());
        }
        if (header.verdict == BgzfHeader::Verdict::Bgzf) in_.ensure(header.memberSize);
        if (header.verdict != BgzfHeader::Verdict::Bgzf || in_.size() < header.memberSize ||
            le32(in_.data() + header.memberSize - 4) > kMaxMemberText) {
          // Not a (whole) BGZF member: the one-thread decoder reads the rest as gzip, and fails
          // on it as it would on any gzip stream.
          serial_ = serialGzipSource(in_.unread(), in_.release(), inflater_);
          break;
        }
        piece.input.insert(piece.input.end(), in_.data(), in_.data() + header.memberSize);
        text += le32(in_.data() + header.memberSize - 4);
        in_.consume(header.memberSize);
      }
    } catch (...) {
      if (piece.input.empty()) throw;
      pending_ = std::current_exception();  // after the members before it
    }
    piece.decodedSize = text;
    if (!piece.input.empty()) return true;
    return serial_ != nullptr && splitText(piece);
  }

  bool decode(const Piece& piece, std::vector<char>& output) const override {
    if (piece.first == kText) {
      output.assign(piece.input.begin(), piece.input.end());
      return true;
    }
    output.resize(piece.decodedSize);
    MemberInflater inflater(inflater_);
    std::size_t at = 0, out = 0;
    while (at < piece.input.size()) {
      const unsigned char* member = piece.input.data() + at;
      const BgzfHeader header = inspectBgzfHeader(member, piece.input.size() - at);
      const unsigned char* trailer = member + header.memberSize - kGzipTrailer;
      const std::uint32_t size = le32(trailer + 4);
      // split() cut whole members and summed their lengths: this holds unless memory is corrupt.
      if (header.verdict != BgzfHeader::Verdict::Bgzf || size > output.size() - out) {
        throw std::logic_error("BGZF piece does not match its members");
      }
      const char* problem = inflater.inflateMember(
          member + header.headerSize, header.memberSize - header.headerSize - kGzipTrailer,
          output.data() + out, size, le32(trailer));
      if (problem != nullptr) {
        output.resize(out);  // the members before this one are good
        throw StreamDamaged(std::string("damaged gzip stream: ") + problem);
      }
      out += size;
      at += header.memberSize;
    }
    return true;
  }

  // Members never need their neighbours.
  bool join(Piece&, const Piece*) const override { return false; }
  StreamDamaged damaged(const Piece&) const override {
    return StreamDamaged("damaged gzip stream: invalid compressed data");
  }

 private:
  // A piece of text from the one-thread decoder; errors after the text before them.
  bool splitText(Piece& piece) {
    piece.first = kText;
    piece.input.resize(kPieceText);
    std::size_t n = 0;
    try {
      while (n < kPieceText) {
        const std::size_t got =
            serial_->read(reinterpret_cast<char*>(piece.input.data() + n), kPieceText - n);
        if (got == 0) break;
        n += got;
      }
    } catch (...) {
      if (n == 0) throw;
      pending_ = std::current_exception();
    }
    piece.input.resize(n);
    piece.decodedSize = n;
    return n != 0;
  }

  Window in_;
  const Inflater inflater_;
  std::unique_ptr<ByteSource> serial_;  // once the stream stops being BGZF
  std::exception_ptr pending_;          // thrown by the next split()
};

}  // namespace

BgzfHeader inspectBgzfHeader(const unsigned char* data, std::size_t size) {
  constexpr std::size_t kFixed = 12;  // magic, method, flags, time, XFL, OS, XLEN
  BgzfHeader header;
  if (size < kFixed) {
    header.verdict = BgzfHeader::Verdict::NeedMore;
    header.need = kFixed;
    return header;
  }
  // Deflate, and of the flags only FEXTRA: other fields in the header are not BGZF's.
  if (data[0] != 0x1f || data[1] != 0x8b || data[2] != 8 || data[3] != 4) return header;
  const std::size_t headerSize = kFixed + le16(data + 10);
  if (size < headerSize) {
    header.verdict = BgzfHeader::Verdict::NeedMore;
    header.need = headerSize;
    return header;
  }
  for (std::size_t at = kFixed; at + 4 <= headerSize;) {
    const std::size_t length = le16(data + at + 2);
    if (at + 4 + length > headerSize) return header;
    if (data[at] == 'B' && data[at + 1] == 'C' && length == 2) {
      const std::size_t memberSize = le16(data + at + 4) + std::size_t{1};
      // Room for the header, the smallest deflate data (2 bytes) and the trailer.
      if (memberSize < headerSize + 2 + kGzipTrailer) return header;
      header.verdict = BgzfHeader::Verdict::Bgzf;
      header.headerSize = headerSize;
      header.memberSize = memberSize;
      return header;
    }
    at += 4 + length;
  }
  return header;
}

std::unique_ptr<PieceCodec> bgzfCodec(std::unique_ptr<ByteSource> compressed, Inflater inflater) {
  return std::make_unique<BgzfCodec>(std::move(compressed), resolveInflater(inflater));
}

}  // namespace genostat
