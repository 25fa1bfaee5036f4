#include "fqgen.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "platform/system.h"

namespace genostat::fqgen {
namespace {

// Sequences kept for duplicates to copy: enough distinct ones that no single copy stands out as
// overrepresented at the duplicate rates samples use (each of 1000 gets ~0.02% of reads at 20%).
constexpr std::size_t kDuplicatePoolSize = 1000;
// Output is handed to the file in chunks of this size.
constexpr std::size_t kWriteChunk = 4u << 20;
constexpr char kNQuality = '#';  // Q2, what instruments give an uncalled base

std::uint64_t splitmix64(std::uint64_t& x) {
  std::uint64_t z = (x += 0x9e3779b97f4a7c15ULL);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

std::uint64_t rotl(std::uint64_t x, int k) { return (x << k) | (x >> (64 - k)); }

// A rate in [0, 1] as a threshold on a uniform 32-bit draw.
std::uint32_t threshold(double rate) {
  if (rate >= 1.0) return UINT32_MAX;
  return static_cast<std::uint32_t>(rate * 4294967296.0);
}

template <typename T>
bool parseUnsigned(std::string_view text, T& value) {
  if (text.empty()) return false;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  return ec == std::errc() && end == text.data() + text.size();
}

bool parseRate(std::string_view text, double& value) {
  // std::from_chars for double needs g++ 11 / clang 17; strtod is locale-bound but the generator
  // never changes its locale.
  std::string copy(text);
  if (copy.empty()) return false;
  char* end = nullptr;
  errno = 0;
  value = std::strtod(copy.c_str(), &end);
  return errno == 0 && end == copy.c_str() + copy.size() && value >= 0.0 && value <= 1.0;
}

bool parseLength(std::string_view text, Options& options) {
  auto dash = text.find('-');
  std::uint32_t lo = 0, hi = 0;
  if (dash == std::string_view::npos) {
    if (!parseUnsigned(text, lo)) return false;
    hi = lo;
  } else if (!parseUnsigned(text.substr(0, dash), lo) ||
             !parseUnsigned(text.substr(dash + 1), hi)) {
    return false;
  }
  if (lo == 0 || hi < lo || hi > 100000000) return false;
  options.minLength = lo;
  options.maxLength = hi;
  return true;
}

bool parseProfile(std::string_view text, QualityProfile& profile) {
  if (text == "high") profile = QualityProfile::High;
  else if (text == "medium") profile = QualityProfile::Medium;
  else if (text == "low") profile = QualityProfile::Low;
  else if (text == "decay") profile = QualityProfile::Decay;
  else return false;
  return true;
}

bool isDna(std::string_view text) {
  return !text.empty() && text.find_first_not_of("ACGT") == std::string_view::npos;
}

// Mean quality at `pos` (0-based) of a read of `length`, in tenths of a Phred unit, and the
// half-width of the noise around it.
struct QualityShape {
  int startTenths, endTenths, noise, dipPerThousand;
};

QualityShape shapeOf(QualityProfile profile) {
  switch (profile) {
    case QualityProfile::High: return {370, 360, 3, 5};
    case QualityProfile::Medium: return {300, 240, 5, 20};
    case QualityProfile::Low: return {180, 100, 6, 40};
    case QualityProfile::Decay: return {360, 60, 4, 30};
  }
  return {370, 360, 3, 5};
}

}  // namespace

const char* usageText() {
  return "usage: genostat-fqgen [options]\n"
         "  --seed N             random seed (default 1)\n"
         "  --reads N            number of reads (default 1000)\n"
         "  --length L|MIN-MAX   read length or uniform range (default 150)\n"
         "  --quality PROFILE    high, medium, low or decay (default high)\n"
         "  --adapter-rate F     share of reads running into the adapter, 0..1 (default 0)\n"
         "  --adapter SEQ        adapter sequence, A/C/G/T (default Illumina TruSeq)\n"
         "  --duplicate-rate F   share of reads copying an earlier sequence, 0..1 (default 0)\n"
         "  --n-rate F           chance of each base being N, 0..1 (default 0)\n"
         "  --gc F               share of G and C among the bases, 0..1 (default 0.5)\n"
         "  --tiles N            instrument headers spread over N tiles (default 0: @read<n>)\n"
         "  --gzip[=LEVEL]       gzip the output (level 1..9, default 6)\n"
         "  --output FILE        output file (default: standard output)\n";
}

bool parseOptions(int argc, const char* const* argv, Options& options, std::string& error) {
  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    if (arg == "--gzip") {
      options.gzipLevel = 6;
      continue;
    }
    if (arg.substr(0, 7) == "--gzip=") {
      int level = 0;
      if (!parseUnsigned(arg.substr(7), level) || level < 1 || level > 9) {
        error = "gzip level must be 1..9: " + std::string(arg);
        return false;
      }
      options.gzipLevel = level;
      continue;
    }
    static const char* const kWithValue[] = {"--seed",  "--reads",          "--length",
                                             "--quality", "--adapter-rate", "--adapter",
                                             "--duplicate-rate", "--n-rate", "--gc", "--tiles",
                                             "--output"};
    if (std::find(std::begin(kWithValue), std::end(kWithValue), arg) == std::end(kWithValue)) {
      error = "unknown option: " + std::string(arg);
      return false;
    }
    if (i + 1 >= argc) {
      error = "missing value after " + std::string(arg);
      return false;
    }
    std::string_view value = argv[++i];
    bool ok = true;
    if (arg == "--seed") ok = parseUnsigned(value, options.seed);
    else if (arg == "--reads") ok = parseUnsigned(value, options.reads);
    else if (arg == "--length") ok = parseLength(value, options);
    else if (arg == "--quality") ok = parseProfile(value, options.quality);
    else if (arg == "--adapter-rate") ok = parseRate(value, options.adapterRate);
    else if (arg == "--duplicate-rate") ok = parseRate(value, options.duplicateRate);
    else if (arg == "--n-rate") ok = parseRate(value, options.nRate);
    else if (arg == "--gc") ok = parseRate(value, options.gc);
    else if (arg == "--tiles") ok = parseUnsigned(value, options.tiles) && options.tiles <= 10000;
    else if (arg == "--adapter") {
      ok = isDna(value);
      if (ok) options.adapter = std::string(value);
    } else {
      options.output = std::string(value);
    }
    if (!ok) {
      error = "invalid value for " + std::string(arg) + ": " + std::string(value);
      return false;
    }
  }
  return true;
}

Generator::Generator(const Options& options)
    : options_(options),
      adapterThreshold_(threshold(options.adapterRate)),
      duplicateThreshold_(threshold(options.duplicateRate)),
      nThreshold_(threshold(options.nRate)),
      gcThreshold_(threshold(options.gc)) {
  std::uint64_t seed = options.seed;
  for (auto& word : state_) word = splitmix64(seed);
}

std::uint64_t Generator::random() {
  // xoshiro256** (Blackman and Vigna, public domain).
  const std::uint64_t result = rotl(state_[1] * 5, 7) * 9;
  const std::uint64_t t = state_[1] << 17;
  state_[2] ^= state_[0];
  state_[3] ^= state_[1];
  state_[1] ^= state_[2];
  state_[0] ^= state_[3];
  state_[2] ^= t;
  state_[3] = rotl(state_[3], 45);
  return result;
}

bool Generator::chance(std::uint32_t limit) {
  return limit != 0 && static_cast<std::uint32_t>(random() >> 32) < limit;
}

void Generator::makeSequence(std::uint32_t length) {
  static const char kBases[4] = {'A', 'C', 'G', 'T'};
  sequence_.resize(length);
  std::uint64_t bits = 0;
  if (options_.gc == 0.5) {  // the original two-bit draw keeps earlier files byte for byte
    for (std::uint32_t i = 0; i < length; ++i) {
      if (i % 32 == 0) bits = random();
      sequence_[i] = kBases[bits & 3];
      bits >>= 2;
    }
  } else {
    // One draw a base: the upper half decides G/C against A/T, one low bit which of the pair.
    static const char kAt[2] = {'A', 'T'};
    static const char kGc[2] = {'C', 'G'};
    for (auto& base : sequence_) {
      const std::uint64_t draw = random();
      const bool gc = static_cast<std::uint32_t>(draw >> 32) < gcThreshold_;
      base = gc ? kGc[draw & 1] : kAt[draw & 1];
    }
  }
  if (chance(adapterThreshold_)) {
    // The insert ends between a quarter of the read and its last base; the adapter follows.
    const std::uint32_t start = length / 4 + static_cast<std::uint32_t>(random() % (length - length / 4));
    const std::size_t copy = std::min<std::size_t>(options_.adapter.size(), length - start);
    sequence_.replace(start, copy, options_.adapter, 0, copy);
  }
  if (nThreshold_ != 0) {
    for (auto& base : sequence_) {
      if (chance(nThreshold_)) base = 'N';
    }
  }
}

void Generator::makeQualities() {
  const QualityShape shape = shapeOf(options_.quality);
  const std::size_t length = sequence_.size();
  quality_.resize(length);
  const int span = 2 * shape.noise + 1;
  for (std::size_t i = 0; i < length; ++i) {
    if (sequence_[i] == 'N') {
      quality_[i] = kNQuality;
      continue;
    }
    const std::uint64_t draw = random();
    const long mean = shape.startTenths + (static_cast<long>(shape.endTenths) - shape.startTenths) *
                                              static_cast<long>(i) / static_cast<long>(length);
    int q = static_cast<int>((mean + 5) / 10) + static_cast<int>(draw % span) - shape.noise;
    if (static_cast<int>((draw >> 16) % 1000) < shape.dipPerThousand) {
      q = 5 + static_cast<int>((draw >> 32) % 16);  // Q5..Q20
    }
    q = std::clamp(q, 2, 41);
    quality_[i] = static_cast<char>('!' + q);
  }
}

void Generator::appendHeader(std::string& out) {
  char header[96];
  int n;
  if (options_.tiles == 0) {
    n = std::snprintf(header, sizeof header, "@read%llu\n",
                      static_cast<unsigned long long>(made_ + 1));
  } else {
    const std::uint64_t draw = random();
    const unsigned tile = 1101 + static_cast<unsigned>(draw % options_.tiles);
    const unsigned x = static_cast<unsigned>((draw >> 20) % 30000);
    const unsigned y = static_cast<unsigned>((draw >> 40) % 30000);
    n = std::snprintf(header, sizeof header, "@GSIM01:7:FC0001:1:%u:%u:%u 1:N:0:ACGTACGT\n",
                      tile, x, y);
  }
  out.append(header, static_cast<std::size_t>(n));
}

bool Generator::next(std::string& out) {
  if (made_ >= options_.reads) return false;
  appendHeader(out);
  if (!pool_.empty() && chance(duplicateThreshold_)) {
    sequence_ = pool_[random() % pool_.size()];
  } else {
    const std::uint32_t spread = options_.maxLength - options_.minLength + 1;
    makeSequence(options_.minLength + static_cast<std::uint32_t>(random() % spread));
    if (pool_.size() < kDuplicatePoolSize) pool_.push_back(sequence_);
  }
  makeQualities();
  out += sequence_;
  out += "\n+\n";
  out += quality_;
  out += '\n';
  ++made_;
  return true;
}

namespace {

// The output file, plain or gzip, behind one write call. Opened through the platform layer:
// binary on every system, and a UTF-8 name reaches Windows intact.
class Sink {
 public:
  bool open(const Options& options, std::string& error) {
    const bool toStdout = options.output.empty() || options.output == "-";
    name_ = toStdout ? "standard output" : options.output;
    platform::SystemError failure;
    fd_ = toStdout ? kStandardOutput : platform::createForWriting(options.output, failure);
    if (fd_ < 0) {
      error = name_ + ": " + failure.text;
      return false;
    }
    ownFd_ = !toStdout;
    if (options.gzipLevel > 0) {
      const std::string mode = "wb" + std::to_string(options.gzipLevel);
      gz_ = gzdopen(fd_, mode.c_str());  // closes the descriptor when it is closed
      if (gz_ == nullptr) {
        error = name_ + ": cannot start the gzip compressor";
        return false;
      }
      ownFd_ = false;
    }
    return true;
  }

