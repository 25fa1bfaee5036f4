// A bzip2 stream is "BZh" and a level digit (the block size in units of 100,000 bytes), then
// blocks, each opening with the 48-bit marker 0x314159265359 and the block's CRC, then the 48-bit
// end marker 0x177245385090 and the stream's combined CRC, padded to a byte. Blocks are neither
// byte aligned nor prefixed by their length, so the cutter scans the bits for the two markers.
// A block copied out from its marker up to the next marker, behind a stream header and in front
// of an end marker, is a stream of its own that libbz2 decodes on any thread.
//
// The markers' bit patterns can also occur by chance inside compressed data (about once in 2^48
// bit positions). Such a wrong cut leaves two pieces that fail to decode; the first is then
// joined to the next and decoded again, and join() notes the cut it proved wrong so that the
// stream's combined CRC is checked over the real blocks only.
#ifdef GENOSTAT_HAVE_BZIP2

#include "bzip2_codec.h"

#include <bzlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace genostat {
namespace {

constexpr std::uint64_t kBlockMarker = 0x314159265359;
constexpr std::uint64_t kEndMarker = 0x177245385090;
constexpr std::uint64_t kMarkerMask = (std::uint64_t{1} << 48) - 1;
constexpr std::uint64_t kNone = ~std::uint64_t{0};

// Compressed input is read in pieces of this size; a block is at most a few of them.
constexpr std::size_t kReadChunk = std::size_t{256} << 10;

// The longest block an encoder can write at `level`: at most level * 100,000 symbols after the
// first run-length stage plus the end symbol, each in at most 20 bits, behind the marker, the CRC,
// the symbol map, at most 32,767 selectors of at most 6 bits and six tables of 258 code lengths
// (5 bits and at most 19 steps of 2 bits each). A cut that leaves a longer piece is wrong.
std::uint64_t longestBlockBits(int level) {
  return 20 * (static_cast<std::uint64_t>(level) * 100000 + 1) + 48 + 32 + 1 + 24 + 16 + 256 + 3 +
         15 + 32767 * 6 + 6 * 258 * 43;
}

[[noreturn]] void throwDamaged(const char* what) {
  throw StreamDamaged(std::string("damaged bzip2 stream: ") + what);
}

[[noreturn]] void throwTruncated() {
  throw StreamDamaged("truncated bzip2 stream: the file ends in the middle of compressed data");
}

// bzip2's CRC: CRC-32 with the most significant bit first (polynomial 0x04C11DB7).
constexpr std::array<std::uint32_t, 256> makeCrcTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i << 24;
    for (int k = 0; k < 8; ++k) c = (c & 0x80000000u) != 0 ? (c << 1) ^ 0x04C11DB7u : c << 1;
    table[i] = c;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> kCrcTable = makeCrcTable();

std::uint32_t blockCrc(const char* data, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < size; ++i) {
    crc = (crc << 8) ^ kCrcTable[(crc >> 24) ^ static_cast<unsigned char>(data[i])];
  }
  return ~crc;
}

std::uint32_t combineCrc(std::uint32_t combined, std::uint32_t block) {
  return ((combined << 1) | (combined >> 31)) ^ block;
}

// `count` (at most 56) bits from bit `bit` of `bytes`, the first one the most significant.
std::uint64_t bitsAt(const unsigned char* bytes, std::uint64_t bit, unsigned count) {
  const unsigned char* p = bytes + bit / 8;
  const unsigned skip = static_cast<unsigned>(bit % 8);
  const unsigned n = (skip + count + 7) / 8;
  std::uint64_t v = 0;
  for (unsigned i = 0; i < n; ++i) v = v << 8 | p[i];
  return (v >> (8 * n - skip - count)) & ((std::uint64_t{1} << count) - 1);
}

// Appends bits to a byte vector, the first bit the most significant; bits past the end of the
// last byte stay zero, which is the padding a stream ends with.
class BitWriter {
 public:
  explicit BitWriter(std::vector<unsigned char>& out) : out_(out), bits_(out.size() * 8) {}

  void value(std::uint64_t v, unsigned count) {
    for (unsigned i = count; i-- > 0;) bit((v >> i) & 1);
  }

