// Compressed formats made of independent pieces (BGZF blocks, bzip2 blocks) decode on several
// threads at once. A codec cuts its stream into pieces on one thread and decodes any piece on any
// thread; the source built here keeps the pieces in stream order, so the reader sees the same
// bytes, and the same errors after the same good bytes, as from a one-thread decoder.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "genostat/byte_source.h"

namespace genostat {

// A stretch of compressed input that decodes without its neighbours, in whatever form the codec
// chose when cutting it (a bzip2 block is re-framed as a stream of its own, for instance).
struct Piece {
  std::vector<unsigned char> input;
  std::uint64_t decodedSize = 0;  // when the format states it (BGZF's ISIZE); 0 when unknown
  std::uint64_t first = 0;        // codec's own bookkeeping (bit offset, block number, ...)
};

class PieceCodec {
 public:
  virtual ~PieceCodec() = default;

  // The next piece in stream order, reading compressed input as needed; false at the end of the
  // stream. Called from one thread at a time. Throws StreamDamaged for damage seen while cutting
  // (a truncated block header, data after the end that is not another member).
  virtual bool split(Piece& piece) = 0;

  // Decodes `piece` alone into `output` (whose earlier contents are replaced). Called from any
  // thread, for several pieces at once and while split() runs, so it touches no mutable state
  // of the codec. Returns false when the piece cannot decode alone because a cut was wrong (a
  // block marker's bit pattern occurring by chance inside compressed data): the piece is then
  // joined to its successor and decoded again. Throws StreamDamaged for damage, leaving in
  // `output` the bytes that decoded correctly before it (or nothing): the source hands them out
  // before the error, so a piece of many members loses none of those before a damaged one. After
  // any other exception the output is dropped.
  virtual bool decode(const Piece& piece, std::vector<char>& output) const = 0;

  // Appends `next` to `piece` after decode() refused `piece`. False when joining cannot help
  // (the piece is already longer than any real one, or `next` is null because the stream ended),
  // which makes the refusal damage: the source then throws what damaged() returns.
  virtual bool join(Piece& piece, const Piece* next) const = 0;
  virtual StreamDamaged damaged(const Piece& piece) const = 0;

  // Called on the reading thread after the last piece was handed out, for checks that span the
  // stream (a combined checksum); throws StreamDamaged.
  virtual void finish() {}
};

// Decodes `codec`'s pieces on `threads` threads (at least 1), handing out their output in stream
// order; at most a few pieces per thread are held at once, so memory stays bounded whatever the
// file's size. Destroying the source stops its threads.
std::unique_ptr<ByteSource> parallelDecodedSource(std::unique_ptr<PieceCodec> codec,
                                                  unsigned threads);

}  // namespace genostat
