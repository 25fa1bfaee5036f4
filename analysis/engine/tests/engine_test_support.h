// Shared by the engine's tests: a scratch folder, whole files, compressed copies made with the
// libraries themselves, sources and a sink for the reader, the command line run in process, and
// the golden folder's tables.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#ifdef GENOSTAT_HAVE_BZIP2
#include <bzlib.h>
#endif

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "genostat/cli.h"
#include "genostat/reader.h"

namespace genostat::testing {

// A fresh folder under the system's temporary folder, removed with its contents afterwards.
// Names are UTF-8 on every system.
class TempDir {
 public:
  TempDir() {
    std::mt19937_64 random(std::random_device{}());
    const auto base = std::filesystem::temp_directory_path();
    do path_ = base / ("genostat-engine-" + std::to_string(random()));
    while (!std::filesystem::create_directory(path_));
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const std::string& name) const {
    return (path_ / std::filesystem::u8path(name)).u8string();
  }
  std::string write(const std::string& name, const std::string& content) const {
    std::ofstream(std::filesystem::u8path(file(name)), std::ios::binary) << content;
    return file(name);
  }
  std::string folder() const { return path_.u8string(); }

 private:
  std::filesystem::path path_;
};

inline std::string readWholeFile(const std::string& path) {
  std::ifstream in(std::filesystem::u8path(path), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline bool exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::u8path(path));
}

// `text` deflated at level 6: a gzip member with windowBits 16 + MAX_WBITS, raw deflate with
// -MAX_WBITS.
inline std::string deflated(const std::string& text, int windowBits) {
  std::string out(compressBound(static_cast<uLong>(text.size())) + 64, '\0');
  z_stream z{};
  deflateInit2(&z, 6, Z_DEFLATED, windowBits, 8, Z_DEFAULT_STRATEGY);
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  if (deflate(&z, Z_FINISH) != Z_STREAM_END) throw std::runtime_error("deflate failed");
  out.resize(z.total_out);
  deflateEnd(&z);
  return out;
}

// One complete gzip member holding `text`.
inline std::string gzipMember(const std::string& text) { return deflated(text, 16 + MAX_WBITS); }

// `text` cut into pieces of `pieceSize` bytes, each its own gzip member (as BGZF writes them).
inline std::string gzipMembers(const std::string& text, std::size_t pieceSize) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    out += gzipMember(text.substr(at, pieceSize));
  }
  return out;
}

// One BGZF member holding `text`: raw deflate framed by a gzip header whose extra field holds
// `extra` (other subfields), then the "BC" subfield with the member's size less one.
inline std::string bgzfMember(const std::string& text, const std::string& extra = "") {
  const std::string raw = deflated(text, -MAX_WBITS);
  const auto le = [](std::size_t value, int bytes) {
    std::string out;
    for (int i = 0; i < bytes; ++i) out.push_back(static_cast<char>(value >> (8 * i) & 0xff));
    return out;
  };
  const std::size_t size = 12 + extra.size() + 6 + raw.size() + 8;
  const auto crc = crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size()));
  return std::string("\x1f\x8b\x08\x04\0\0\0\0\0\xff", 10) + le(extra.size() + 6, 2) + extra + "BC" +
         le(2, 2) + le(size - 1, 2) + raw + le(crc, 4) + le(text.size(), 4);
}

// `text` as BGZF: members of `pieceSize` bytes of text, then the empty member that ends the file.
inline std::string bgzf(const std::string& text, std::size_t pieceSize = 65280, const std::string& extra = "") {
  std::string out;
  for (std::size_t at = 0; at < text.size(); at += pieceSize) out += bgzfMember(text.substr(at, pieceSize), extra);
  return out + bgzfMember("");
}

