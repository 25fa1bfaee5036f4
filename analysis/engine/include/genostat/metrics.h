// The per-sample quality-control accumulator: one per input file, fed every record of the file in
// order, asked once for the file's CSV row. The reader (reader.h) and the metrics know each other
// only through this header.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace genostat {

enum class AdapterSetting { None, Illumina, Nextera, Custom };

struct MetricsOptions {
  AdapterSetting adapter = AdapterSetting::None;
  std::string customSequence;  // upper case, A/C/G/T only (checked before the engine runs)
  // Positions always counted one by one (about 1.3 KB of tables each). Further positions are
  // counted so only as far as the 101st-longest read reaches; the at most 100 reads beyond keep
  // the rest of their text. No figure depends on it; tests lower it to send many reads that way.
  std::size_t densePositions = 16384;
};

// One FASTQ record as the reader hands it over; the views are valid during add() only.
struct FastqRecord {
  std::string_view header;    // the whole first line, '@' included, CR/LF removed
  std::string_view sequence;  // already upper-cased (ASCII letters), validated printable ASCII
  std::string_view quality;   // unchanged, validated printable ASCII, same length as sequence
};

// The names of the 27 columns, in CSV order.
const std::vector<std::string>& csvColumnNames();

class SampleMetrics {
 public:
  explicit SampleMetrics(const MetricsOptions& options);
  ~SampleMetrics();
  SampleMetrics(SampleMetrics&&) noexcept;
  SampleMetrics& operator=(SampleMetrics&&) noexcept;

  // The hot path: called once per record, in file order.
  void add(const FastqRecord& record);

  // The 27 fields of the file's CSV row, unquoted; field 0 is `sampleName` as given (the writer
  // quotes it when needed), field 1 the adapter keyword. May be called once, after the last add().
  std::vector<std::string> finish(const std::string& sampleName);

  // Forgets every record, for the next file with the same options. Keeps the tables' memory and
  // clears only what the last file used: cheaper than a new accumulator per small file.
  void reset();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace genostat
