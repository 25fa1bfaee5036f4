// The FASTQ parser. Text arrives in a buffer that is refilled from the source; a record is parsed
// only when all its lines are in the buffer, otherwise the buffer is refilled (and grown when one
// record does not fit) and the record is parsed again from its start. Sequences are upper-cased
// in place, so a record costs four memchr calls and two vectorised passes of byte checks.
#include "genostat/reader.h"

#include <cstring>
#include <memory>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

#include "genostat/input_error.h"
#include "large_memory.h"

namespace genostat {
namespace {

std::string describeByte(unsigned char c) {
  if (c >= 33 && c <= 126) return std::string("'") + static_cast<char>(c) + "'";
  switch (c) {
    case ' ':
      return "a blank (code 32)";
    case '\t':
      return "a tab (code 9)";
    case '\r':
      return "a carriage return (code 13)";
    default:
      return "code " + std::to_string(c);
  }
}

// A byte buffer that is not zero-filled when created or grown (it is always written before it is
// read), keeping its first `keep` bytes when it grows. A multi-megabase read makes it large.
class TextBuffer {
 public:
  explicit TextBuffer(std::size_t size) : data_(LargeAllocator<char>().allocate(size)), size_(size) {}
  ~TextBuffer() { LargeAllocator<char>().deallocate(data_, size_); }
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;
  char* data() { return data_; }
  const char* data() const { return data_; }
  std::size_t size() const { return size_; }
  char operator[](std::size_t i) const { return data_[i]; }
  void grow(std::size_t size, std::size_t keep) {
    char* bigger = LargeAllocator<char>().allocate(size);
    std::memcpy(bigger, data_, keep);
    LargeAllocator<char>().deallocate(data_, size_);
    data_ = bigger;
    size_ = size;
  }

 private:
  char* data_;
  std::size_t size_;
};

// Upper-cases ASCII letters in place and reports whether every byte is printable ASCII ('!'..'~').
// Sixteen bytes at a time with SSE2 (part of every x86-64), so the check costs the same at any
// optimisation level; a plain byte loop does the tail and other processors.
inline bool upperCaseAndCheck(char* text, std::size_t size) {
  std::size_t i = 0;
#ifdef __SSE2__
  // Signed compares: bytes of 128 and above are negative, so they fail "> 32" like control bytes.
  const __m128i low = _mm_set1_epi8(32);
  const __m128i high = _mm_set1_epi8(127);
  const __m128i beforeA = _mm_set1_epi8('a' - 1);
  const __m128i afterZ = _mm_set1_epi8('z' + 1);
  const __m128i caseBit = _mm_set1_epi8(0x20);
  __m128i good = _mm_set1_epi8(-1);
  for (; i + 16 <= size; i += 16) {
    auto* at = reinterpret_cast<__m128i*>(text + i);
    const __m128i v = _mm_loadu_si128(at);
    good = _mm_and_si128(good, _mm_and_si128(_mm_cmpgt_epi8(v, low), _mm_cmplt_epi8(v, high)));
    const __m128i lower = _mm_and_si128(_mm_cmpgt_epi8(v, beforeA), _mm_cmplt_epi8(v, afterZ));
    _mm_storeu_si128(at, _mm_sub_epi8(v, _mm_and_si128(lower, caseBit)));
  }
  bool ok = _mm_movemask_epi8(good) == 0xffff;
#else
  bool ok = true;
#endif
  for (; i < size; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    ok &= c >= 33 && c <= 126;
    if (c >= 'a' && c <= 'z') text[i] = static_cast<char>(c - 0x20);
  }
  return ok;
}

inline bool checkPrintable(const char* text, std::size_t size) {
  std::size_t i = 0;
#ifdef __SSE2__
  const __m128i low = _mm_set1_epi8(32);
  const __m128i high = _mm_set1_epi8(127);
  __m128i good = _mm_set1_epi8(-1);
  for (; i + 16 <= size; i += 16) {
    const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i));
    good = _mm_and_si128(good, _mm_and_si128(_mm_cmpgt_epi8(v, low), _mm_cmplt_epi8(v, high)));
  }
  bool ok = _mm_movemask_epi8(good) == 0xffff;
#else
  bool ok = true;
#endif
  for (; i < size; ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    ok &= c >= 33 && c <= 126;
  }
  return ok;
}