  void copy(const unsigned char* src, std::uint64_t srcBit, std::uint64_t count) {
    for (; count != 0 && bits_ % 8 != 0; --count, ++srcBit) bit(bitsAt(src, srcBit, 1));
    if (count == 0) return;
    const unsigned char* s = src + srcBit / 8;
    const unsigned shift = static_cast<unsigned>(srcBit % 8);
    const std::uint64_t whole = count / 8;
    const std::size_t at = out_.size();
    out_.resize(at + (count + 7) / 8);
    unsigned char* d = out_.data() + at;
    if (shift == 0) {
      std::memcpy(d, s, whole);
    } else {
      for (std::uint64_t k = 0; k < whole; ++k) {
        d[k] = static_cast<unsigned char>(s[k] << shift | s[k + 1] >> (8 - shift));
      }
    }
    if (const unsigned rest = static_cast<unsigned>(count % 8)) {
      d[whole] = static_cast<unsigned char>(bitsAt(src, srcBit + 8 * whole, rest) << (8 - rest));
    }
    bits_ += count;
  }

 private:
  void bit(std::uint64_t b) {
    if (bits_ % 8 == 0) out_.push_back(0);
    out_.back() = static_cast<unsigned char>(out_.back() | b << (7 - bits_ % 8));
    ++bits_;
  }

  std::vector<unsigned char>& out_;
  std::uint64_t bits_;
};

// What precedes a piece's stream in Piece::input: the length of the block's bits in it and how
// the piece ends.
struct PieceHead {
  std::uint64_t bits;
  std::uint32_t ends;
  std::uint32_t level;
};
constexpr std::uint32_t kEndsBeforeBlock = 0;  // the next piece is the stream's next block
constexpr std::uint32_t kEndsStream = 1;       // the stream's end marker follows
constexpr std::uint32_t kEndsFile = 2;         // the file ends without the end marker
constexpr std::size_t kStreamAt = sizeof(PieceHead);
constexpr std::size_t kBlockAt = kStreamAt + 4;  // after "BZh" and the level

PieceHead headOf(const Piece& piece) {
  PieceHead head;
  std::memcpy(&head, piece.input.data(), sizeof head);
  return head;
}

// The CRC the block states right after its marker.
std::uint32_t statedCrc(const Piece& piece) {
  return static_cast<std::uint32_t>(bitsAt(piece.input.data() + kBlockAt, 48, 32));
}

// Runs of bits: the bytes, the first bit's offset in them, the number of bits.
struct BitRange {
  const unsigned char* bytes;
  std::uint64_t first;
  std::uint64_t count;
};

// Makes `out` the piece holding `ranges` of block bits as one stream. Its end marker carries the
// block's own CRC, which is the combined CRC of a stream of one block.
void frame(std::vector<unsigned char>& out, const PieceHead& head,
           std::initializer_list<BitRange> ranges) {
  out.resize(kStreamAt);
  std::memcpy(out.data(), &head, sizeof head);
  const char level[] = {'B', 'Z', 'h', static_cast<char>('0' + head.level)};
  out.insert(out.end(), level, level + sizeof level);
  BitWriter writer(out);
  for (const BitRange& range : ranges) writer.copy(range.bytes, range.first, range.count);
  // A piece too short to hold a CRC (cut right after a chance marker) fails anyway.
  const std::uint64_t crc = head.bits >= 80 ? bitsAt(out.data() + kBlockAt, 48, 32) : 0;
  writer.value(kEndMarker, 48);
  writer.value(crc, 32);
}

// The file's bytes from `base()` on, read on demand; bytes past the end read as zeros.
class Window {
 public:
  explicit Window(std::unique_ptr<ByteSource> raw) : raw_(std::move(raw)) {}

  std::uint64_t end() const { return base_ + size_; }
  bool eof() const { return eof_; }
  const unsigned char* at(std::uint64_t byte) const { return buffer_.data() + (byte - base_); }

