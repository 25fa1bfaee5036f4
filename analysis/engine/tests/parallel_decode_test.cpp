// The pipeline under a codec of the test's own: pieces in order whatever the threads, wrong cuts
// joined, errors after the good bytes before them, and again on every later read.
#include "parallel_decode.h"

#include <gtest/gtest.h>

#include <new>
#include <tuple>

#include "engine_test_support.h"

namespace genostat {
namespace {

// Pieces of a text as a table says: 'g' decodes, 'w' is a wrong cut (refused until joined to
// what follows), 'd' hands out half its text and then fails, 'o' runs out of memory with junk
// in its output.
class TableCodec final : public PieceCodec {
 public:
  static constexpr std::size_t kPiece = 997;
  TableCodec(const std::string& text, std::string kinds, bool truncated, int& finished)
      : text_(text), kinds_(std::move(kinds)), truncated_(truncated), finished_(finished) {}
  bool split(Piece& piece) override {
    if (next_ == kinds_.size()) {
      if (truncated_) throw StreamDamaged("truncated test stream");
      return false;
    }
    const std::string part = text_.substr(next_ * kPiece, next_ + 1 == kinds_.size() ? std::string::npos : kPiece);
    piece.input.assign(part.begin(), part.end());
    piece.first = static_cast<unsigned char>(kinds_[next_++]);
    return true;
  }
  bool decode(const Piece& piece, std::vector<char>& output) const override {
    if (piece.first == 'w') return false;
    if (piece.first == 'o') {
      output.assign(100, '#');
      throw std::bad_alloc();
    }
    const std::size_t good = piece.first == 'd' ? piece.input.size() / 2 : piece.input.size();
    output.assign(piece.input.begin(), piece.input.begin() + good);
    if (piece.first == 'd') throw StreamDamaged("damaged test stream");
    return true;
  }
  bool join(Piece& piece, const Piece* next) const override {
    if (next == nullptr || piece.input.size() > 3 * kPiece) return false;
    piece.input.insert(piece.input.end(), next->input.begin(), next->input.end());
    piece.first = next->first;
    return true;
  }
  StreamDamaged damaged(const Piece&) const override { return StreamDamaged("damaged test stream: cut"); }
  void finish() override { ++finished_; }

 private:
  const std::string& text_;
  const std::string kinds_;
  const bool truncated_;
  int& finished_;
  std::size_t next_ = 0;
};

TEST(ThreadedParallelSource, KeepsOrderJoinsWrongCutsAndFailsInPlace) {
  const std::string text = testing::makeFastq(150);  // 30 pieces
  const std::size_t k = TableCodec::kPiece;
  ASSERT_GT(text.size(), 30 * k);
  const std::string good(30, 'g');
  // Kinds, truncated, the text handed out, the error.
  const std::tuple<std::string, bool, std::size_t, std::string> cases[] = {
      {good, false, text.size(), ""},
      {"wggwwgwwwg" + good.substr(10), false, text.size(), ""},
      {good.substr(1) + "w", false, 29 * k, "damaged test stream: cut"},
      {"gwwwwwg" + good.substr(7), false, 1 * k, "damaged test stream: cut"},  // joined too long
      {"ggggwd" + good.substr(6), false, 4 * k + k, "damaged test stream"},     // half of 2 pieces
      {good, true, text.size(), "truncated test stream"},
      {"gggo" + good.substr(4), false, 3 * k, "std::bad_alloc"},
  };
  for (const auto& [kinds, truncated, handedOut, error] : cases) {
    for (unsigned threads : {1u, 2u, 4u}) {
      int finished = 0;
      auto source = parallelDecodedSource(std::make_unique<TableCodec>(text, kinds, truncated, finished), threads);
      EXPECT_TRUE(testing::readAll(*source) == std::make_pair(text.substr(0, handedOut), error))
          << kinds << " " << threads;
      // Every later read ends or fails the same way; the stream-wide check ran once at the end.
      EXPECT_TRUE(testing::readAll(*source) == std::make_pair(std::string(), error)) << kinds;
      EXPECT_EQ(finished, error.empty() ? 1 : 0) << kinds;
    }
  }
}

}  // namespace
}  // namespace genostat