std::size_t firstNonPrintable(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    if (c < 33 || c > 126) return i;
  }
  return text.size();
}

// Why a sequence or quality line was refused: its first byte outside '!'..'~' and where it stands.
std::string nonPrintableReason(const char* what, std::string_view text) {
  const std::size_t at = firstNonPrintable(text);
  return std::string("the ") + what + " has " + describeByte(static_cast<unsigned char>(text[at])) +
         " at position " + std::to_string(at + 1) + "; only printable ASCII ('!' to '~') is allowed";
}

class Parser {
 public:
  Parser(ByteSource& source, const std::string& path, RecordSink& sink, const ReadOptions& options)
      : source_(source),
        path_(path),
        sink_(sink),
        options_(options),
        buffer_(options.bufferSize < 64 ? 64 : options.bufferSize) {}

  std::uint64_t run() {
    for (;;) {
      const Outcome outcome = parseRecords();
      if (outcome == Outcome::Done) break;
      refill();
    }
    publishProgress();
    return records_;
  }

 private:
  enum class Outcome { Done, NeedMore };

  struct Line {
    char* begin;
    std::size_t size;
    std::string_view view() const { return {begin, size}; }
  };

  // The next line starting at `cur` (CR before LF removed), or false when it is not complete in
  // the buffer yet (or, at the end of the input, when there is no line left).
  bool nextLine(char*& cur, char* end, Line& line) const {
    if (cur == end) return false;
    auto* newline = static_cast<char*>(std::memchr(cur, '\n', static_cast<std::size_t>(end - cur)));
    char* lineEnd;
    if (newline != nullptr) {
      lineEnd = newline;
      line.begin = cur;
      cur = newline + 1;
    } else {
      if (!eof_) return false;
      lineEnd = end;
      line.begin = cur;
      cur = end;
    }
    if (lineEnd != line.begin && lineEnd[-1] == '\r') --lineEnd;
    line.size = static_cast<std::size_t>(lineEnd - line.begin);
    return true;
  }

  Outcome parseRecords() {
    char* const end = buffer_.data() + end_;
    for (;;) {
      char* cur = buffer_.data() + pos_;
      std::uint64_t line = lines_;
      Line header{};
      // Empty lines between records (and at the end) are skipped.
      for (;;) {
        if (!nextLine(cur, end, header)) {
          return eof_ ? Outcome::Done : Outcome::NeedMore;
        }
        ++line;
        if (header.size != 0) break;
        pos_ = static_cast<std::size_t>(cur - buffer_.data());
        lines_ = line;
      }
      const std::uint64_t record = records_ + 1;
      if (header.begin[0] != '@') {
        fail(record, line, "the header line does not start with '@'");
      }

      Line sequence{};
      if (!nextLine(cur, end, sequence)) {
        if (!eof_) return Outcome::NeedMore;
        fail(record, line + 1, "the file ends after the header line (no sequence line)");
      }
      ++line;
      if (!upperCaseAndCheck(sequence.begin, sequence.size)) {
        fail(record, line, nonPrintableReason("sequence", sequence.view()));
      }

      Line separator{};
      if (!nextLine(cur, end, separator)) {
        if (!eof_) return Outcome::NeedMore;
        fail(record, line + 1, "the file ends after the sequence line (no '+' line)");
      }
      ++line;
      if (separator.size == 0 || separator.begin[0] != '+') {
        fail(record, line,
             separator.size == 0 ? std::string("the line after the sequence is empty; expected a "
                                               "'+' line (records of more than four lines are "
                                               "not supported)")
                                 : "the line after the sequence does not start with '+' (records "
                                   "of more than four lines are not supported)");
      }
      if (separator.size > 1 && separator.view().substr(1) != header.view().substr(1)) {
        fail(record, line, "the text after '+' differs from the header's text after '@'");
      }

      Line quality{};
      if (!nextLine(cur, end, quality)) {
        if (!eof_) return Outcome::NeedMore;
        fail(record, line + 1, "the file ends after the '+' line (no quality line)");
      }
      ++line;
      if (!checkPrintable(quality.begin, quality.size)) {
        fail(record, line, nonPrintableReason("quality", quality.view()));
      }
      if (quality.size != sequence.size) {
        fail(record, line,
             "quality length " + std::to_string(quality.size) + " differs from sequence length " +
                 std::to_string(sequence.size));
      }

      FastqRecord out;
      out.header = header.view();
      out.sequence = sequence.view();
      out.quality = quality.view();
      sink_.onRecord(out);
      records_ = record;
      lines_ = line;
      pos_ = static_cast<std::size_t>(cur - buffer_.data());
    }
  }