  // Reads more of the file; false at its end.
  bool more() {
    if (eof_) return false;
    const std::uint64_t dead = keepFrom_ - base_;
    if (dead != 0 && dead >= size_ / 2) {
      std::memmove(buffer_.data(), buffer_.data() + dead, size_ - dead);
      size_ -= static_cast<std::size_t>(dead);
      base_ = keepFrom_;
    }
    buffer_.resize(size_ + kReadChunk + kSlack);
    const std::size_t n = raw_->read(reinterpret_cast<char*>(buffer_.data() + size_), kReadChunk);
    size_ += n;
    std::fill(buffer_.begin() + static_cast<std::ptrdiff_t>(size_), buffer_.end(), 0);
    eof_ = n == 0;
    return !eof_;
  }

  // Makes the bytes before `byte` available when the file has them.
  bool ensure(std::uint64_t byte) {
    while (end() < byte) {
      if (!more()) return false;
    }
    return true;
  }

  // The bytes before `byte` are no longer needed.
  void release(std::uint64_t byte) { keepFrom_ = std::max(keepFrom_, byte); }

 private:
  static constexpr std::size_t kSlack = 8;  // zeros after the data, for whole-word loads
  std::unique_ptr<ByteSource> raw_;
  std::vector<unsigned char> buffer_;
  std::uint64_t base_ = 0;  // the file offset of buffer_[0]
  std::size_t size_ = 0;    // bytes of the file held
  std::uint64_t keepFrom_ = 0;
  bool eof_ = false;
};

// Bit v of the table is set when some bit shift of a marker has v as its second and third byte:
// one look-up rejects almost every byte position before the markers are compared.
std::array<std::uint64_t, 1024> makeMarkerFilter() {
  std::array<std::uint64_t, 1024> filter{};
  for (std::uint64_t marker : {kBlockMarker, kEndMarker}) {
    for (unsigned shift = 0; shift < 8; ++shift) {
      const auto v = static_cast<unsigned>((marker >> (24 + shift)) & 0xFFFF);
      filter[v / 64] |= std::uint64_t{1} << (v % 64);
    }
  }
  return filter;
}
const std::array<std::uint64_t, 1024> kMarkerFilter = makeMarkerFilter();

class Bzip2Codec final : public PieceCodec {
 public:
  Bzip2Codec(std::unique_ptr<ByteSource> raw, std::vector<ChanceMarker> chanceMarkers)
      : window_(std::move(raw)), chance_(std::move(chanceMarkers)) {}

  bool split(Piece& piece) override {
    for (;;) {
      switch (at_) {
        case At::End:
          return false;
        case At::Truncated:
          at_ = At::End;
          throwTruncated();
        case At::StreamStart:
          if (!startStream()) {
            at_ = At::End;
            return false;
          }
          break;
        case At::Block:
          cutBlock(piece);
          return true;
      }
    }
  }

  bool decode(const Piece& piece, std::vector<char>& output) const override {
    const Outcome outcome = run(piece, output);
    if (outcome == Outcome::Complete) return true;
    const bool whole =
        !output.empty() && blockCrc(output.data(), output.size()) == statedCrc(piece);
    // The file was cut short after this block's bits, perhaps inside the end marker: the block
    // counts when its text is whole, whatever libbz2 made of the missing end.
    if (headOf(piece).ends == kEndsFile && whole) return true;
    // A whole block followed by bits that are no marker: a wrong cut would have left the block
    // short, so the next block's marker is damaged. The block's text goes out before the error.
    if (outcome == Outcome::Invalid && whole) throwDamaged("invalid compressed data");
    output.clear();  // a refused piece hands out nothing
    return false;
  }

  bool join(Piece& piece, const Piece* next) const override {
    const PieceHead head = headOf(piece);
    if (next == nullptr || head.ends != kEndsBeforeBlock) return false;
    const PieceHead tail = headOf(*next);
    if (head.bits + tail.bits > longestBlockBits(static_cast<int>(head.level))) return false;
    std::vector<unsigned char> joined;
    frame(joined, PieceHead{head.bits + tail.bits, tail.ends, head.level},
          {{piece.input.data() + kBlockAt, 0, head.bits},
           {next->input.data() + kBlockAt, 0, tail.bits}});
    piece.input.swap(joined);
    std::lock_guard<std::mutex> lock(mutex_);
    wrongCuts_.push_back(next->first);
    return true;
  }

