#include "results/SyntaxTemplates.h"

#include <cctype>
#include <initializer_list>

namespace genostat::results {

namespace {

// The result CSV's columns in file order; the import names each with automatic type.
constexpr const char* kResultColumns[] = {
    "Sample",
    "Adapter_Type",
    "Total_Sequences",
    "Total_Bases",
    "Sequence_length",
    "GC",
    "total_deduplicated_percentage",
    "avg_sequence_length",
    "median_sequence_length",
    "basic_statistics",
    "per_base_sequence_quality",
    "per_sequence_quality_scores",
    "per_base_sequence_content",
    "per_sequence_gc_content",
    "per_base_n_content",
    "sequence_length_distribution",
    "sequence_duplication_levels",
    "overrepresented_sequences",
    "adapter_content",
    "per_tile_sequence_quality",
    "qc_score",
    "median_phred_first_10bp",
    "median_phred_last_10bp",
    "mean_phred_all_reads",
    "low_complexity_percentage",
    "unexpected_bases_percentage",
    "overrepresented_seq_count",
};

// The first line as it stands, every further line opened by `indent` blanks.
std::string indented(std::size_t indent, std::initializer_list<const char*> lines) {
  const std::string pad(indent, ' ');
  std::string text;
  bool first = true;
  for (const char* line : lines) {
    if (!first) {
      text += '\n';
      text += pad;
    }
    text += line;
    first = false;
  }
  return text;
}

std::string importCsvTemplate() {
  const std::string pad(16, ' ');
  std::string text = "\n";
  text += pad + "PRESERVE.\n";
  text += pad + "SET DECIMAL DOT.\n";
  text += "\n";
  text += pad + "GET DATA  /TYPE=TXT\n";
  text += pad + "/FILE=\"{{CSVPATH}}\"\n";
  text += pad + "/ENCODING='UTF8'\n";
  text += pad + "/DELIMITERS=\",\"\n";
  text += pad + "/QUALIFIER='\"'\n";
  text += pad + "/ARRANGEMENT=DELIMITED\n";
  text += pad + "/FIRSTCASE=2\n";
  text += pad + "/DATATYPEMIN PERCENTAGE=95.0\n";
  text += pad + "/VARIABLES=\n";
  for (const char* column : kResultColumns) text += pad + column + " AUTO\n";
  text += pad + "/MAP.\n";
  text += pad + "RESTORE.\n";
  text += pad + "CACHE.\n";
  text += pad + "EXECUTE.\n";
  text += pad + "DATASET NAME {{JOBNAME}}.\n";
  text += pad + "DATASET ACTIVATE {{JOBNAME}}.";
  return text;
}

bool isPlaceholderName(const std::string& name) {
  if (name.empty()) return false;
  for (unsigned char c : name) {
    // ASCII only: bytes of UTF-8 sequences are not letters here.
    bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
    if (!ok) return false;
  }
  return true;
}

bool isBlankLine(const std::string& text, std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) {
    if (!std::isspace(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

}  // namespace

uint64_t Fnv1aHash::hash64(const std::string& text) noexcept {
  uint64_t hash = 14695981039346656037ull;  // offset basis
  for (unsigned char c : text) {
    hash ^= c;
    hash *= 1099511628211ull;  // prime
  }
  return hash;
}

std::size_t Fnv1aHash::operator()(const std::string& text) const noexcept {
  return static_cast<std::size_t>(hash64(text));
}

TemplateTable buildTemplateTable() {
  TemplateTable table;
  table[kGenostatOutput] =
      indented(40, {"GENOSTAT", "/JOB FILE='' NAME='{{JOB_NAME}}' ADAPTERS=NONE",
                    "/PRINT SAMPLE_COUNT={{SC}} VARIABLE_COUNT={{VC}} MESSAGE={{MSG_ID}}."});
  table[kGenostatDelete] = indented(40, {"GENOSTAT", "/JOB FILE='' NAME='{{JOB_NAME}}' ADAPTERS=NONE",
                                         "/DELETE FILE='{{FILE_NAME}}'."});
  table[kImportCsv] = importCsvTemplate();
  table[kDescriptives] = indented(20, {"DESCRIPTIVES VARIABLES={{VARLIST}} ",
                                       "/STATISTICS=MEAN STDDEV MIN MAX {{SKEWNESS}} {{KURTOSIS}}."});
  table[kFrequency] = indented(
      44, {"FREQUENCIES VARIABLES={{VARLIST}}", "{{NTILES}}", "{{PCENTILES}}",
           "/STATISTICS=STDDEV VARIANCE RANGE MINIMUM MAXIMUM SEMEAN CV", "{{HISTOGRAM}}",
           "/ORDER=ANALYSIS."});
  table[kCorrelationPearson] =
      indented(44, {"CORRELATIONS", "/VARIABLES={{VARLIST}}", "/PRINT={{ONETILE}} {{TWOTILE}} NOSIG FULL",
                    "/STATISTICS XPROD", "/MISSING=PAIRWISE."});
  table[kCorrelationSpKen] =
      indented(52, {"NONPAR CORR", "/VARIABLES={{VARLIST}}",
                    "/PRINT={{COEFF}} {{ONETILE}} {{TWOTILE}} NOSIG FULL", "/MISSING=PAIRWISE."});
  table[kRegression] = indented(
      36, {"REGRESSION", "/MISSING LISTWISE", "/STATISTICS COEFF OUTS {{CI}} R ANOVA COLLIN TOL CHANGE",
           "/CRITERIA=PIN(.05) POUT(.10) TOLERANCE(.0001)", "/NOORIGIN", "/DEPENDENT {{DEP_VARLIST}}",
           "/METHOD={{METHOD}} {{IN_VARLIST}}", "/RESIDUALS PRESS {{NORMPROB}}."});
  return table;
}

std::string dropBlankLines(const std::string& text) {
  std::string out;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    std::size_t end = text.find('\n', begin);
    if (end == std::string::npos) end = text.size();
    if (!isBlankLine(text, begin, end)) {
      if (!out.empty()) out += '\n';
      out.append(text, begin, end - begin);
    }
    begin = end + 1;
  }
  return out;
}

std::string fillTemplate(const TemplateTable& table, const std::string& name, const ValueMap& values) {
  auto found = table.find(name);
  if (found == table.end()) return std::string();
  const std::string& tpl = found->second;

  std::string out;
  std::size_t pos = 0;
  while (true) {
    std::size_t open = tpl.find("{{", pos);
    if (open == std::string::npos) {
      out.append(tpl, pos, std::string::npos);
      break;
    }
    out.append(tpl, pos, open - pos);
    std::size_t close = tpl.find("}}", open + 2);
    if (close == std::string::npos) {
      // An unclosed "{{": the rest from it, then the whole rest from the scan position once more.
      // None of the fixed templates has one; the doubling is kept as the filler always did it.
      out.append(tpl, open, std::string::npos);
      out.append(tpl, pos, std::string::npos);
      break;
    }
    const std::string key = tpl.substr(open + 2, close - open - 2);
    auto value = isPlaceholderName(key) ? values.find(key) : values.end();
    if (value != values.end()) {
      out += value->second;
    } else {
      out += "{{";
      out += key;
      out += "}}";
    }
    pos = close + 2;
  }
  return dropBlankLines(out);
}

}  // namespace genostat::results
