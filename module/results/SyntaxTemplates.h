// The named command-syntax templates handed back to the host after a job, and the one operation
// that fills their {{NAME}} placeholders and tidies the result.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace genostat::results {

// 64-bit FNV-1a over the bytes of a name: cheap, and stable across platforms and runs.
struct Fnv1aHash {
  std::size_t operator()(const std::string& text) const noexcept;
  static uint64_t hash64(const std::string& text) noexcept;
};

using TemplateTable = std::unordered_map<std::string, std::string, Fnv1aHash>;
using ValueMap = std::unordered_map<std::string, std::string, Fnv1aHash>;

// Template names.
inline constexpr char kGenostatOutput[] = "GENOSTAT_OUTPUT";
inline constexpr char kGenostatDelete[] = "GENOSTAT_DELETE";
inline constexpr char kImportCsv[] = "IMPORT_CSV";
inline constexpr char kDescriptives[] = "DESCRIPTIVES";
inline constexpr char kFrequency[] = "FREQUENCY";
inline constexpr char kCorrelationPearson[] = "CORRELATION_PEARSON";
inline constexpr char kCorrelationSpKen[] = "CORRELATION_SP_KEN";
inline constexpr char kRegression[] = "REGRESSION";

// The eight templates, built afresh for each caller.
TemplateTable buildTemplateTable();

// The template `name` with every well-formed placeholder that `values` knows replaced by its value
// (values are not scanned again), then tidied: lines that are empty or hold only white space are
// dropped and the rest joined with single line feeds, without one at the end. Placeholders that
// are unknown or whose name holds anything but letters, digits and '_' stay as written. Empty
// text for an unknown template name.
std::string fillTemplate(const TemplateTable& table, const std::string& name, const ValueMap& values);

// The tidy step on its own.
std::string dropBlankLines(const std::string& text);

}  // namespace genostat::results