  StreamDamaged damaged(const Piece& piece) const override {
    if (headOf(piece).ends == kEndsFile) {
      return StreamDamaged(
          "truncated bzip2 stream: the file ends in the middle of compressed data");
    }
    std::vector<char> scratch;
    // libbz2 hands out a block's text before it compares the CRC: text means a CRC mismatch.
    if (run(piece, scratch) == Outcome::Invalid && !scratch.empty()) {
      return StreamDamaged("damaged bzip2 stream: a block does not match its CRC");
    }
    return StreamDamaged("damaged bzip2 stream: invalid compressed data");
  }

  void finish() override {
    std::lock_guard<std::mutex> lock(mutex_);
    std::sort(wrongCuts_.begin(), wrongCuts_.end());
    for (const Unmatched& stream : unmatched_) {
      std::uint32_t combined = 0;
      for (const auto& [cut, crc] : stream.blocks) {
        if (!std::binary_search(wrongCuts_.begin(), wrongCuts_.end(), cut)) {
          combined = combineCrc(combined, crc);
        }
      }
      if (combined != stream.stated) throwCombinedMismatch();
    }
  }

 private:
  enum class At { StreamStart, Block, Truncated, End };
  enum class Outcome { Complete, Incomplete, Invalid };

  // A stream whose combined CRC did not match the CRCs of its pieces when it was cut: right only
  // if wrong cuts explain the difference, which is known once every piece has decoded.
  struct Unmatched {
    std::uint32_t stated;
    std::vector<std::pair<std::uint64_t, std::uint32_t>> blocks;  // (piece number, CRC)
  };

  [[noreturn]] static void throwCombinedMismatch() {
    throwDamaged("the combined CRC does not match the blocks (a block is missing or out of place)");
  }

  // Reads a stream header and the marker after it; false when the file ends instead (after zero
  // padding, perhaps). An empty stream is read whole.
  bool startStream() {
    if (streams_ != 0 && !anotherStreamFollows()) return false;
    const std::uint64_t byte = pos_ / 8;
    if (!window_.ensure(byte + 4)) throwTruncated();
    const unsigned char* header = window_.at(byte);
    if (std::memcmp(header, "BZh", 3) != 0 || header[3] < '1' || header[3] > '9') {
      throwDamaged("invalid stream header");
    }
    level_ = header[3] - '0';
    ++streams_;
    pos_ += 32;
    // A marker and a CRC follow: a block's, or the end's and the combined one.
    window_.ensure(byte + 14);
    if (window_.end() < byte + 10) throwTruncated();
    const std::uint64_t marker = bitsAt(window_.at(byte + 4), 0, 48);
    if (marker != kBlockMarker && marker != kEndMarker) throwDamaged("invalid compressed data");
    if (window_.end() < byte + 14) throwTruncated();
    if (marker == kEndMarker) {
      if (bitsAt(window_.at(byte + 4), 48, 32) != 0) throwCombinedMismatch();
      pos_ += 80;
      window_.release(pos_ / 8);
      return true;
    }
    combined_ = 0;
    blocks_.clear();
    at_ = At::Block;
    return true;
  }

  // After a stream's end: true when another stream's header follows, false at the end of the
  // file or of zero padding (some archivers pad to a block size). Anything else is damage.
  bool anotherStreamFollows() {
    std::uint64_t byte = pos_ / 8;
    window_.ensure(byte + 3);
    if (window_.end() == byte) return false;
    if (*window_.at(byte) == 0) {
      for (;;) {
        while (byte < window_.end() && *window_.at(byte) == 0) ++byte;
        window_.release(byte);
        if (byte < window_.end()) break;
        if (!window_.more()) return false;
      }
      throwDamaged("unexpected data after the zero padding at its end");
    }
    if (window_.end() - byte >= 3 && std::memcmp(window_.at(byte), "BZh", 3) == 0) return true;
    throwDamaged("data after the end of a member is not another member");
  }