#ifdef GENOSTAT_HAVE_BZIP2
// One bzip2 stream; `level` 1 makes blocks of 100,000 bytes, 9 of 900,000.
inline std::string bzip2Stream(const std::string& text, int level = 9) {
  unsigned size = static_cast<unsigned>(text.size() + text.size() / 100 + 1024);
  std::string out(size, '\0');
  BZ2_bzBuffToBuffCompress(out.data(), &size, const_cast<char*>(text.data()),
                           static_cast<unsigned>(text.size()), level, 0, 0);
  out.resize(size);
  return out;
}
#endif

// Hands out its text `chunk` bytes at a time, then optionally fails like a damaged stream.
class ChunkedSource final : public ByteSource {
 public:
  ChunkedSource(std::string text, std::size_t chunk, bool damagedAtEnd = false)
      : text_(std::move(text)), chunk_(chunk), damagedAtEnd_(damagedAtEnd) {}
  std::size_t read(char* buffer, std::size_t capacity) override {
    const std::size_t n = std::min({capacity, chunk_, text_.size() - at_});
    if (n == 0 && damagedAtEnd_) throw StreamDamaged("damaged gzip stream: test");
    text_.copy(buffer, n, at_);
    at_ += n;
    return n;
  }

 private:
  std::string text_;
  std::size_t chunk_;
  bool damagedAtEnd_;
  std::size_t at_ = 0;
};

// The text `source` hands out, read `piece` bytes at a time, then its error ("" when it ends).
inline std::pair<std::string, std::string> readAll(ByteSource& source, std::size_t piece = 777) {
  std::string out, buffer(piece, '\0');
  try {
    while (const std::size_t n = source.read(buffer.data(), buffer.size())) out.append(buffer, 0, n);
  } catch (const std::exception& error) {
    return {out, error.what()};
  }
  return {out, ""};
}

// Keeps every record as "header|sequence|quality".
class KeepingSink final : public RecordSink {
 public:
  void onRecord(const FastqRecord& r) override {
    records.push_back(std::string(r.header) + "|" + std::string(r.sequence) + "|" + std::string(r.quality));
  }
  std::vector<std::string> records;
};

// `count` well-formed records of varying length and content, with tile headers; deterministic.
inline std::string makeFastq(std::size_t count, std::size_t minLength = 20,
                             std::size_t maxLength = 160, unsigned seed = 1) {
  std::string out;
  std::mt19937 random(seed);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = minLength + random() % (maxLength - minLength + 1);
    out += "@read" + std::to_string(i) + ":1:FC:1:" + std::to_string(1101 + i % 3) + ":5:" +
           std::to_string(i) + "\n";
    for (std::size_t j = 0; j < length; ++j) out.push_back("ACGTNacgt"[random() % 9]);
    out += "\n+\n";
    for (std::size_t j = 0; j < length; ++j) out.push_back(static_cast<char>('#' + random() % 40));
    out += "\n";
  }
  return out;
}

// genostat-qc's command line run in this process: the exit code and the standard error.
inline std::pair<int, std::string> runCommand(const std::vector<std::string>& args,
                                              const std::function<void(EngineOptions&)>& configure = {}) {
  std::ostringstream out, err;
  const int code = runCli(args, out, err, configure);
  return {code, err.str()};
}

// The golden folder's tables: one case a line, fields separated by tabs, '#' lines and empty
// lines skipped; a line starting with a tab continues the previous line's last field.
inline std::vector<std::vector<std::string>> readTable(const std::string& name) {
  std::istringstream in(readWholeFile(std::string(GENOSTAT_GOLDEN_DIR) + "/" + name));
  std::vector<std::vector<std::string>> rows;
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line[0] == '#') continue;
    if (line[0] == '\t' && !rows.empty()) {
      rows.back().back() += " " + line.substr(1);
      continue;
    }
    rows.emplace_back();
    std::istringstream fields(line);
    for (std::string field; std::getline(fields, field, '\t');) rows.back().push_back(field);
  }
  return rows;
}

}  // namespace genostat::testing
