// Helpers shared by the engine's reader, engine and command-line tests: temporary folders, files,
// compressed copies made with the libraries themselves, and a sink that keeps what it is given.
#pragma once

#include <gtest/gtest.h>
#include <zlib.h>

#ifdef GENOSTAT_HAVE_BZIP2
#include <bzlib.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <random>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "genostat/reader.h"

namespace genostat::testing {

// A fresh folder under the system's temporary folder, removed with its contents afterwards.
// Names are UTF-8 on every system (file(), write()), so tests may use any letters in them.
class TempDir {
 public:
  TempDir() {
    std::random_device entropy;
    std::mt19937_64 random(entropy());
    const auto base = std::filesystem::temp_directory_path();
    for (int attempt = 0; attempt < 100; ++attempt) {
      const auto candidate = base / ("genostat-engine-" + std::to_string(random()));
      if (std::filesystem::create_directory(candidate)) {  // false: the name is taken
        path_ = candidate;
        return;
      }
    }
    throw std::runtime_error("cannot make a temporary folder in " + base.u8string());
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string file(const std::string& name) const {
    return (path_ / std::filesystem::u8path(name)).u8string();
  }
  std::string write(const std::string& name, const std::string& content) const {
    const std::string path = file(name);
    std::filesystem::create_directories(std::filesystem::u8path(path).parent_path());
    std::ofstream out(std::filesystem::u8path(path), std::ios::binary);
    out << content;
    if (!out) throw std::runtime_error("cannot write " + path);
    return path;
  }
  const std::filesystem::path& path() const { return path_; }
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

// One complete gzip member holding `text`.
inline std::string gzipMember(const std::string& text, int level = 6) {
  z_stream z{};
  if (deflateInit2(&z, level, Z_DEFLATED, 16 + MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    throw std::runtime_error("deflateInit2 failed");
  }
  std::string out(deflateBound(&z, static_cast<uLong>(text.size())) + 64, '\0');
  z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  z.avail_in = static_cast<uInt>(text.size());
  z.next_out = reinterpret_cast<Bytef*>(out.data());
  z.avail_out = static_cast<uInt>(out.size());
  const int rc = deflate(&z, Z_FINISH);
  out.resize(z.total_out);
  deflateEnd(&z);
  if (rc != Z_STREAM_END) throw std::runtime_error("deflate failed");
  return out;
}

// `text` cut into pieces of `pieceSize` bytes, each its own gzip member (as BGZF and parallel
// compressors write them).
inline std::string gzipMembers(const std::string& text, std::size_t pieceSize) {
  std::string out;
  for (std::size_t at = 0; at < text.size(); at += pieceSize) {
    out += gzipMember(text.substr(at, pieceSize));
  }
  return out;
}

inline bool exists(const std::string& path) {
  return std::filesystem::exists(std::filesystem::u8path(path));
}

#ifdef GENOSTAT_HAVE_BZIP2
inline std::string bzip2Stream(const std::string& text) {
  unsigned size = static_cast<unsigned>(text.size() + text.size() / 100 + 1024);
  std::string out(size, '\0');
  const int rc = BZ2_bzBuffToBuffCompress(out.data(), &size, const_cast<char*>(text.data()),
                                          static_cast<unsigned>(text.size()), 9, 0, 0);
  if (rc != BZ_OK) throw std::runtime_error("bzip2 compression failed");
  out.resize(size);
  return out;
}
#endif

// The start of a bzip2 stream: enough for the engine to recognise one, whether or not it can
// decode it.
inline std::string bzip2Magic() { return std::string("BZh91AY&SY\x00\x00\x00\x00", 14); }

struct KeptRecord {
  std::string header, sequence, quality;
  bool operator==(const KeptRecord& o) const {
    return header == o.header && sequence == o.sequence && quality == o.quality;
  }
};

inline std::ostream& operator<<(std::ostream& out, const KeptRecord& r) {
  return out << '{' << r.header << '|' << r.sequence << '|' << r.quality << '}';
}

class KeepingSink final : public RecordSink {
 public:
  void onRecord(const FastqRecord& record) override {
    records.push_back(KeptRecord{std::string(record.header), std::string(record.sequence),
                                 std::string(record.quality)});
  }
  std::vector<KeptRecord> records;
};

// `count` well-formed records of varying length and content, deterministic.
inline std::string makeFastq(std::size_t count, std::size_t minLength = 20,
                             std::size_t maxLength = 160, unsigned seed = 1) {
  std::string out;
  unsigned state = seed * 2654435761u + 12345u;
  auto next = [&state] {
    state = state * 1103515245u + 12345u;
    return (state >> 8) & 0xffffffu;
  };
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t length = minLength + next() % (maxLength - minLength + 1);
    out += "@read" + std::to_string(i) + ":1:FC:1:" + std::to_string(1101 + i % 3) +
           ":5:" + std::to_string(i) + "\n";
    for (std::size_t j = 0; j < length; ++j) out.push_back("ACGTNacgt"[next() % 9]);
    out += "\n+\n";
    for (std::size_t j = 0; j < length; ++j) out.push_back(static_cast<char>('#' + next() % 40));
    out += "\n";
  }
  return out;
}

inline std::string sharedTestData() { return GENOSTAT_SHARED_TESTDATA; }

inline bool sharedTestDataPresent() { return std::filesystem::is_directory(sharedTestData()); }

}  // namespace genostat::testing