  void refill() {
    if (options_.cancel != nullptr && options_.cancel->load(std::memory_order_relaxed)) {
      throw ReadCancelled();
    }
    publishProgress();
    // Keep the unparsed tail; grow when a single record fills the whole buffer.
    const std::size_t pending = end_ - pos_;
    if (pos_ != 0) {
      std::memmove(buffer_.data(), buffer_.data() + pos_, pending);
      pos_ = 0;
      end_ = pending;
    }
    if (end_ == buffer_.size()) {
      if (buffer_.size() >= options_.maxRecordBytes) {
        fail(records_ + 1, lines_ + 1 + countNewlines(),
             "the record is longer than " + std::to_string(options_.maxRecordBytes) +
                 " bytes (is this a FASTQ file?)");
      }
      buffer_.grow(std::min(buffer_.size() * 2, options_.maxRecordBytes), end_);
    }
    std::size_t n = 0;
    try {
      n = source_.read(buffer_.data() + end_, buffer_.size() - end_);
    } catch (const StreamDamaged& damaged) {
      fail(records_ + 1, lines_ + 1 + countNewlines(), damaged.what());
    }
    if (n == 0) eof_ = true;
    end_ += n;
  }

  std::uint64_t countNewlines() const {
    std::uint64_t count = 0;
    for (std::size_t i = pos_; i < end_; ++i) count += buffer_[i] == '\n';
    return count;
  }

  void publishProgress() {
    if (options_.recordsRead != nullptr) {
      options_.recordsRead->store(records_, std::memory_order_relaxed);
    }
  }

  [[noreturn]] void fail(std::uint64_t record, std::uint64_t line, const std::string& reason) {
    throw malformedInput(path_, record, line, reason);
  }

  ByteSource& source_;
  const std::string& path_;
  RecordSink& sink_;
  const ReadOptions& options_;
  TextBuffer buffer_;
  std::size_t pos_ = 0;  // start of the first unparsed byte
  std::size_t end_ = 0;  // end of the data in the buffer
  bool eof_ = false;
  std::uint64_t records_ = 0;  // records handed to the sink
  std::uint64_t lines_ = 0;    // lines consumed up to pos_
};

}  // namespace

std::uint64_t readFastq(ByteSource& source, const std::string& path, RecordSink& sink,
                        const ReadOptions& options) {
  Parser parser(source, path, sink, options);
  return parser.run();
}

std::uint64_t readFastqMemory(std::string_view data, const std::string& path, RecordSink& sink,
                              Inflater inflater) {
  auto source = openDecodedSource(memorySource(data), path, inflater);
  ReadOptions options;
  options.bufferSize = 4096;  // grows when needed; small in-memory inputs stay cheap
  return readFastq(*source, path, sink, options);
}

}  // namespace genostat
