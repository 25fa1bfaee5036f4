// BGZF: gzip written as members of at most 64 KiB, each stating its own compressed size in a
// "BC" extra subfield, so that members are found without inflating anything and inflated on any
// thread. The format is ordinary gzip: a one-thread reader reads it as such.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "genostat/byte_source.h"
#include "parallel_decode.h"

namespace genostat {

// What the start of a gzip member says about BGZF. NeedMore: `need` bytes are needed to tell.
struct BgzfHeader {
  enum class Verdict { Bgzf, Other, NeedMore };
  Verdict verdict = Verdict::Other;
  std::size_t need = 0;        // with NeedMore
  std::size_t headerSize = 0;  // with Bgzf: the header, extra field included
  std::size_t memberSize = 0;  // with Bgzf: the whole member, header to trailer
};
BgzfHeader inspectBgzfHeader(const unsigned char* data, std::size_t size);

// Cuts `compressed` (a stream whose first member is BGZF) into pieces of whole members and
// inflates them with the given inflater. Where the stream stops being BGZF (an ordinary gzip
// member, padding, other data, a member cut short by the end of the file or stating more than
// 64 KiB of text), the rest goes through the one-thread gzip decoder, so such streams read, and
// fail, as without BGZF. A member's stated size is trusted otherwise: when it is wrong, the
// member fails its checks and the stream is damaged, where gzip, which does not look at the
// size, may read it.
std::unique_ptr<PieceCodec> bgzfCodec(std::unique_ptr<ByteSource> compressed, Inflater inflater);

// The one-thread gzip decoder (byte_source.cpp) over `alreadyRead` followed by `rest`.
std::unique_ptr<ByteSource> serialGzipSource(std::string alreadyRead,
                                             std::unique_ptr<ByteSource> rest, Inflater inflater);

}  // namespace genostat
