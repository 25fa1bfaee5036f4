// bzip2 cut into blocks: every block and stream decoded alone gives the file's text, chance
// markers inside compressed data are joined away, and damage is refused after exactly the text
// of the blocks before it; the engine's row and refusals the same on any number of threads.
#ifdef GENOSTAT_HAVE_BZIP2
#include "bzip2_codec.h"

#include <gtest/gtest.h>

#include <exception>

#include "engine_test_support.h"
#include "genostat/engine.h"
#include "genostat/input_error.h"

namespace genostat {
namespace {

constexpr std::uint64_t kBlockMarker = 0x314159265359;
constexpr std::uint64_t kEndMarker = 0x177245385090;

struct Decoded {
  std::string text;
  std::string error;                // "" when the whole file was read
  std::vector<std::size_t> pieces;  // the text's length after each piece
  std::size_t joins = 0;
};

// Drives a codec as the parallel source does, on one thread: pieces in order, a refused piece
// joined to its successor, the stream-wide check at the end.
Decoded decodeAll(const std::string& file, std::vector<ChanceMarker> chanceMarkers = {}) {
  Decoded out;
  auto codec = bzip2PieceCodec(std::make_unique<testing::ChunkedSource>(file, 77777),
                               std::move(chanceMarkers));
  std::vector<char> text;
  try {
    Piece piece, next;
    std::exception_ptr splitError;
    const auto splitNext = [&] {
      try {
        return codec->split(next);
      } catch (const StreamDamaged&) {
        splitError = std::current_exception();
        return false;
      }
    };
    for (bool have = codec->split(piece); have;) {
      bool haveNext = splitNext();
      try {
        while (!codec->decode(piece, text)) {
          if (!codec->join(piece, haveNext ? &next : nullptr)) throw codec->damaged(piece);
          ++out.joins;
          haveNext = splitNext();
        }
      } catch (const StreamDamaged&) {
        out.text.append(text.data(), text.size());  // what decoded before the damage
        throw;
      }
      out.text.append(text.data(), text.size());
      out.pieces.push_back(out.text.size());
      if (splitError) std::rethrow_exception(splitError);
      std::swap(piece, next);
      have = haveNext;
    }
    codec->finish();
  } catch (const StreamDamaged& error) {
    out.error = error.what();
  }
  return out;
}

// The bit offsets of `marker` in `file`, found bit by bit.
std::vector<std::uint64_t> markers(const std::string& file, std::uint64_t marker) {
  std::vector<std::uint64_t> at;
  std::uint64_t window = 0;
  for (std::uint64_t bit = 0; bit < 8 * file.size(); ++bit) {
    window = (window << 1 | (static_cast<unsigned char>(file[bit / 8]) >> (7 - bit % 8) & 1)) &
             ((std::uint64_t{1} << 48) - 1);
    if (bit >= 47 && window == marker) at.push_back(bit - 47);
  }
  return at;
}

// The bits [from, to) of `file` for each range, one after the other, padded to a byte.
std::string bitRanges(const std::string& file,
                      std::vector<std::pair<std::uint64_t, std::uint64_t>> ranges) {
  std::string out;
  std::uint64_t n = 0;
  for (const auto& [from, to] : ranges) {
    for (std::uint64_t bit = from; bit < to; ++bit, ++n) {
      if (n % 8 == 0) out.push_back('\0');
      if (static_cast<unsigned char>(file[bit / 8]) >> (7 - bit % 8) & 1) {
        out.back() = static_cast<char>(out.back() | 1 << (7 - n % 8));
      }
    }
  }
  return out;
}

// Some 4.5 MB of reads at level 1: about forty blocks of 100,000 bytes.
const std::string& blocksText() {
  static const std::string text = testing::makeFastq(20000);
  return text;
}
const std::string& blocksFile() {
  static const std::string file = testing::bzip2Stream(blocksText(), 1);
  return file;
}

TEST(Bzip2Codec, EveryBlockAndStreamDecodedAloneGivesTheText) {
  const std::string& text = blocksText();
  const std::string& file = blocksFile();
  const std::vector<std::uint64_t> blocks = markers(file, kBlockMarker);
  ASSERT_GT(blocks.size(), 30u);
  const std::uint64_t end = markers(file, kEndMarker).at(0);
  const std::string small = text.substr(0, 2'000'000);
  struct Case {
    const char* name;
    std::string file;
    std::string text;
    std::vector<ChanceMarker> chanceMarkers;
    std::size_t joins;
  };
  const Case cases[] = {
      {"blocks at level 1", file, text, {}, 0},
      {"streams of levels 9, 1, 3, an empty one, then zero padding",
       testing::bzip2Stream(small.substr(0, 1'500'000)) +
           testing::bzip2Stream(small.substr(1'500'000, 7000), 1) + testing::bzip2Stream("") +
           testing::bzip2Stream(small.substr(1'507'000), 3) + std::string(300, '\0'),
       small,
       {},
       0},
      {"one empty stream", testing::bzip2Stream(""), "", {}, 0},
      // Block markers by chance: inside a block, twice in one block, overlapping the CRC after a
      // real marker, in the stream's last block; an end marker by chance, which needs no join.
      {"chance markers",
       file,
       text,
       {{blocks[2] + 4000}, {blocks[5] + 1000}, {blocks[5] + 2001}, {blocks[6] + 48},
        {blocks[7] + 3000, true}, {end - 9}},
       5},
  };
  for (const Case& c : cases) {
    const Decoded got = decodeAll(c.file, c.chanceMarkers);
    EXPECT_EQ(got.error, "") << c.name;
    EXPECT_TRUE(got.text == c.text) << c.name << ": " << got.text.size() << " of " << c.text.size();
    EXPECT_EQ(got.joins, c.joins) << c.name;
  }
}

TEST(Bzip2Codec, DamageIsRefusedAfterTheTextOfTheBlocksBeforeIt) {
  const std::string& text = blocksText();
  const std::string& file = blocksFile();
  const std::vector<std::uint64_t> blocks = markers(file, kBlockMarker);
  const std::uint64_t end = markers(file, kEndMarker).at(0);
  const std::vector<std::size_t> after = decodeAll(file).pieces;  // text length after each block
  ASSERT_EQ(after.size(), blocks.size());
  const std::size_t k = 3;
  const auto flipped = [&](std::uint64_t bit) {
    std::string damaged = file;
    damaged[bit / 8] = static_cast<char>(damaged[bit / 8] ^ (0x80 >> bit % 8));
    return damaged;
  };
  const std::string before = text.substr(0, after[k - 1]);
  const std::string withoutBlock = text.substr(0, after[k - 1]) + text.substr(after[k]);
  struct Case {
    const char* name;
    std::string file;
    std::string good;
    const char* error;
  };
  const Case cases[] = {
      {"a bit flipped inside a block", flipped((blocks[k] + blocks[k + 1]) / 2), before,
       "damaged bzip2 stream: "},
      {"a bit flipped in a block's CRC", flipped(blocks[k] + 60), before,
       "damaged bzip2 stream: a block does not match its CRC"},
      {"a bit flipped in a block's marker", flipped(blocks[k + 1] + 20), text.substr(0, after[k]),
       "damaged bzip2 stream: invalid compressed data"},
      {"the file cut inside a block", file.substr(0, (blocks[k] + blocks[k + 1]) / 16), before,
       "truncated bzip2 stream: the file ends in the middle of compressed data"},
      {"the file cut inside the end marker", file.substr(0, (end + 24) / 8), text,
       "truncated bzip2 stream"},
      {"the file cut inside the combined CRC", file.substr(0, file.size() - 2), text,
       "truncated bzip2 stream"},
      {"the file cut inside the end marker after a block with a bad CRC",
       flipped(blocks.back() + 60).substr(0, (end + 24) / 8),
       text.substr(0, after[after.size() - 2]),
       "truncated bzip2 stream"},
      {"a block left out", bitRanges(file, {{0, blocks[k]}, {blocks[k + 1], end + 80}}),
       withoutBlock,
       "damaged bzip2 stream: the combined CRC does not match the blocks"},
      {"data after the stream", file + "junk", text,
       "damaged bzip2 stream: data after the end of a member is not another member"},
      {"data after zero padding", file + std::string(5, '\0') + "BZh9", text,
       "damaged bzip2 stream: unexpected data after the zero padding at its end"},
      {"a stream header with level 0", "BZh0" + file.substr(4), "",
       "damaged bzip2 stream: invalid stream header"},
      {"the file cut after the stream header", file.substr(0, 4), "", "truncated bzip2 stream"},
  };
  for (const Case& c : cases) {
    const Decoded got = decodeAll(c.file);
    EXPECT_EQ(got.error.rfind(c.error, 0), 0u) << c.name << ": " << got.error;
    EXPECT_TRUE(got.text == c.good) << c.name << ": " << got.text.size() << " of " << c.good.size();
    // Joining gives up once the piece is longer than a block can be, well before the end.
    EXPECT_LT(got.joins, 8u) << c.name;
  }
}

// The engine with the blocks decoded on several threads: the same row as the plain file, and a
// truncated file refused at the same record as by the one-thread decoder.
TEST(ThreadedBzip2, SameRowAndSameRefusalOnAnyThreads) {
  testing::TempDir plainDir, bzDir;
  const std::string plain = plainDir.write("reads.fastq", blocksText());
  const std::string whole = bzDir.write("reads.fastq.bz2", blocksFile());
  const std::string cut =
      bzDir.write("cut.fastq.bz2", blocksFile().substr(0, blocksFile().size() / 2));
  const auto rows = [](const std::string& path, unsigned threads) {
    EngineOptions options;
    options.threads = threads;
    try {
      return runEngine({path}, options).at(0);
    } catch (const InputError& error) {
      return std::vector<std::string>{error.what()};
    }
  };
  const std::vector<std::string> expected = rows(plain, 1), refusal = rows(cut, 1);
  ASSERT_EQ(expected.size(), 27u);
  ASSERT_NE(refusal.at(0).find("truncated bzip2 stream"), std::string::npos) << refusal.at(0);
  for (unsigned threads : {1u, 2u, 4u}) {
    EXPECT_EQ(rows(whole, threads), expected) << threads;
    EXPECT_EQ(rows(cut, threads), refusal) << threads;
  }
}

}  // namespace
}  // namespace genostat
#endif