  bool write(const std::string& data, std::string& error) {
    if (data.empty()) return true;
    if (gz_ != nullptr) {
      if (gzwrite(gz_, data.data(), static_cast<unsigned>(data.size())) !=
          static_cast<int>(data.size())) {
        int code = 0;
        error = name_ + ": " + gzerror(gz_, &code);
        return false;
      }
      return true;
    }
    platform::SystemError failure;
    if (!platform::writeAll(fd_, data.data(), data.size(), failure)) {
      error = name_ + ": " + failure.text;
      return false;
    }
    return true;
  }

  bool close(std::string& error) {
    bool ok = true;
    if (gz_ != nullptr) {
      ok = gzclose(gz_) == Z_OK;
      gz_ = nullptr;
    } else if (ownFd_) {
      platform::SystemError failure;
      ok = platform::closeFile(fd_, failure);
      ownFd_ = false;
    }
    if (!ok) error = name_ + ": write failed";
    return ok;
  }

  ~Sink() {
    std::string ignored;
    close(ignored);
  }

 private:
  static constexpr int kStandardOutput = 1;
  std::string name_;
  int fd_ = -1;
  bool ownFd_ = false;
  gzFile gz_ = nullptr;
};

}  // namespace

bool writeFastq(const Options& options, std::string& error) {
  Sink sink;
  if (!sink.open(options, error)) return false;
  Generator generator(options);
  std::string buffer;
  buffer.reserve(kWriteChunk + 4096);
  while (generator.next(buffer)) {
    if (buffer.size() >= kWriteChunk) {
      if (!sink.write(buffer, error)) return false;
      buffer.clear();
    }
  }
  return sink.write(buffer, error) && sink.close(error);
}

}  // namespace genostat::fqgen