  // Whether a stream may end before `byte`: the file ends there, or after zeros only, or another
  // stream starts there. Zero padding is looked at as far as a block could reach, no farther.
  bool streamMayEndBefore(std::uint64_t byte) {
    if (!window_.ensure(byte + 3)) {
      if (window_.end() <= byte) return true;
    }
    if (window_.end() - byte >= 3 && std::memcmp(window_.at(byte), "BZh", 3) == 0) return true;
    const std::uint64_t limit = byte + longestBlockBits(9) / 8;
    for (; byte < limit; ++byte) {
      if (byte == window_.end() && !window_.more()) return true;
      if (*window_.at(byte) != 0) return false;
    }
    return true;
  }

  // Cuts the block whose marker is at pos_, up to the next marker.
  void cutBlock(Piece& piece) {
    const std::uint64_t start = pos_;
    if (!window_.ensure((start + 80 + 7) / 8)) {
      at_ = At::End;
      throwTruncated();
    }
    const auto stated =
        static_cast<std::uint32_t>(bitsAt(window_.at(start / 8), start % 8 + 48, 32));
    const std::uint64_t giveUp = start + longestBlockBits(level_);
    for (std::uint64_t from = start + 1;;) {
      std::uint64_t marker = 0;
      const std::uint64_t next = findMarker(from, giveUp, marker);
      if (next == kNone) {
        if (8 * window_.end() > giveUp) {
          at_ = At::End;
          throwDamaged("invalid compressed data");
        }
        // The file ends inside the stream; the bits so far may still hold the whole block.
        emit(piece, start, 8 * window_.end(), stated, kEndsFile);
        at_ = At::Truncated;
        return;
      }
      if (marker == kBlockMarker) {
        emit(piece, start, next, stated, kEndsBeforeBlock);
        pos_ = next;
        return;
      }
      if (!window_.ensure((next + 80 + 7) / 8)) {
        emit(piece, start, next, stated, kEndsStream);
        at_ = At::Truncated;
        return;
      }
      const auto combined =
          static_cast<std::uint32_t>(bitsAt(window_.at(next / 8), next % 8 + 48, 32));
      const std::uint64_t after = (next + 80 + 7) / 8 * 8;
      const bool agrees = combined == combineCrc(combined_, stated);
      // An end marker whose CRC disagrees and after which the stream cannot end was a chance
      // pattern inside the block.
      if (!agrees && !streamMayEndBefore(after / 8)) {
        from = next + 1;
        continue;
      }
      emit(piece, start, next, stated, kEndsStream);
      if (!agrees) {
        std::lock_guard<std::mutex> lock(mutex_);
        unmatched_.push_back(Unmatched{combined, std::move(blocks_)});
      }
      blocks_.clear();
      pos_ = after;
      window_.release(pos_ / 8);
      at_ = At::StreamStart;
      return;
    }
  }

  void emit(Piece& piece, std::uint64_t start, std::uint64_t end, std::uint32_t stated,
            std::uint32_t ends) {
    frame(piece.input, PieceHead{end - start, ends, static_cast<std::uint32_t>(level_)},
          {{window_.at(start / 8), start % 8, end - start}});
    piece.decodedSize = 0;
    piece.first = cuts_++;
    blocks_.emplace_back(piece.first, stated);
    combined_ = combineCrc(combined_, stated);
    window_.release(end / 8);
  }

  // The position of the first marker at or after bit `from` (its kind in `marker`), or kNone
  // when the file ends or `giveUp` is passed first.
  std::uint64_t findMarker(std::uint64_t from, std::uint64_t giveUp, std::uint64_t& marker) {
    std::uint64_t found = scan(from, giveUp, marker);
    while (nextChance_ < chance_.size() && chance_[nextChance_].bit < from) ++nextChance_;
    if (nextChance_ < chance_.size()) {
      const ChanceMarker& chance = chance_[nextChance_];
      if (chance.bit < found && window_.ensure((chance.bit + 80 + 7) / 8)) {
        ++nextChance_;
        marker = chance.end ? kEndMarker : kBlockMarker;
        found = chance.bit;
      }
    }
    return found;
  }

