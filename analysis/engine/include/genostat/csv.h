// Sample names and the CSV file: one header line, one row per input file, RFC 4180 quoting, LF.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace genostat {

// The sample name of one input path: last path component, then ".gz"/".bz2", then
// ".fastq"/".fq" removed (any case); the component itself when nothing would be left.
std::string sampleNameFromPath(std::string_view path);

// The names of all inputs, in order; a name equal (ignoring ASCII case) to one given earlier gets
// "_n" with the smallest n >= 2 not yet given.
std::vector<std::string> uniqueSampleNames(const std::vector<std::string>& paths);

// A field as written: enclosed in double quotes, inner quotes doubled, only when it holds a comma,
// a double quote, CR or LF.
std::string csvField(std::string_view value);

// The whole file: the column names, then every row, each line ending in LF.
std::string csvDocument(const std::vector<std::string>& columnNames,
                        const std::vector<std::vector<std::string>>& rows);

}  // namespace genostat