  std::uint64_t scan(std::uint64_t from, std::uint64_t giveUp, std::uint64_t& marker) {
    std::uint64_t i = from / 8;
    for (;;) {
      // A marker starting in byte i lies in bytes i to i + 6; the filter reads bytes i + 1, i + 2.
      const std::uint64_t end = window_.end();
      const std::uint64_t limit = window_.eof() ? end : (end >= 7 ? end - 6 : 0);
      for (; i < limit; ++i) {
        const unsigned char* p = window_.at(i);
        const unsigned v = static_cast<unsigned>(p[1]) << 8 | p[2];
        if ((kMarkerFilter[v / 64] >> (v % 64) & 1) == 0) continue;
        std::uint64_t word = 0;
        for (int k = 0; k < 8; ++k) word = word << 8 | p[k];
        for (unsigned shift = 0; shift < 8; ++shift) {
          const std::uint64_t bit = 8 * i + shift;
          if (bit < from) continue;
          if (bit + 48 > 8 * end) break;
          const std::uint64_t m = (word >> (16 - shift)) & kMarkerMask;
          if (m == kBlockMarker || m == kEndMarker) {
            marker = m;
            return bit;
          }
        }
      }
      if (8 * i > giveUp || !window_.more()) return kNone;
    }
  }

  // Decodes the piece's stream into `output`, which holds exactly the text libbz2 gave.
  static Outcome run(const Piece& piece, std::vector<char>& output) {
    bz_stream bz;
    std::memset(&bz, 0, sizeof bz);
    const int rc = BZ2_bzDecompressInit(&bz, 0, 0);
    if (rc == BZ_MEM_ERROR) throw std::bad_alloc();
    if (rc != BZ_OK) throw std::runtime_error("bzip2 decoder failed to start");
    struct End {
      bz_stream& bz;
      ~End() { BZ2_bzDecompressEnd(&bz); }
    } end{bz};
    bz.next_in = const_cast<char*>(reinterpret_cast<const char*>(piece.input.data() + kStreamAt));
    bz.avail_in = static_cast<unsigned>(piece.input.size() - kStreamAt);
    // A block's text is usually a little longer than the block size (runs of four or more equal
    // bytes are stored shortened); it can be far longer, so the buffer grows as needed.
    const std::size_t blockSize = std::size_t{100000} * headOf(piece).level;
    if (output.size() < blockSize + blockSize / 2) output.resize(blockSize + blockSize / 2);
    std::size_t produced = 0;
    for (;;) {
      if (produced == output.size()) output.resize(2 * output.size());
      const std::size_t room = std::min<std::size_t>(output.size() - produced, 1u << 30);
      bz.next_out = output.data() + produced;
      bz.avail_out = static_cast<unsigned>(room);
      const int status = BZ2_bzDecompress(&bz);
      produced += room - bz.avail_out;
      if (status == BZ_MEM_ERROR) throw std::bad_alloc();
      Outcome outcome = Outcome::Incomplete;
      if (status == BZ_STREAM_END) {
        outcome = Outcome::Complete;
      } else if (status != BZ_OK) {
        outcome = Outcome::Invalid;
      } else if (bz.avail_in != 0 || bz.avail_out == 0) {
        continue;
      }
      output.resize(produced);
      return outcome;
    }
  }

  Window window_;
  const std::vector<ChanceMarker> chance_;
  std::size_t nextChance_ = 0;
  At at_ = At::StreamStart;
  std::uint64_t pos_ = 0;  // bit offset in the file: the next stream's start or block's marker
  int level_ = 9;
  std::uint64_t streams_ = 0;
  std::uint64_t cuts_ = 0;
  std::uint32_t combined_ = 0;  // of the stream's pieces so far
  std::vector<std::pair<std::uint64_t, std::uint32_t>> blocks_;  // the stream's (piece, CRC)

  mutable std::mutex mutex_;  // the splitter, join() and finish() run on different threads
  std::vector<Unmatched> unmatched_;
  mutable std::vector<std::uint64_t> wrongCuts_;
};

}  // namespace

std::unique_ptr<PieceCodec> bzip2PieceCodec(std::unique_ptr<ByteSource> raw,
                                            std::vector<ChanceMarker> chanceMarkers) {
  return std::make_unique<Bzip2Codec>(std::move(raw), std::move(chanceMarkers));
}

}  // namespace genostat

#endif
